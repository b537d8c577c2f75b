#include "formats/codecs/packing_sink.h"

#include <algorithm>
#include <bit>

#include "model/sample_blocks.h"
#include "samples/data_format.h"

namespace kv {

static_assert(std::endian::native == std::endian::little, "stored floats are taken as they stand");

PackingSink::PackingSink(u32 word, u32 channels)
    : word_((word & kCodeMask) | (channels == 2 ? kStereoBit : kMonoBit)), channels_(channels) {
    u32 bits = 0;
    FormatCodeInfo(word & kCodeMask, nullptr, &bits);
    frameBytes_ = std::size_t{bits / 8} * channels;
}

bool PackingSink::write(ByteSpan bytes) {
    position_ += bytes.size();
    if (!rest_.empty()) {
        const std::size_t missing = std::min(frameBytes_ - rest_.size(), bytes.size());
        rest_.insert(rest_.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(missing));
        bytes = bytes.subspan(missing);
        if (rest_.size() < frameBytes_) return true;
        if (!pack(rest_)) return false;
        rest_.clear();
    }
    const std::size_t whole = bytes.size() / frameBytes_ * frameBytes_;
    rest_.assign(bytes.begin() + static_cast<std::ptrdiff_t>(whole), bytes.end());
    return whole == 0 || pack(bytes.first(whole));
}

bool packSamples(SampleBlocks& blocks, PackingSink& encoder) {
    return (blocks.frames() == 0 || writeSamples(blocks, encoder.word(), encoder)) && encoder.finish();
}

namespace {

template <u32 kBytes>
void widen(ByteSpan stored, std::span<i32> to) {
    constexpr int kShift = 32 - 8 * static_cast<int>(kBytes);
    const std::byte* at = stored.data();
    for (i32& sample : to) {
        u32 value = 0;
        for (u32 i = 0; i < kBytes; ++i) value |= std::to_integer<u32>(at[i]) << 8 * i;
        sample = static_cast<i32>(value << kShift) >> kShift;
        at += kBytes;
    }
}

} // namespace

void widenSamples(ByteSpan stored, u32 bytesPerSample, std::span<i32> to) {
    constexpr void (*kWiden[])(ByteSpan, std::span<i32>) = {widen<1>, widen<2>, widen<3>, widen<4>};
    kWiden[bytesPerSample - 1](stored, to);
}

std::span<const f32> floatsOf(ByteSpan stored, std::vector<f32>& buffer) {
    buffer.resize(stored.size() / sizeof(f32));
    std::memcpy(buffer.data(), stored.data(), buffer.size() * sizeof(f32));
    return buffer;
}

PackedOutput::PackedOutput(ByteSink& sink)
    : sink_(sink), start_(sink.position()), canSeek_(sink.patch(start_, {})) {}

bool PackedOutput::write(const void* bytes, std::size_t count) noexcept {
    try {
        const ByteSpan all(static_cast<const std::byte*>(bytes), count);
        const std::size_t within = static_cast<std::size_t>(std::min<u64>(end_ - at_, count));
        if (within > 0 && !sink_.patch(start_ + at_, all.first(within))) failed_ = true;
        if (within < count && !sink_.write(all.subspan(within))) failed_ = true;
        at_ += count;
        end_ = std::max(end_, at_);
    } catch (...) { // no memory for a sink in memory
        failed_ = true;
    }
    return !failed_;
}

bool PackedOutput::seek(u64 offset) noexcept {
    if (!canSeek_ || offset > end_) return false;
    at_ = offset;
    return true;
}

} // namespace kv
