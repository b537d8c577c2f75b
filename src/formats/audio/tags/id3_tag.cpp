#include "formats/audio/tags/id3_tag.h"

#include <algorithm>
#include <array>

#include "base/text.h"
#include "model/wave.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr std::size_t kHeaderBytes = 10;
constexpr std::size_t kMostTextBytes = 65536;
constexpr std::size_t kMostUnsynchronised = 1 << 20; // of a tag that has to be gone over as a whole
constexpr int kMostTags = 8, kMostFrames = 10'000;

constexpr std::size_t kId3v1Bytes = 128;
constexpr std::size_t kApeFooterBytes = 32;
constexpr u32 kApeHasHeader = 1U << 31, kApeIsHeader = 1U << 29;

/// What a text frame is called; version 2.2 has names of three letters.
struct FrameRow {
    std::string_view id, shortId, name;
};
constexpr FrameRow kFrames[] = {{"TIT2", "TT2", "TITLE"},
                                {"TPE1", "TP1", "ARTIST"},
                                {"TALB", "TAL", "ALBUM"},
                                {"TCOP", "TCR", "COPYRIGHT"},
                                {"TENC", "TEN", "ENCODED-BY"}};

Bytes readSome(ByteSource& source, u64 offset, std::size_t count) {
    Bytes bytes(count);
    bytes.resize(source.readAt(offset, bytes));
    return bytes;
}

/// Four bytes of seven bits.
u32 syncsafe(u32 word) {
    return (word & 0x7F) | (word >> 8 & 0x7F) << 7 | (word >> 16 & 0x7F) << 14 | (word >> 24 & 0x7F) << 21;
}
bool isSyncsafe(u32 word) {
    return (word & 0x80808080) == 0;
}

/// Takes out the zeros that were put behind bytes of ones.
Bytes resynchronised(ByteSpan bytes) {
    Bytes out;
    out.reserve(bytes.size());
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        out.push_back(bytes[i]);
        if (bytes[i] == std::byte{0xFF} && i + 1 < bytes.size() && bytes[i + 1] == std::byte{0}) ++i;
    }
    return out;
}

// ---- Texts by their encoding

enum Encoding : u8 { kLatin1, kUtf16, kUtf16Be, kUtf8 };

bool isWide(u8 encoding) {
    return encoding == kUtf16 || encoding == kUtf16Be;
}

/// Takes the bytes up to a terminator, and that away from them.
ByteSpan takeString(ByteSpan& bytes, u8 encoding) {
    const std::size_t unit = isWide(encoding) ? 2 : 1;
    std::size_t end = 0;
    const auto isZero = [&](std::size_t at) {
        return bytes[at] == std::byte{0} && bytes[at + unit - 1] == std::byte{0};
    };
    while (end + unit <= bytes.size() && !isZero(end)) end += unit;
    const ByteSpan text = bytes.first(std::min(end, bytes.size()));
    bytes = bytes.subspan(std::min(end + unit, bytes.size()));
    return text;
}

std::string utf8Of(ByteSpan text, u8 encoding) {
    if (!isWide(encoding)) return encoding == kLatin1 ? AnsiToUtf8(textOf(text)) : textFromBytes(text);
    const bool marked = text.size() >= 2 && encoding == kUtf16;
    const bool big = encoding == kUtf16Be || (marked && text[0] == std::byte{0xFE});
    const bool hasMark = marked && (text[0] == std::byte{0xFE} || text[0] == std::byte{0xFF});
    ByteCursor in(hasMark ? text.subspan(2) : text);
    std::u16string wide;
    while (in.left() >= 2)
        wide += static_cast<char16_t>(in.integer<u16>(big ? std::endian::big : std::endian::little));
    return WideToUtf8(wide);
}

void takeFrame(std::string_view id, ByteSpan contents, TextTaker& texts) {
    if (contents.empty()) return;
    const u8 encoding = std::to_integer<u8>(contents[0]);
    if (encoding > kUtf8) return;
    contents = contents.subspan(1);
    if (id == "COMM" || id == "COM") {
        if (contents.size() < 3) return;
        contents = contents.subspan(3); // language
        const std::string topic = utf8Of(takeString(contents, encoding), encoding);
        if (!topic.starts_with("iTun"))
            texts.take("COMMENT", utf8Of(takeString(contents, encoding), encoding));
        return;
    }
    if (id == "TXXX" || id == "TXX") {
        const std::string name = utf8Of(takeString(contents, encoding), encoding);
        texts.take(name, utf8Of(takeString(contents, encoding), encoding));
        return;
    }
    for (const FrameRow& row : kFrames) {
        if (row.id == id || row.shortId == id)
            texts.take(row.name, utf8Of(takeString(contents, encoding), encoding));
    }
}

// ---- The frames of an ID3v2 tag

/// A frame's header.
struct Frame {
    std::string id;
    u64 size = 0;
    u16 flags = 0;
};

constexpr std::size_t frameHeaderBytes(int version) {
    return version == 2 ? 6 : 10;
}

Frame readFrame(ByteSpan header, int version) {
    ByteCursor in(header);
    Frame frame;
    frame.id = textOf(in.bytes(version == 2 ? 3 : 4));
    if (version == 2) {
        const u32 high = in.u8le();
        frame.size = high << 16 | in.u16be();
        return frame;
    }
    const u32 size = in.u32be();
    // Some programs write plain sizes into version 2.4.
    frame.size = version == 4 && isSyncsafe(size) ? syncsafe(size) : size;
    frame.flags = in.u16be();
    return frame;
}

/// The frame's contents without what its flags put ahead of them; empty when they are packed or encrypted.
Bytes contentsOf(ByteSource& tag, u64 at, const Frame& frame, int version) {
    struct Flags {
        u16 sealed, group, length, unsynchronised;
    };
    const Flags flags = version == 4   ? Flags{0x0C, 0x40, 0x01, 0x02}
                        : version == 3 ? Flags{0xC0, 0x20, 0, 0}
                                       : Flags{};
    if ((frame.flags & flags.sealed) != 0) return {};
    Bytes bytes = readSome(tag, at, static_cast<std::size_t>(std::min<u64>(frame.size, kMostTextBytes)));
    std::size_t ahead = (frame.flags & flags.group) != 0 ? 1 : 0;
    if ((frame.flags & flags.length) != 0) ahead += 4;
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(ahead, bytes.size())));
    return (frame.flags & flags.unsynchronised) != 0 ? resynchronised(bytes) : bytes;
}

/// A chapter, in milliseconds, with frames of its own for a title (ID3v2 Chapter Frame Addendum, 2005).
void takeChapter(ByteSpan contents, int version, TextTaker& texts) {
    takeString(contents, kLatin1); // a name for other frames
    ByteCursor in(contents);
    const u32 start = in.u32be(), end = in.u32be();
    in.skip(8);
    if (!in.ok()) return;
    TimedMark mark{start / 1000.0, end / 1000.0, {}};
    while (in.left() > frameHeaderBytes(version)) {
        const Frame frame = readFrame(in.bytes(frameHeaderBytes(version)), version);
        if (frame.size == 0 || frame.size > in.left()) break;
        ByteSpan title = in.bytes(static_cast<std::size_t>(frame.size));
        if (frame.id != "TIT2") continue;
        const u8 encoding = std::to_integer<u8>(title[0]);
        title = title.subspan(1);
        if (encoding > kUtf8) continue;
        mark.label = utf8Of(takeString(title, encoding), encoding);
    }
    texts.take(std::move(mark));
}

void takeId3v2(ByteSource& source, u64 start, TextTaker& texts) {
    const Bytes header = readSome(source, start, kHeaderBytes);
    const int version = std::to_integer<u8>(header[3]);
    const u8 flags = std::to_integer<u8>(header[5]);
    if (version < 2 || version > 4 || (version == 2 && (flags & 0x40) != 0)) return;
    u64 end = start + id3v2Bytes(header);
    u64 at = start + kHeaderBytes;
    ByteSource* tag = &source;
    Bytes whole;
    if (version < 4 && (flags & 0x80) != 0) { // sizes count without the zeros that were put in
        whole = resynchronised(
            readSome(source, at, static_cast<std::size_t>(std::min<u64>(end - at, kMostUnsynchronised))));
        at = 0;
        end = whole.size();
    }
    MemorySource memory{ByteSpan(whole)};
    if (!whole.empty()) tag = &memory;
    if (version > 2 && (flags & 0x40) != 0) {
        const Bytes extended = readSome(*tag, at, 4);
        if (extended.size() < 4) return;
        const u32 size = loadInteger<u32>(ByteSpan(extended).first<4>(), std::endian::big);
        at += version == 4 ? syncsafe(size) : u64{size} + 4;
    }
    for (int left = kMostFrames; left > 0 && at < end; --left) {
        const Bytes bytes = readSome(*tag, at, frameHeaderBytes(version));
        if (bytes.size() < frameHeaderBytes(version) || bytes[0] == std::byte{0}) break;
        const Frame frame = readFrame(bytes, version);
        at += bytes.size();
        if (frame.size > end - std::min(end, at)) break;
        if (frame.id[0] == 'T' || frame.id.starts_with("COM"))
            takeFrame(frame.id, contentsOf(*tag, at, frame, version), texts);
        else if (frame.id == "CHAP")
            takeChapter(contentsOf(*tag, at, frame, version), version, texts);
        at += frame.size;
    }
}

// ---- APE and ID3v1 tags

/// Where an APE tag at `end` begins and where its items do; both are `end` when there is none.
struct ApePlace {
    u64 start, items;
    u32 count = 0;
};
ApePlace findApe(ByteSource& source, u64 end) {
    const ApePlace none{end, end};
    if (end < kApeFooterBytes) return none;
    const Bytes footer = readSome(source, end - kApeFooterBytes, kApeFooterBytes);
    ByteCursor in(footer);
    if (textOf(in.bytes(8)) != "APETAGEX") return none;
    in.skip(4);
    const u64 size = in.u32le(); // of the items and this footer
    const u32 count = in.u32le();
    const u32 flags = in.u32le();
    if (!in.ok() || size < kApeFooterBytes || size > end) return none;
    const u64 items = end - size;
    const bool header = (flags & kApeHasHeader) != 0 && items >= kApeFooterBytes;
    return {header ? items - kApeFooterBytes : items, items, count};
}

void takeApe(ByteSource& source, const ApePlace& place, u64 end, TextTaker& texts) {
    constexpr std::size_t kMostNameBytes = 255;
    u64 at = place.items;
    u32 left = std::min<u32>(place.count, kMostFrames);
    for (; left > 0 && at < end - std::min<u64>(end, kApeFooterBytes); --left) {
        const Bytes head = readSome(source, at, 8 + kMostNameBytes + 1);
        ByteCursor in(head);
        const u64 size = in.u32le();
        const u32 flags = in.u32le();
        const std::string_view name = in.text(in.left());
        if (!in.ok() || name.size() > kMostNameBytes) return;
        at += 8 + name.size() + 1;
        if ((flags & 6) == 0) {
            const Bytes text =
                readSome(source, at, static_cast<std::size_t>(std::min<u64>(size, kMostTextBytes)));
            texts.take(name, textOf(text).substr(0, textOf(text).find('\0')));
        }
        at += size;
    }
}

bool hasId3v1(ByteSource& source) {
    return source.size() >= kId3v1Bytes && textOf(readSome(source, source.size() - kId3v1Bytes, 3)) == "TAG";
}

void takeId3v1(ByteSource& source, TextTaker& texts) {
    const Bytes bytes = readSome(source, source.size() - kId3v1Bytes, kId3v1Bytes);
    constexpr std::pair<std::string_view, std::size_t> kFields[] = {
        {"TITLE", 30}, {"ARTIST", 30}, {"ALBUM", 30}, {"", 4}, {"COMMENT", 30}};
    ByteCursor in(bytes);
    in.skip(3);
    for (const auto& [name, size] : kFields) {
        std::string_view text = in.text(size);
        text = text.substr(0, text.find_last_not_of(' ') + 1);
        if (!name.empty()) texts.take(name, AnsiToUtf8(text));
    }
}

/// Calls `work(start)` for the ID3v2 tags at the beginning, and tells where they end.
template <class Work>
u64 forEachId3v2(ByteSource& source, Work work) {
    u64 at = 0;
    for (int left = kMostTags; left > 0; --left) {
        const u64 size = id3v2Bytes(readSome(source, at, kHeaderBytes));
        if (size == 0) break;
        work(at);
        at += size;
    }
    return std::min(at, source.size());
}

// ---- Writing

void writeSyncsafe(ByteWriter& out, u32 value) {
    for (int shift = 21; shift >= 0; shift -= 7) out.u8le(static_cast<u8>(value >> shift & 0x7F));
}

/// Behind the encoding: `prefix`, then the text. UTF-16 only where ASCII doesn't do.
void writeFrame(ByteWriter& out, std::string_view id, std::string_view language, std::string_view topic,
                bool hasTopic, std::string_view text) {
    const bool ascii = std::ranges::all_of(text, [](char c) { return static_cast<u8>(c) < 0x80; });
    ByteWriter contents;
    contents.u8le(ascii ? kLatin1 : kUtf16).text(language);
    const auto write = [&](std::string_view part) {
        if (ascii) {
            contents.text(part);
            return;
        }
        contents.u16le(0xFEFF);
        for (const char16_t unit : Utf8ToWide(part)) contents.u16le(unit);
    };
    if (hasTopic) {
        write(topic);
        contents.fill(ascii ? 1 : 2);
    }
    write(text);
    out.text(id).u32be(static_cast<u32>(contents.size())).u16be(0).bytes(contents.view());
}

} // namespace

u64 id3v2Bytes(ByteSpan start) {
    if (start.size() < kHeaderBytes || !textOf(start).starts_with("ID3")) return 0;
    const u32 size = loadInteger<u32>(start.subspan(6).first<4>(), std::endian::big);
    const u8 version = std::to_integer<u8>(start[3]), flags = std::to_integer<u8>(start[5]);
    if (version == 0xFF || !isSyncsafe(size)) return 0;
    const bool footer = version == 4 && (flags & 0x10) != 0;
    return u64{syncsafe(size)} + kHeaderBytes + (footer ? kHeaderBytes : 0);
}

PackedPlace betweenTags(ByteSource& source) {
    const u64 start = forEachId3v2(source, [](u64) {});
    u64 end = source.size() - (hasId3v1(source) ? kId3v1Bytes : 0);
    end = findApe(source, end).start;
    return {start, end - std::min(start, end)};
}

void takeTags(ByteSource& source, TextTaker& texts) {
    forEachId3v2(source, [&](u64 start) { takeId3v2(source, start, texts); });
    const bool hasV1 = hasId3v1(source);
    const u64 end = source.size() - (hasV1 ? kId3v1Bytes : 0);
    takeApe(source, findApe(source, end), end, texts);
    if (hasV1) takeId3v1(source, texts);
}

Bytes id3v2Tag(const Wave& wave) {
    ByteWriter frames;
    for (const TextRow& row : textRows()) {
        const std::string_view text = row.get(wave);
        if (text.empty()) continue;
        const auto* known = std::ranges::find(kFrames, row.name, &FrameRow::name);
        if (known != std::end(kFrames))
            writeFrame(frames, known->id, {}, {}, false, text);
        else if (row.name == "COMMENT")
            writeFrame(frames, "COMM", "eng", {}, true, text);
        else
            writeFrame(frames, "TXXX", {}, row.name, true, text);
    }
    if (frames.size() == 0) return {};
    ByteWriter tag;
    tag.text("ID3").u8le(3).u8le(0).u8le(0);
    writeSyncsafe(tag, static_cast<u32>(frames.size()));
    return tag.bytes(frames.view()).take();
}

Bytes apeTag(const Wave& wave) {
    ByteWriter items;
    u32 count = 0;
    for (const TextRow& row : textRows()) {
        const std::string_view text = row.get(wave);
        if (text.empty()) continue;
        std::string name = toLower(row.name);
        name[0] = row.name[0];
        items.u32le(static_cast<u32>(text.size())).u32le(0).text(name).u8le(0).text(text);
        ++count;
    }
    if (count == 0) return {};
    ByteWriter tag;
    const auto writeEnd = [&](u32 flags) {
        tag.text("APETAGEX").u32le(2000).u32le(static_cast<u32>(items.size() + kApeFooterBytes));
        tag.u32le(count).u32le(kApeHasHeader | flags).fill(8);
    };
    writeEnd(kApeIsHeader);
    tag.bytes(items.view());
    writeEnd(0);
    return tag.take();
}

} // namespace kv
