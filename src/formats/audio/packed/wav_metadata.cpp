#include "formats/audio/packed/wav_metadata.h"

#include <algorithm>

#include "formats/audio/wav_chunks.h"
#include "formats/audio/wav_fmt.h"
#include "formats/audio/wav_writer.h"
#include "formats/framework/chunks.h"
#include "model/sample_blocks.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"

namespace kv {
namespace {

constexpr std::size_t kHeaderBytes = 8;
constexpr std::size_t kFormBytes = 12;

bool isForm(u32 id) {
    return id == fourcc("RIFF") || id == fourcc("RF64") || id == fourcc("BW64");
}

/// A chunk's id could begin with it.
bool isLetter(std::byte b) {
    return b > std::byte{0x20} && b < std::byte{0x7F};
}

/// Chunks that say how the samples stand, which the packed form knows better.
bool isOfSamples(u32 id) {
    constexpr u32 kIds[] = {fourcc("ds64"), fourcc("fmt "), fourcc("fact"), fourcc("data")};
    return std::ranges::find(kIds, id) != std::end(kIds);
}

/// A WAV file of one sample with all chunks but those of the samples.
Bytes stubFile(ByteSpan chunks) {
    ByteWriter out;
    out.text("RIFF").u32le(0).text("WAVE");
    out.text("fmt ").u32le(16).u16le(kWavPcm).u16le(1).u32le(44100).u32le(44100).u16le(1).u16le(8);
    out.text("data").u32le(1).u8le(0x80).u8le(0);
    ByteCursor in(chunks);
    while (in.left() >= kHeaderBytes) {
        const u32 id = in.u32le(), stated = in.u32le();
        if (isForm(id)) {
            in.skip(4);
            continue;
        }
        const bool odd = stated % 2 != 0;
        if (id == fourcc("data")) { // its padding may stand here, or not
            if (odd && in.left() > 0 && !isLetter(chunks[static_cast<std::size_t>(in.offset())])) in.skip(1);
            continue;
        }
        const ByteSpan contents = in.bytes(std::min<std::size_t>(stated, in.left()));
        if (odd && in.left() > 0) in.skip(1);
        if (isOfSamples(id)) continue;
        out.u32le(id).u32le(static_cast<u32>(contents.size())).bytes(contents).pad(2);
    }
    out.patchU32le(4, static_cast<u32>(out.size() - kHeaderBytes));
    return out.take();
}

} // namespace

bool wavMetadata(const Wave& wave, u32 frames, u32 formatWord, WavMetadata& metadata) {
    WavParts parts;
    if (!wavParts(wave, frames, formatWord, 0, parts)) return false;
    metadata.head = std::move(parts.head);
    const auto padding = static_cast<std::ptrdiff_t>(parts.dataBytes % 2);
    metadata.tail.assign(parts.tail.begin() + padding, parts.tail.end());
    return true;
}

bool needsWavMetadata(const Wave& wave) {
    const SampleParams& params = wave.params;
    return params.looped() || params.rootKey != 60 || params.fineTune != 0 || !wave.cuePoints.empty();
}

void takeWavChunks(ByteSpan chunks, Wave& wave) {
    FileContext file;
    file.source = std::make_shared<MemorySource>(stubFile(chunks));
    Wave* scratch = store().Create<Wave>(kNextFreeNumber, &genericReader);
    const std::string unnamed = scratch->name().str();
    std::string name;
    if (wav_ImpChunks(file, 0, file.size(), *scratch)) {
        wave.params = scratch->params;
        wave.cuePoints = scratch->cuePoints;
        wave.artist = scratch->artist;
        wave.album = scratch->album;
        wave.engineer = scratch->engineer;
        wave.copyright = scratch->copyright;
        wave.comments = scratch->comments;
        if (scratch->name().str() != unnamed) name = scratch->name().str();
    }
    store().Delete(scratch);
    if (!name.empty()) wave.SetName(name);
}

std::vector<Bytes> splitWav(const WavMetadata& metadata) {
    std::vector<Bytes> chunks;
    const auto add = [&](ByteSpan bytes) { chunks.emplace_back(bytes.begin(), bytes.end()); };
    const auto addChunks = [&](ByteSpan bytes) {
        while (bytes.size() >= kHeaderBytes) {
            const u64 size = loadInteger<u32>(bytes.subspan(4).first<4>(), std::endian::little);
            const auto whole = static_cast<std::size_t>(
                std::min<u64>(kHeaderBytes + size + size % 2, bytes.size())); // that of the samples is cut
            add(bytes.first(whole));
            bytes = bytes.subspan(whole);
        }
    };
    const ByteSpan head = metadata.head;
    add(head.first(kFormBytes));
    addChunks(head.subspan(kFormBytes));
    addChunks(metadata.tail);
    return chunks;
}

} // namespace kv
