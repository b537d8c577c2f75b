#include "model/articulation_preset.h"

#include <algorithm>
#include <array>

#include "base/byte_sink.h"
#include "base/run_context.h"
#include "model/articulation_blocks.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "Articulation preset";
constexpr u64 kFormHeader = 12, kChunkHeader = 8; // of a form or list: its name, size and type
constexpr int kDeepest = 8;
constexpr u64 kLongestChunk = 1 << 20; // thousands of times what is there to be said

Bytes readBytes(ByteSource& file, u64 at, u64 count) {
    Bytes bytes(static_cast<std::size_t>(count));
    bytes.resize(file.readAt(at, bytes));
    return bytes;
}

/// Reads the articulation chunks between two places, in lists too. True when there was one.
bool readChunks(ByteSource& file, u64 at, u64 end, int depth, Articulation& record) {
    bool found = false;
    while (at < end && end - at >= kChunkHeader) {
        const Bytes header = readBytes(file, at, kChunkHeader);
        ByteCursor in(header);
        const std::string_view name = textOf(in.bytes(4));
        const u64 stated = in.u32le();
        if (!in.ok()) break;
        const u64 size = std::min(stated, end - at - kChunkHeader);
        if (name == "art1" || name == "art2")
            found |= readArticulationBlocks(readBytes(file, at + kChunkHeader, std::min(size, kLongestChunk)),
                                            record);
        else if (name == "LIST" && depth < kDeepest)
            found |= readChunks(file, at + kFormHeader, at + kChunkHeader + size, depth + 1, record);
        at += kChunkHeader + size + (size & 1);
    }
    return found;
}

} // namespace

bool loadArticulationPreset(Articulation& record, const std::filesystem::path& path) {
    const auto file = openFileSource(path);
    return file ? loadArticulationPreset(record, *file) : Fail(kContext, "Could not open file");
}

bool loadArticulationPreset(Articulation& record, ByteSource& file) {
    const Bytes header = readBytes(file, 0, std::min(file.size(), kFormHeader));
    ByteCursor in(header);
    const bool riff = textOf(in.bytes(4)) == "RIFF";
    const u64 end = std::min<u64>(u64{in.u32le()} + kChunkHeader, file.size());
    if (!riff || textOf(in.bytes(4)) != "DLSA") return Fail(kContext, "The file is no articulation preset");
    Articulation read;
    articulationInit(read, true);
    if (!readChunks(file, kFormHeader, end, 0, read)) return Fail(kContext, "The file holds no articulation");
    record = read;
    return true;
}

bool saveArticulationPreset(const Articulation& record, const std::filesystem::path& path) {
    ByteWriter bytes;
    bytes.text("RIFF").u32le(4 + articulationBlocksSize(record, nullptr, kAllArticulationBlocks));
    bytes.text("DLSA");
    writeArticulationBlocks(bytes, record, nullptr, kAllArticulationBlocks);
    const auto file = SaveFile::create(path);
    if (!file) return Fail(kContext, "Could not create file");
    return (file->write(bytes.view()) && file->commit()) || Fail(kContext, "Writing to file failed");
}

} // namespace kv
