// Builders of small files of the chunked formats.
#pragma once

#include "formats/audio/chunked/aiff_fields.h"
#include "formats/format_test.h"

namespace kv::test {

inline void addBigChunk(ByteWriter& out, std::string_view id, ByteSpan contents) {
    out.text(id).u32be(static_cast<u32>(contents.size())).bytes(contents).pad(2);
}

/// A COMM chunk's contents; a compression type makes it one of AIFF-C.
inline Bytes comm(u16 channels, u32 frames, u16 bits, u32 rate = 44100, std::string_view compression = {}) {
    ByteWriter out;
    out.u16be(channels).u32be(frames).u16be(bits);
    writeExtended(out, rate);
    if (!compression.empty()) out.text(compression).fill(2);
    return out.take();
}

/// A SSND chunk's contents.
inline Bytes ssnd(ByteSpan samples, u32 offset = 0) {
    ByteWriter out;
    out.u32be(offset).u32be(0).fill(offset, 0x77).bytes(samples);
    return out.take();
}

inline Bytes aiff(ByteSpan chunks, std::string_view type = "AIFF") {
    ByteWriter out;
    out.text("FORM").u32be(static_cast<u32>(chunks.size() + 4)).text(type).bytes(chunks);
    return out.take();
}

inline Bytes bigEndian16(std::span<const i16> samples) {
    ByteWriter out;
    for (const i16 s : samples) out.u16be(static_cast<u16>(s));
    return out.take();
}

/// The first samples of a wave, or fewer.
inline std::vector<i16> firstSamples(Wave& wave, std::size_t count = 8) {
    if (!wave.LoadData()) return {};
    const auto data = GetInt16Data(wave);
    return {data.begin(), data.begin() + static_cast<std::ptrdiff_t>(std::min(count, data.size()))};
}

} // namespace kv::test
