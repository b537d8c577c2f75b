#include "formats/audio/classic/mac_forks.h"

#include <algorithm>

#include "base/byte_sink.h"

namespace kv {
namespace {

constexpr std::size_t kMostForkBytes = 1 << 20; // those of sounds have a few hundred
constexpr u32 kAppleDouble = 0x00051607, kAppleSingle = 0x00051600;
constexpr u32 kResourceEntry = 2;
constexpr std::size_t kMostStrings = 4096;
constexpr std::size_t kForkHeaderBytes = 256, kMapHeaderBytes = 28, kReferenceBytes = 12;
constexpr std::string_view kStringType = "STR ";

/// CRC-16 of the CCITT polynomial, highest bit first, begun with 0.
u16 crcOf(ByteSpan bytes) {
    u32 crc = 0;
    for (const std::byte byte : bytes) {
        crc ^= std::to_integer<u32>(byte) << 8;
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 0x8000) != 0 ? crc << 1 ^ 0x1021 : crc << 1;
    }
    return static_cast<u16>(crc);
}

Bytes readUpTo(ByteSource& source, u64 start, u64 size) {
    Bytes bytes(static_cast<std::size_t>(std::min<u64>(size, kMostForkBytes)));
    bytes.resize(source.readAt(start, bytes));
    return bytes;
}

std::string pascalAt(ByteSpan bytes, u64 at) {
    if (at >= bytes.size()) return {};
    ByteCursor in(bytes.subspan(static_cast<std::size_t>(at)));
    return std::string(textOf(in.bytes(in.u8le())));
}

std::filesystem::path besideName(const std::filesystem::path& path) {
    return path.parent_path() / ("._" + path.filename().string());
}

u64 filledUp(u64 bytes) {
    return (bytes + kMacBinaryBlock - 1) / kMacBinaryBlock * kMacBinaryBlock;
}

} // namespace

std::optional<MacBinary> readMacBinary(ByteSource& source) {
    Bytes head(kMacBinaryBlock);
    if (source.readAt(0, head) != head.size()) return {};
    ByteCursor in(head);
    const u8 version = in.u8le();
    const u8 nameBytes = in.u8le();
    MacBinary found;
    found.name = std::string(textOf(in.bytes(63)).substr(0, nameBytes));
    in.skip(9);
    const u8 zero = in.u8le();
    in.skip(7);
    const u8 alsoZero = in.u8le();
    found.dataBytes = in.u32be();
    found.resourceBytes = in.u32be();
    if (version != 0 || nameBytes < 1 || nameBytes > 63 || zero != 0 || alsoZero != 0) return {};
    found.dataStart = kMacBinaryBlock;
    found.resourceStart = kMacBinaryBlock + filledUp(found.dataBytes);
    return found;
}

Bytes macBinaryHeader(std::string_view name, std::string_view type, std::string_view creator, u32 dataBytes,
                      u32 resourceBytes) {
    name = name.substr(0, 63);
    ByteWriter out;
    out.u8le(0).u8le(static_cast<u8>(name.size())).text(name).fill(63 - name.size());
    out.text(type).text(creator).fill(83 - 73).u32be(dataBytes).u32be(resourceBytes);
    out.fill(122 - out.size()).u8le(129).u8le(129);
    const u16 crc = crcOf(out.view());
    out.u16be(crc).u16be(0);
    return out.take();
}

Bytes resourceForkIn(ByteSource& source) {
    Bytes head(26);
    head.resize(source.readAt(0, head));
    ByteCursor in(head);
    const u32 magic = in.u32be();
    in.skip(20);
    const u32 entries = in.u16be();
    if (magic != kAppleDouble && magic != kAppleSingle) return readUpTo(source, 0, source.size());
    const Bytes table = readUpTo(source, head.size(), u64{entries} * 12);
    ByteCursor rows(table);
    while (rows.left() >= 12) {
        const u32 id = rows.u32be();
        const u32 start = rows.u32be();
        const u32 size = rows.u32be();
        if (id == kResourceEntry) return readUpTo(source, start, size);
    }
    return {};
}

Bytes findResourceFork(const std::filesystem::path& path) {
    const std::filesystem::path folder = path.parent_path(), name = path.filename();
    const std::filesystem::path candidates[] = {
        besideName(path), folder / ".AppleDouble" / name,     path / "..namedfork" / "rsrc",
        path / "rsrc",    folder / (name.string() + ".rsrc"),
    };
    for (const std::filesystem::path& candidate : candidates) {
        if (const auto source = openFileSource(candidate)) {
            if (Bytes fork = resourceForkIn(*source); !readStrings(fork).empty()) return fork;
        }
    }
    return {};
}

bool writeForkBeside(const std::filesystem::path& path, std::string_view type, std::string_view creator,
                     ByteSpan fork) {
    constexpr u32 kVersion = 0x00020000, kFinderEntry = 9, kFinderBytes = 32;
    constexpr u32 kFinderStart = 26 + 2 * 12, kForkStart = kFinderStart + kFinderBytes;
    ByteWriter out;
    out.u32be(kAppleDouble).u32be(kVersion).fill(16).u16be(2);
    out.u32be(kFinderEntry).u32be(kFinderStart).u32be(kFinderBytes);
    out.u32be(kResourceEntry).u32be(kForkStart).u32be(static_cast<u32>(fork.size()));
    out.text(type).text(creator).fill(kFinderBytes - 8).bytes(fork);
    const std::unique_ptr<SaveFile> file = SaveFile::create(besideName(path));
    return file && file->write(out.view()) && file->commit();
}

std::vector<StringResource> readStrings(ByteSpan fork) {
    ByteCursor head(fork);
    const u32 dataStart = head.u32be();
    const u32 mapStart = head.u32be();
    if (!head.ok() || mapStart > fork.size() || dataStart > fork.size()) return {};
    const ByteSpan map = fork.subspan(mapStart), data = fork.subspan(dataStart);
    ByteCursor in(map);
    in.skip(24);
    const u16 typesAt = in.u16be();
    const u16 namesAt = in.u16be();
    if (!in.ok() || typesAt > map.size()) return {};

    std::vector<StringResource> found;
    const ByteSpan types = map.subspan(typesAt);
    ByteCursor typeIn(types);
    // Counts are stored as one less.
    for (u32 typesLeft = typeIn.u16be() + 1U; typesLeft > 0 && typeIn.left() >= 8; --typesLeft) {
        const std::string_view type = textOf(typeIn.bytes(4));
        const u32 count = typeIn.u16be() + 1U;
        const u16 referencesAt = typeIn.u16be();
        if (type != kStringType || referencesAt > types.size()) continue;
        ByteCursor references(types.subspan(referencesAt));
        for (u32 left = count; left > 0 && references.left() >= kReferenceBytes; --left) {
            StringResource resource;
            resource.id = references.s16be();
            const u16 nameAt = references.u16be();
            const u32 dataAt = references.u32be() & 0xFFFFFF; // the top byte are attributes
            references.skip(4);
            if (nameAt != 0xFFFF) resource.name = pascalAt(map, u64{namesAt} + nameAt);
            resource.text = pascalAt(data, u64{dataAt} + 4);
            if (found.size() < kMostStrings) found.push_back(std::move(resource));
        }
    }
    return found;
}

Bytes stringsFork(std::span<const StringResource> strings) {
    ByteWriter data, references, names;
    const auto pascal = [](ByteWriter& out, std::string_view text) {
        out.u8le(static_cast<u8>(text.size())).text(text);
    };
    for (const StringResource& resource : strings) {
        references.u16be(static_cast<u16>(resource.id)).u16be(static_cast<u16>(names.size()));
        references.u32be(static_cast<u32>(data.size())).u32be(0);
        pascal(names, resource.name);
        data.u32be(static_cast<u32>(resource.text.size() + 1));
        pascal(data, resource.text);
    }
    constexpr u16 kOneTypeBytes = 10;
    ByteWriter map;
    map.fill(24).u16be(kMapHeaderBytes);
    map.u16be(static_cast<u16>(kMapHeaderBytes + kOneTypeBytes + references.size()));
    map.u16be(0).text(kStringType).u16be(static_cast<u16>(strings.size() - 1)).u16be(kOneTypeBytes);
    map.bytes(references.view()).bytes(names.view());

    ByteWriter fork;
    fork.u32be(kForkHeaderBytes).u32be(static_cast<u32>(kForkHeaderBytes + data.size()));
    fork.u32be(static_cast<u32>(data.size())).u32be(static_cast<u32>(map.size()));
    fork.fill(kForkHeaderBytes - fork.size()).bytes(data.view()).bytes(map.view());
    return fork.take();
}

} // namespace kv
