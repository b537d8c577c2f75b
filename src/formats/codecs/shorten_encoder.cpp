#include <algorithm>
#include <bit>

#include "formats/codecs/shorten.h"

namespace kv {
namespace {

enum Command : u32 { kDiff0 = 0, kQuit = 4, kBlockSize = 5, kVerbatim = 9 };
constexpr u32 kPolynomials = 4;
constexpr std::size_t kBefore = 3;

/// Small numbers of either sign as small ones without.
constexpr u32 folded(i32 value) {
    return value < 0 ? ~static_cast<u32>(value) << 1 | 1 : static_cast<u32>(value) << 1;
}

/// What a sample differs by from the polynomial of so many samples before it.
i32 difference(const i32* at, u32 order) {
    switch (order) {
        case 0:
            return at[0];
        case 1:
            return at[0] - at[-1];
        case 2:
            return at[0] - 2 * at[-1] + at[-2];
        default:
            return at[0] - 3 * (at[-1] - at[-2]) - at[-3];
    }
}

/// Bits of numbers as Rice codes with so many low bits.
u64 codeBits(std::span<const u32> numbers, u32 lowBits) {
    u64 sum = u64{numbers.size()} * (lowBits + 1);
    for (const u32 n : numbers) sum += n >> lowBits;
    return sum;
}

/// The best count of low bits, and what it costs.
struct RiceChoice {
    u32 lowBits = 0;
    u64 bits = 0;
};
RiceChoice chooseRice(std::span<const u32> numbers) {
    RiceChoice best{1, codeBits(numbers, 1)}; // one bit is the least that a stream can name
    for (u32 lowBits = 2; lowBits < 20; ++lowBits) {
        const u64 bits = codeBits(numbers, lowBits);
        if (bits > best.bits) break; // the cost has one minimum
        best = {lowBits, bits};
    }
    return best;
}

/// What stands for a mu-law byte: its rank among all, 0 for the zero.
i32 rankOf(i32 byte) {
    return byte < 0x80 ? byte - 128 : 255 - byte;
}

} // namespace

ShortenEncoder::ShortenEncoder(ShortenType type, u32 channels)
    : type_(type), channels_(channels), before_(channels) {
    for (const char c : {'a', 'j', 'k', 'g', '\2'}) out_.push_back(static_cast<std::byte>(c));
    number(static_cast<u32>(type));
    number(channels);
    number(kBlockFrames);
    number(0); // no linear prediction
    number(0); // no means
    number(0); // nothing to skip
}

void ShortenEncoder::bits(u32 value, u32 count) {
    pending_ = pending_ << count | value;
    pendingBits_ += count;
    for (; pendingBits_ >= 8; pendingBits_ -= 8)
        out_.push_back(static_cast<std::byte>(pending_ >> (pendingBits_ - 8)));
}

void ShortenEncoder::code(u32 value, u32 lowBits) {
    for (u32 zeros = value >> lowBits; zeros > 0;) {
        const u32 now = std::min(zeros, 32U);
        bits(0, now);
        zeros -= now;
    }
    bits(1, 1);
    bits(value & ((1U << lowBits) - 1), lowBits);
}

void ShortenEncoder::number(u32 value) {
    const u32 width = static_cast<u32>(std::bit_width(value));
    code(width, 2);
    code(value, width);
}

void ShortenEncoder::foreign(ByteSpan bytes) {
    if (bytes.empty()) return;
    code(kVerbatim, 2);
    code(static_cast<u32>(bytes.size()), 5);
    for (const std::byte b : bytes) code(std::to_integer<u32>(b), 8);
}

void ShortenEncoder::samples(std::span<const i32> interleaved) {
    const std::size_t frames = interleaved.size() / channels_;
    for (std::size_t done = 0; done < frames;) {
        const std::size_t now = std::min(kBlockFrames, frames - done);
        if (now != blockFrames_) {
            code(kBlockSize, 2);
            number(static_cast<u32>(now));
            blockFrames_ = now;
        }
        for (u32 c = 0; c < channels_; ++c) {
            run_.assign(before_[c].begin(), before_[c].end());
            for (std::size_t i = 0; i < now; ++i) {
                const i32 sample = interleaved[(done + i) * channels_ + c];
                run_.push_back(type_ == ShortenType::MuLawAllRanks ? rankOf(sample) : sample);
            }
            block();
            std::copy(run_.end() - kBefore, run_.end(), before_[c].begin());
        }
        done += now;
    }
}

/// Packs the block in `run_` by the polynomial that takes the fewest bits.
void ShortenEncoder::block() {
    const i32 rest = type_ == ShortenType::Unsigned8 ? 0x80 : 0;
    std::array<u32, kBlockFrames> found{}, chosen{};
    const std::size_t frames = run_.size() - kBefore;
    RiceChoice best;
    u32 bestOrder = 0;
    for (u32 order = 0; order < kPolynomials; ++order) {
        for (std::size_t i = 0; i < frames; ++i)
            found[i] = folded(difference(run_.data() + kBefore + i, order) - (order == 0 ? rest : 0));
        const RiceChoice choice = chooseRice(std::span(found).first(frames));
        if (order > 0 && choice.bits >= best.bits) continue;
        best = choice;
        bestOrder = order;
        chosen = found;
    }
    code(kDiff0 + bestOrder, 2);
    code(best.lowBits - 1, 3);
    for (const u32 n : std::span(chosen).first(frames)) code(n, best.lowBits);
}

void ShortenEncoder::finish() {
    code(kQuit, 2);
    while ((written_ + out_.size() - kHeadBytes) % 4 != 0 || pendingBits_ > 0) bits(0, 1);
}

Bytes ShortenEncoder::take() {
    written_ += out_.size();
    return std::exchange(out_, {});
}

} // namespace kv
