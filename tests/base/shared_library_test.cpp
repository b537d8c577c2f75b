#include "base/shared_library.h"

#include <gtest/gtest.h>

#include "base/run_context.h"

namespace kv {
namespace {

TEST(SharedLibrary, TakesTheFirstNameThatOpens) {
    SharedLibrary library("libc6", {"libkelvane-none.so.1", "libm.so.6"});
    double (*cosine)(double) = nullptr;
    library.bind(cosine, "cos");
    ASSERT_TRUE(library.ready("Test"));
    EXPECT_EQ(cosine(0), 1);
}

TEST(SharedLibrary, TellsWhatToInstall) {
    void (*function)() = nullptr;
    SharedLibrary missing("libnone1", {"libkelvane-none.so.1", "libkelvane-none.so.0"});
    missing.bind(function, "none_open");
    EXPECT_FALSE(missing.ready("Test"));
    EXPECT_EQ(runContext().error.context, "Test");
    EXPECT_EQ(runContext().error.message,
              "The library libkelvane-none.so.1 could not be opened. Please install the package libnone1.");

    SharedLibrary old("libc6", {"libm.so.6"});
    old.bind(function, "none_open").bind(function, "none_close");
    EXPECT_EQ(function, nullptr);
    EXPECT_FALSE(old.ready("Test"));
    EXPECT_EQ(runContext().error.message,
              "The library libm.so.6 is too old: it lacks none_open. Please update the package libc6.");
}

} // namespace
} // namespace kv
