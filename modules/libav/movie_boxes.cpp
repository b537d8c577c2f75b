#include "libav/movie_boxes.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <utility>

namespace kv::libav {
namespace {

constexpr std::uint32_t boxType(const char (&name)[5]) {
    std::uint32_t type = 0;
    for (int i = 0; i < 4; ++i) type = type << 8 | static_cast<std::uint8_t>(name[i]);
    return type;
}

/// A run of the file's bytes.
struct Range {
    std::int64_t start, end;
};

std::uint64_t bigEndian(const MediaInput& input, std::int64_t offset, int bytes) {
    std::array<std::uint8_t, 8> raw{};
    if (input.read(input.client, offset, raw.data(), bytes) != bytes) return 0;
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value = value << 8 | raw[static_cast<std::size_t>(i)];
    return value;
}

/// What stands in the first box of a type among the boxes that fill `within`.
std::optional<Range> findBox(const MediaInput& input, Range within, std::uint32_t type) {
    constexpr int kMostBoxes = 10000;
    std::int64_t at = within.start;
    for (int i = 0; i < kMostBoxes && within.end - at >= 8; ++i) {
        std::uint64_t size = bigEndian(input, at, 4);
        const bool found = bigEndian(input, at + 4, 4) == type;
        const std::int64_t head = size == 1 ? 16 : 8;
        if (size == 1 && within.end - at >= head) size = bigEndian(input, at + 8, 8);
        if (size == 0) size = static_cast<std::uint64_t>(within.end - at); // the last one, to the end
        if (size < static_cast<std::uint64_t>(head)) return {};
        const std::int64_t next =
            at + static_cast<std::int64_t>(std::min(size, static_cast<std::uint64_t>(within.end - at)));
        if (found) return Range{std::min(at + head, next), next};
        at = next;
    }
    return {};
}

/// What stands in a box within boxes, the outermost first.
std::optional<Range> findPath(const MediaInput& input, std::initializer_list<std::uint32_t> types) {
    std::optional<Range> range = Range{0, input.size};
    for (const std::uint32_t type : types) {
        if (range) range = findBox(input, *range, type);
    }
    return range;
}

} // namespace

std::int64_t movieScale(const MediaInput& input) {
    const auto header = findPath(input, {boxType("moov"), boxType("mvhd")});
    if (!header || header->end - header->start < 24) return 0;
    const bool longTimes = bigEndian(input, header->start, 1) == 1;
    return static_cast<std::int64_t>(bigEndian(input, header->start + (longTimes ? 20 : 12), 4));
}

std::string assetText(const MediaInput& input, std::string_view key) {
    constexpr std::pair<std::string_view, std::uint32_t> kBoxes[] = {
        {"title", boxType("titl")},   {"artist", boxType("perf")},    {"album", boxType("albm")},
        {"comment", boxType("dscp")}, {"copyright", boxType("cprt")},
    };
    const auto known =
        std::find_if(std::begin(kBoxes), std::end(kBoxes), [&](const auto& row) { return row.first == key; });
    if (known == std::end(kBoxes)) return {};
    const auto box = findPath(input, {boxType("moov"), boxType("udta"), known->second});
    constexpr std::int64_t kHead = 6, kMost = 4096; // version, flags and language
    if (!box || box->end - box->start <= kHead) return {};
    std::string text(static_cast<std::size_t>(std::min(box->end - box->start - kHead, kMost)), '\0');
    const int got = input.read(input.client, box->start + kHead, reinterpret_cast<std::uint8_t*>(text.data()),
                               static_cast<std::int32_t>(text.size()));
    text.resize(static_cast<std::size_t>(std::max(got, 0)));
    // Texts of 16 bits begin with a byte order mark; no program at hand writes them.
    if (text.starts_with("\xFE\xFF")) return {};
    return text.substr(0, text.find('\0'));
}

} // namespace kv::libav
