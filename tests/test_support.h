// What many tests need: a workspace of their own, a folder that goes away, files as bytes, a user
// interface that answers as told.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "base/user_interface.h"

namespace kv::test {

class TempFolder {
public:
    TempFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "kelvane-test-XXXXXX").string();
        path_ = ::mkdtemp(name.data());
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }
    const std::filesystem::path& path() const { return path_; }
    std::size_t fileCount() const {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(path_))
            count += entry.is_regular_file();
        return count;
    }

private:
    std::filesystem::path path_;
};

inline Bytes readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const ByteSpan bytes = bytesOf(text);
    return {bytes.begin(), bytes.end()};
}

inline void writeFile(const std::filesystem::path& path, ByteSpan bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

/// Records what it is shown and answers questions from a list; the safe answer when that is empty.
class ScriptedUi final : public UserInterface {
public:
    void postStatus(std::string_view text, StatusKind) override {
        if (!text.empty()) statuses.emplace_back(text);
    }
    int showMessage(std::string_view caption, std::string_view text, u32) override {
        messages.push_back(std::string(caption) + ": " + std::string(text));
        return 1;
    }
    int ask(std::string_view caption, std::string_view, std::span<const std::string_view>,
            int safe) override {
        questions.emplace_back(caption);
        if (answers.empty()) return safe;
        const int answer = answers.front();
        answers.erase(answers.begin());
        return answer;
    }
    bool cancelRequested() override { return cancel; }

    std::vector<std::string> statuses, messages, questions;
    std::vector<int> answers;
    bool cancel = false;
};

} // namespace kv::test
