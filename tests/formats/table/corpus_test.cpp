// Detection over files that other programs wrote. The corpus is no part of the repository.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>

#include "base/text.h"
#include "formats/framework/detection.h"
#include "formats/table/format_table_rows.h"
#include "places.h"

namespace kv {
namespace {

struct Listed {
    std::string file, format;
};

/// The first two columns of the manifest's table.
std::vector<Listed> manifest() {
    std::vector<Listed> files;
    std::ifstream in(KV_CORPUS_DIR "/MANIFEST.md");
    for (std::string line; std::getline(in, line);) {
        const std::size_t first = line.find(" | "), second = line.find(" | ", first + 1);
        if (!line.starts_with("| ") || second == line.npos) continue;
        files.push_back({line.substr(2, first - 2), line.substr(first + 3, second - first - 3)});
    }
    return files;
}

/// Listed for what they pretend to be: no MIDI header, packed by another program, or a
/// relative of RIFF WAVE that we don't read.
bool isDecoy(std::string_view file) {
    constexpr std::string_view kDecoys[] = {
        "test-empty-file.mid", "test-not-a-midi-file.mid", ".syx", "libxmp/ice", "RIFX", "rifx", "rf64"};
    return std::any_of(std::begin(kDecoys), std::end(kDecoys),
                       [&](std::string_view name) { return file.find(name) != file.npos; });
}

struct Expected {
    std::string_view extensionOfRow; ///< empty: the file's own
    int confidence;                  ///< at least, in percent
};

const std::map<std::string, Expected> kFormats = {
    {"akai-akp", {"akp", 100}}, {"akai-p", {"p", 77}}, {"akai-s", {"s", 77}},    {"dls", {"dls", 100}},
    {"it", {"it", 100}},        {"iti", {"iti", 100}}, {"its", {"its", 100}},    {"midi", {"mid", 100}},
    {"wav", {"", 100}},         {"mod", {"mod", 55}},  {"raw-gsm", {"gsm", 55}}, {"rmi", {"rmi", 100}},
    {"s3m", {"s3m", 100}},      {"sf2", {"sf2", 100}}, {"sfz", {"sfz", 55}},     {"xi", {"xi", 100}},
    {"xm", {"xm", 100}},
};

TEST(Corpus, IsDetected) {
    const std::vector<Listed> files = manifest();
    if (files.empty()) GTEST_SKIP() << "no corpus at " KV_CORPUS_DIR;
    int checked = 0;
    for (const Listed& listed : files) {
        const auto expected = kFormats.find(listed.format);
        if (expected == kFormats.end() || isDecoy(listed.file)) continue;
        const auto path = std::filesystem::path(KV_CORPUS_DIR) / listed.file;
        FileContext file{.source = openFileSource(path), .path = path};
        if (!file.source) continue;
        int confidence = 0;
        const int row = DetectFile(formatTable(), path, file, confidence);
        const auto& [named, atLeast] = expected->second;
        EXPECT_EQ(formatTable().RowExtension(row), named.empty() ? pathExtension(path) : named)
            << listed.file;
        EXPECT_GE(confidence, atLeast) << listed.file;
        ++checked;
    }
    EXPECT_GT(checked, 0);
}

} // namespace
} // namespace kv
