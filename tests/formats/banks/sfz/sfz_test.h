#pragma once

#include <algorithm>

#include "formats/format_test.h"
#include "model/instrument.h"
#include "model/store.h"

namespace kv::test {

class SfzTest : public FormatTest {
protected:
    static constexpr u32 kFrames = 1000;

    /// A sample file that a bank can name.
    void addSample(const std::string& name, ByteSpan moreChunks = {}) {
        std::filesystem::create_directories((folder / name).parent_path());
        std::vector<i16> samples(kFrames);
        for (u32 i = 0; i < kFrames; ++i) samples[i] = static_cast<i16>(i * 31);
        writeFile(folder / name, wavWith(samples, moreChunks));
    }
    /// Imports a text; its regions in the order of the store.
    std::vector<Region*> read(std::string_view text, const std::string& name = "test.sfz") {
        writeFile(folder / name, bytesOf(text));
        space.diagnostics.clear();
        EXPECT_TRUE(Import(folder / name, true)) << failure();
        return regions();
    }
    static std::vector<Region*> regions() {
        std::vector<Region*> all;
        for (Region& region : store().all<Region>()) all.push_back(&region);
        return all;
    }
    /// The text of the diagnostics of a field, one a line.
    std::string told(std::string_view field) const {
        std::string all;
        for (const Diagnostic& d : space.diagnostics.entries()) {
            if (d.field == field) all += d.text + "\n";
        }
        return all;
    }
};

} // namespace kv::test
