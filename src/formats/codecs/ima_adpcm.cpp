#include "formats/codecs/ima_adpcm.h"

#include <algorithm>
#include <array>

#include "formats/codecs/code_search.h"

namespace kv {
namespace {

constexpr i32 kMaxIndex = 88;
constexpr std::array<i32, kMaxIndex + 1> kSteps{
    7,    8,     9,     10,    11,    12,    13,    14,    16,    17,    19,    21,    23,    25,   28,
    31,   34,    37,    41,    45,    50,    55,    60,    66,    73,    80,    88,    97,    107,  118,
    130,  143,   157,   173,   190,   209,   230,   253,   279,   307,   337,   371,   408,   449,  494,
    544,  598,   658,   724,   796,   876,   963,   1060,  1166,  1282,  1411,  1552,  1707,  1878, 2066,
    2272, 2499,  2749,  3024,  3327,  3660,  4026,  4428,  4871,  5358,  5894,  6484,  7132,  7845, 8630,
    9493, 10442, 11487, 12635, 13899, 15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};

/// By the bits below the sign; a row for each width from 2 bits on.
constexpr i32 kAdjust[3][8] = {{-1, 2}, {-1, -1, 1, 2}, {-1, -1, -1, -1, 2, 4, 6, 8}};

/// What a code of `bits` bits adds: a part of the step for each bit, the rest of which is cut off.
constexpr i32 difference(i32 step, u32 code, u32 bits) {
    i32 sum = step >> (bits - 1);
    for (u32 bit = 0; bit < bits - 1; ++bit) {
        if ((code >> bit & 1) != 0) sum += step >> (bits - 2 - bit);
    }
    return (code >> (bits - 1)) != 0 ? -sum : sum;
}

constexpr u32 kRow = 16; // entries of a step
constexpr u32 kNextBits = 12;
constexpr u32 kNextMask = (1U << kNextBits) - 1;

/// For step and code in one word: what the code adds, and below it the place of the next step's row. Then a
/// code takes one look-up.
constexpr auto makeMoves(u32 bits) {
    std::array<i32, (kMaxIndex + 1) * kRow> moves{};
    for (i32 index = 0; index <= kMaxIndex; ++index) {
        for (u32 code = 0; code < 1U << bits; ++code) {
            const i32 adjust = kAdjust[bits - 2][code & ((1U << (bits - 1)) - 1)];
            const i32 next = std::clamp(index + adjust, 0, kMaxIndex) * static_cast<i32>(kRow);
            moves[static_cast<u32>(index) * kRow + code] =
                difference(kSteps[static_cast<u32>(index)], code, bits) * (1 << kNextBits) + next;
        }
    }
    return moves;
}
constexpr auto kMoves2 = makeMoves(2), kMoves3 = makeMoves(3), kMoves4 = makeMoves(4);

inline i32 limit16(i32 value) {
    return std::clamp(value, -32768, 32767);
}

/// One channel of one block under way.
struct Lane {
    const std::byte* from;
    i16* to;
    i32 predictor;
    u32 row; ///< of the step, in the table of moves

    void step(const i32* moves, u32 code) {
        const i32 move = moves[row + code];
        row = static_cast<u32>(move) & kNextMask;
        predictor = limit16(predictor + (move >> kNextBits));
    }
};

/// Decodes groups of 8 codes in 4 bytes of several lanes side by side: each waits for its own last sample
/// only, so that the processor works on all of them.
template <std::size_t Lanes>
void decodeGroups(Lane* lanes, std::size_t groups, std::size_t groupStride, std::size_t stride) {
    Lane lane[Lanes];
    std::copy_n(lanes, Lanes, lane);
    for (std::size_t group = 0; group < groups; ++group) {
        u32 codes[Lanes];
        for (std::size_t l = 0; l < Lanes; ++l) {
            codes[l] = loadInteger<u32>(std::span<const std::byte, 4>(lane[l].from, 4), std::endian::little);
            lane[l].from += groupStride;
        }
        for (u32 i = 0; i < 8; ++i) {
            for (std::size_t l = 0; l < Lanes; ++l) {
                lane[l].step(kMoves4.data(), codes[l] & 15);
                codes[l] >>= 4;
                *lane[l].to = static_cast<i16>(lane[l].predictor);
                lane[l].to += stride;
            }
        }
    }
    std::copy_n(lane, Lanes, lanes);
}

/// The bytes of one channel of a block, in order.
class ChannelBytes {
public:
    ChannelBytes(ByteSpan src, bool alternates) : src_(src), alternates_(alternates) {}
    bool next(u32& byte) {
        if (at_ >= src_.size()) return false;
        byte = std::to_integer<u32>(src_[at_++]);
        if (alternates_ && at_ % 4 == 0) at_ += 4;
        return true;
    }

private:
    ByteSpan src_;
    bool alternates_;
    std::size_t at_ = 0;
};

constexpr std::size_t kHeadBytes = 4; // of a channel

} // namespace

void ima_Decode(std::span<i16> dst, ByteSpan src, std::size_t count, u32 bits, u32 channelsLessOne,
                bool isStereoBlock, i32& predictor, i32& index) {
    if (bits < 2 || bits > 4) return;
    const std::size_t stride = std::size_t{channelsLessOne} + 1;
    count = std::min(count, (dst.size() + channelsLessOne) / stride);
    const i32* moves = (bits == 2 ? kMoves2 : bits == 3 ? kMoves3 : kMoves4).data();
    Lane lane{src.data(), dst.data(), limit16(predictor),
              static_cast<u32>(std::clamp(index, 0, kMaxIndex)) * kRow};
    ChannelBytes bytes(src, isStereoBlock);
    std::size_t done = 0;
    for (u32 buffer = 0, held = 0; done < count; ++done) {
        if (held < bits) {
            u32 byte = 0;
            if (!bytes.next(byte)) break;
            buffer |= byte << held;
            held += 8;
        }
        lane.step(moves, buffer & ((1U << bits) - 1));
        buffer >>= bits;
        held -= bits;
        dst[done * stride] = static_cast<i16>(lane.predictor);
    }
    for (; done < count; ++done) dst[done * stride] = 0;
    predictor = lane.predictor;
    index = static_cast<i32>(lane.row / kRow);
}

// ---- Blocks

std::size_t ImaBlocks::framesIn(std::size_t blockBytes) const {
    if (channels == 0 || bits == 0 || blockBytes / channels < kHeadBytes) return 0;
    return std::min<std::size_t>((blockBytes / channels - kHeadBytes) * 8 / bits + 1, frames);
}

namespace {

/// Reads a channel's header and puts its sample out.
Lane beginLane(ByteSpan block, std::span<i16> to, const ImaBlocks& blocks, u32 channel) {
    ByteCursor head(block.subspan(channel * kHeadBytes, kHeadBytes));
    Lane lane{};
    lane.predictor = head.s16le();
    lane.row = static_cast<u32>(std::clamp<i32>(head.u16le(), 0, kMaxIndex)) * kRow;
    lane.from = block.data() + std::size_t{blocks.channels} * kHeadBytes + channel * kHeadBytes;
    to[channel] = static_cast<i16>(lane.predictor);
    lane.to = to.data() + blocks.channels + channel;
    return lane;
}

void decodeBlock(ByteSpan block, std::span<i16> to, const ImaBlocks& blocks) {
    for (u32 channel = 0; channel < blocks.channels; ++channel) {
        const Lane lane = beginLane(block, to, blocks, channel);
        const std::size_t count = to.size() / blocks.channels - 1;
        if (count == 0) continue;
        i32 predictor = lane.predictor, index = static_cast<i32>(lane.row / kRow);
        const std::size_t codesAt = std::size_t{blocks.channels} * kHeadBytes + channel * kHeadBytes;
        ima_Decode(to.subspan(blocks.channels + channel), block.subspan(std::min(codesAt, block.size())),
                   count, blocks.bits, blocks.channels - 1, blocks.channels == 2, predictor, index);
    }
}

/// Decodes several whole blocks of 4-bit codes side by side.
template <std::size_t Blocks, u32 Channels>
void decodeTogether(const std::byte* from, i16* to, const ImaBlocks& blocks) {
    const std::size_t frames = blocks.framesPerBlock(), samples = frames * Channels;
    Lane lanes[Blocks * Channels];
    for (std::size_t b = 0; b < Blocks; ++b) {
        for (u32 c = 0; c < Channels; ++c) {
            lanes[b * Channels + c] =
                beginLane({from + b * blocks.bytes, blocks.bytes}, {to + b * samples, samples}, blocks, c);
        }
    }
    decodeGroups<Blocks * Channels>(lanes, (frames - 1) / 8, kHeadBytes * Channels, Channels);
}

/// Blocks of the usual shape, as many as there are; answers their number.
std::size_t decodeWholeBlocks(ByteSpan from, std::span<i16> to, const ImaBlocks& blocks) {
    const std::size_t frames = blocks.framesPerBlock();
    if (blocks.bits != 4 || blocks.channels > 2 || frames % 8 != 1) return 0;
    const std::size_t samples = frames * blocks.channels;
    const std::size_t count = std::min(from.size() / blocks.bytes, to.size() / samples);
    std::size_t done = 0;
    const auto together = [&]<std::size_t Blocks, u32 Channels>() {
        for (; done + Blocks <= count; done += Blocks) {
            decodeTogether<Blocks, Channels>(from.data() + done * blocks.bytes, to.data() + done * samples,
                                             blocks);
        }
    };
    if (blocks.channels == 1) {
        together.operator()<4, 1>();
        together.operator()<1, 1>();
    } else {
        together.operator()<2, 2>();
        together.operator()<1, 2>();
    }
    return done;
}

} // namespace

std::size_t ima_DecodeBlocks(ByteSpan from, std::span<i16> to, const ImaBlocks& blocks) {
    const std::size_t channels = blocks.channels, perBlock = blocks.framesPerBlock();
    if (perBlock == 0) return 0;
    std::size_t frames = decodeWholeBlocks(from, to, blocks) * perBlock;
    from = from.subspan(frames / perBlock * blocks.bytes);
    to = to.subspan(frames * channels);
    while (!from.empty()) {
        const ByteSpan block = from.first(std::min<std::size_t>(blocks.bytes, from.size()));
        const std::size_t count = std::min(blocks.framesIn(block.size()), to.size() / channels);
        if (count == 0) break;
        decodeBlock(block, to.first(count * channels), blocks);
        from = from.subspan(block.size());
        to = to.subspan(count * channels);
        frames += count;
    }
    return frames;
}

// ---- Encoding

u32 ima_EncodeSample(i16 sample, ImaState& state) {
    state.index = std::clamp(state.index, 0, kMaxIndex);
    const i32 step = kSteps[static_cast<u32>(state.index)];
    const i32 wanted = sample - state.predictor;
    u32 code = wanted < 0 ? 8 : 0;
    i32 rest = wanted < 0 ? -wanted : wanted;
    for (u32 bit = 4; bit > 0; bit >>= 1) {
        const i32 part = step * static_cast<i32>(bit) >> 2;
        if (rest < part) continue;
        code |= bit;
        rest -= part;
    }
    state.predictor = limit16(state.predictor + difference(step, code, 4));
    state.index = std::clamp(state.index + kAdjust[2][code & 7], 0, kMaxIndex);
    return code;
}

namespace {

/// A state as the search wants it.
struct SearchState {
    i32 predictor = 0;
    u32 row = 0;

    u32 nearest(i32 sample, u32& second) const {
        const i32 wanted = sample - predictor;
        const u32 sign = wanted < 0 ? 8 : 0;
        const u64 size = static_cast<u32>(wanted < 0 ? -wanted : wanted);
        // A code stands for quarters of the step; which half of a quarter it is tells the next best one.
        const auto eighths = static_cast<i32>(size * 8 * kInverse[row / kRow] >> 32);
        const i32 magnitude = std::min(eighths >> 1, 7);
        const bool up = (eighths & 1) != 0 && magnitude < 7;
        if (up)
            second = sign | static_cast<u32>(magnitude + 1);
        else
            second = magnitude > 0 ? sign | static_cast<u32>(magnitude - 1) : sign ^ 8;
        return sign | static_cast<u32>(magnitude);
    }
    i32 decode(u32 code) {
        const i32 move = kMoves4[row + code];
        row = static_cast<u32>(move) & kNextMask;
        predictor = limit16(predictor + (move >> kNextBits));
        return predictor;
    }
    bool sameAs(const SearchState& other) const { return predictor == other.predictor && row == other.row; }

    static constexpr auto kInverse = [] {
        std::array<u32, kMaxIndex + 1> inverse{};
        for (std::size_t i = 0; i < inverse.size(); ++i)
            inverse[i] = static_cast<u32>(((u64{1} << 32) + static_cast<u32>(kSteps[i]) - 1) /
                                          static_cast<u32>(kSteps[i]));
        return inverse;
    }();
};

constexpr std::size_t kSearchWidth = 2;

} // namespace

void ImaBlockEncoder::encode(std::span<const i16> frames, Bytes& out) {
    const std::size_t channels = blocks_.channels, perBlock = blocks_.framesPerBlock();
    if (frames.empty() || perBlock == 0) return;
    if (frames.size() < perBlock * channels) {
        padded_.assign(frames.begin(), frames.end());
        while (padded_.size() < perBlock * channels) padded_.push_back(padded_[padded_.size() - channels]);
        frames = padded_;
    }
    const std::size_t start = out.size(), codesAt = start + channels * kHeadBytes;
    out.resize(start + blocks_.bytes);
    CodeSearch<SearchState, kSearchWidth> search;
    for (std::size_t c = 0; c < channels; ++c) {
        const u32 first = static_cast<u16>(frames[c]), index = static_cast<u32>(index_[c]);
        const u32 head[] = {first & 255, first >> 8, index, 0};
        for (std::size_t i = 0; i < kHeadBytes; ++i)
            out[start + c * kHeadBytes + i] = static_cast<std::byte>(head[i]);
        SearchState state{frames[c], index * kRow};
        search.run(frames.subspan(std::min(frames.size(), channels + c)), channels, state, codes_);
        for (std::size_t i = 0; i < codes_.size(); ++i) {
            const std::size_t group = i / 8 * channels + c; // of 4 bytes
            out[codesAt + group * 4 + i % 8 / 2] |= static_cast<std::byte>(codes_[i] << (i % 2 * 4));
        }
        index_[c] = static_cast<i32>(state.row / kRow);
    }
}

} // namespace kv
