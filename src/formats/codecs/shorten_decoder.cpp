#include <algorithm>
#include <bit>
#include <optional>

#include "base/run_context.h"
#include "formats/codecs/rice_input.h"
#include "formats/codecs/shorten.h"
#include "samples/kernels.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "Shorten";

// What a stream may ask for. Packers write blocks of 256 frames and at most 64 coefficients.
constexpr u32 kMostChannels = 8;
constexpr u32 kMostBlockFrames = 65535;
constexpr u32 kMostOrder = 1024;
constexpr u32 kMostMeans = 32768;
constexpr u32 kMostForeignBytes = 1 << 20;
/// Blocks of silence take 5 bits, so that a small stream could go on for ever.
constexpr u64 kMostSamplesPerByte = 4096;

enum class Command : u32 { Diff0, Diff1, Diff2, Diff3, Quit, BlockSize, BitShift, Lpc, Zero, Verbatim };

i16 muLawSample(u8 code) {
    i16 sample = 0;
    const std::byte byte{code};
    muLawToInt16({&byte, 1}, {&sample, 1});
    return sample;
}

/// Mu-law bytes by rank: those that a value of so many zero bits at the end has stand around the middle,
/// the others beyond them, all in the order of their values.
std::array<u8, 256> muLawByRank(u32 shift) {
    std::array<bool, 256> inner{};
    for (i32 value = -32768; value < 32768; value += 8 << shift) inner[muLawByte(value)] = true;
    std::array<u8, 256> ranks{};
    std::size_t count = 0;
    const auto add = [&](bool negative, bool wanted) {
        for (u32 i = 0; i < 128; ++i) {
            const u32 byte = negative ? i : 255 - i;
            if (inner[byte] == wanted) ranks[count++] = static_cast<u8>(byte);
        }
    };
    add(true, false);
    add(true, true);
    add(false, true);
    add(false, false);
    return ranks;
}

/// Sums and products wrap, as those of the programs that pack do.
i32 wrap(i64 value) {
    return static_cast<i32>(static_cast<u32>(static_cast<u64>(value)));
}
i32 shiftUp(i32 value, u32 bits) {
    return static_cast<i32>(static_cast<u32>(value) << bits);
}

struct Channel {
    std::vector<i32> samples; ///< what predictors refer to, and a block
    std::vector<i32> means;   ///< of the blocks before, the oldest first
    std::vector<i32> output;  ///< the block, shifted
    std::size_t frames = 0;
};

class Decoder final : public ShortenDecoder {
public:
    explicit Decoder(const std::shared_ptr<ByteSource>& source)
        : in_(source, kHeadBytes), mostSamples_(source->size() * kMostSamplesPerByte) {}

    bool start(ByteSource& source);
    const ShortenHeader& header() const override { return header_; }
    std::size_t nextBlock() override;
    void interleave(u32 channels, std::span<i16> to) const override;
    ByteSpan foreignBytes() const override { return foreign_; }
    std::size_t foreignHeadBytes() const override { return foreignHead_; }

private:
    static constexpr u64 kHeadBytes = 5;

    bool nextCommand(Command& command);
    bool verbatim();
    bool nextChannel(Channel& channel);
    bool setBlockFrames(u32 frames);
    bool predict(Command command, Channel& channel);
    i32 meanOf(const Channel& channel) const;
    void remember(Channel& channel) const;
    void shiftOutput(Channel& channel) const;
    i16 sampleOf(i32 value) const;

    RiceInput in_;
    ShortenHeader header_;
    std::vector<Channel> channels_;
    std::vector<i32> coefficients_;
    std::array<u8, 256> ranks_{};
    Bytes foreign_;
    std::size_t foreignHead_ = 0;
    u32 blockFrames_ = 0;
    u32 mostOrder_ = 0;
    u32 history_ = 3; ///< samples ahead of a block
    u32 means_ = 0;
    u32 bitShift_ = 0;
    u64 samples_ = 0, mostSamples_;
    std::optional<Command> ahead_; ///< read and not carried out yet
};

bool isRanked(ShortenType type) {
    return type == ShortenType::MuLawRanks || type == ShortenType::MuLawAllRanks;
}

bool Decoder::start(ByteSource& source) {
    std::array<std::byte, kHeadBytes> head{};
    if (source.readAt(0, head) != head.size() || !textOf(head).starts_with("ajkg"))
        return Fail(kContext, "Not a Shorten file");
    header_.version = std::to_integer<u32>(head[4]);
    if (header_.version < 1 || header_.version > 3) return Fail(kContext, "Unsupported version");
    const u32 type = in_.number();
    header_.type = static_cast<ShortenType>(type);
    header_.channels = in_.number();
    const u32 blockFrames = in_.number();
    mostOrder_ = in_.number();
    const u32 means = in_.number();
    const u32 skipped = in_.number();
    for (u32 i = 0; i < skipped && in_.ok(); ++i) (void)in_.code(7);
    if (!in_.ok()) return Fail(kContext, "The header is damaged");
    if (type > static_cast<u32>(ShortenType::ALawValues) || header_.type == ShortenType::ALawRanks)
        return Fail(kContext, "Unsupported subformat");
    if (header_.channels == 0) return Fail(kContext, "No channels");
    if (header_.channels > kMostChannels) return Fail(kContext, "Too many channels");
    if (mostOrder_ > kMostOrder || means > kMostMeans || !setBlockFrames(blockFrames))
        return Fail(kContext, "The header is damaged");

    history_ = std::max(3U, mostOrder_);
    const i32 rest =
        header_.type == ShortenType::Unsigned8                                                        ? 0x80
        : header_.type == ShortenType::Unsigned16Big || header_.type == ShortenType::Unsigned16Little ? 0x8000
                                                                                                      : 0;
    channels_.resize(header_.channels);
    for (Channel& channel : channels_) {
        channel.samples.assign(history_, 0);
        channel.means.assign(std::max(means, 1U), rest);
    }
    means_ = means;
    if (isRanked(header_.type)) ranks_ = muLawByRank(0);
    Command first{};
    if (nextCommand(first)) ahead_ = first;
    foreignHead_ = foreign_.size();
    return true;
}

/// The next command that is a block of samples; carries out those on the way. False at the end.
bool Decoder::nextCommand(Command& command) {
    if (ahead_) {
        command = *std::exchange(ahead_, std::nullopt);
        return true;
    }
    while (in_.ok()) {
        command = static_cast<Command>(in_.code(2));
        bool good = in_.ok();
        switch (command) {
            case Command::BlockSize:
                good = good && setBlockFrames(in_.number());
                break;
            case Command::BitShift:
                bitShift_ = in_.code(2);
                good = good && bitShift_ < 32;
                if (good && isRanked(header_.type)) ranks_ = muLawByRank(std::min(bitShift_, 12U));
                break;
            case Command::Verbatim:
                good = good && verbatim();
                break;
            case Command::Diff0:
            case Command::Diff1:
            case Command::Diff2:
            case Command::Diff3:
            case Command::Lpc:
            case Command::Zero:
                return good;
            default: // Quit, or a number that means nothing
                good = false;
                break;
        }
        if (!good) in_.fail();
    }
    return false;
}

bool Decoder::verbatim() {
    const u32 count = in_.code(5);
    if (!in_.ok() || count > kMostForeignBytes - foreign_.size()) return false;
    for (u32 i = 0; i < count && in_.ok(); ++i) foreign_.push_back(static_cast<std::byte>(in_.code(8)));
    return in_.ok();
}

bool Decoder::setBlockFrames(u32 frames) {
    blockFrames_ = frames;
    return frames > 0 && frames <= kMostBlockFrames;
}

std::size_t Decoder::nextBlock() {
    for (Channel& channel : channels_) {
        if (!nextChannel(channel) || channel.frames != channels_.front().frames) {
            in_.fail();
            return 0;
        }
    }
    return channels_.front().frames;
}

bool Decoder::nextChannel(Channel& channel) {
    Command command{};
    if (!nextCommand(command)) return false;
    samples_ += blockFrames_;
    if (samples_ > mostSamples_) return false;
    channel.frames = blockFrames_;
    channel.samples.resize(history_ + channel.frames);
    if (command == Command::Zero)
        std::fill(channel.samples.begin() + history_, channel.samples.end(), 0);
    else if (!predict(command, channel))
        return false;
    if (means_ > 0) remember(channel);
    channel.output.assign(channel.samples.begin() + history_, channel.samples.end());
    std::copy(channel.samples.end() - history_, channel.samples.end(), channel.samples.begin());
    shiftOutput(channel);
    return in_.ok();
}

/// Decodes a block of differences from what the samples before let expect.
bool Decoder::predict(Command command, Channel& channel) {
    const u32 lowBits = in_.code(3);
    if (!in_.ok() || lowBits > 30) return false;
    const i32 mean = meanOf(channel);
    i32* const block = channel.samples.data() + history_;
    const auto decode = [&](auto&& expected) {
        for (std::size_t i = 0; i < channel.frames; ++i)
            block[i] = wrap(i64{in_.signedCode(lowBits)} + expected(block + i));
    };
    switch (command) {
        case Command::Diff0:
            decode([mean](const i32*) { return i64{mean}; });
            return true;
        case Command::Diff1:
            decode([](const i32* at) { return i64{at[-1]}; });
            return true;
        case Command::Diff2:
            decode([](const i32* at) { return 2 * i64{at[-1]} - at[-2]; });
            return true;
        case Command::Diff3:
            decode([](const i32* at) { return 3 * (i64{at[-1]} - at[-2]) + at[-3]; });
            return true;
        default:
            break;
    }
    const u32 order = in_.code(2);
    if (!in_.ok() || order > mostOrder_) return false;
    coefficients_.resize(order);
    for (i32& c : coefficients_) c = in_.signedCode(5);
    for (u32 i = 1; i <= order; ++i)
        block[-static_cast<i32>(i)] = wrap(i64{block[-static_cast<i32>(i)]} - mean);
    decode([&](const i32* at) {
        u32 sum = header_.version < 2 ? 0 : 32; // half of what is shifted out
        for (const i32 c : coefficients_) sum += static_cast<u32>(c) * static_cast<u32>(*--at);
        return i64{static_cast<i32>(sum) >> 5};
    });
    for (std::size_t i = 0; i < channel.frames; ++i) block[i] = wrap(i64{block[i]} + mean);
    return true;
}

i32 Decoder::meanOf(const Channel& channel) const {
    if (means_ == 0) return channel.means.front();
    i64 sum = header_.version < 2 ? 0 : means_ / 2;
    for (const i32 mean : channel.means) sum += mean;
    const i64 mean = sum / means_;
    return wrap(header_.version < 2 || bitShift_ == 0 ? mean : mean >> (bitShift_ - 1) >> 1);
}

void Decoder::remember(Channel& channel) const {
    const i64 frames = std::max<i64>(static_cast<i64>(channel.frames), 1);
    i64 sum = header_.version < 2 ? 0 : frames / 2;
    for (std::size_t i = 0; i < channel.frames; ++i) sum += channel.samples[history_ + i];
    const i32 mean = wrap(sum / frames);
    std::rotate(channel.means.begin(), channel.means.begin() + 1, channel.means.end());
    channel.means.back() = header_.version < 2 ? mean : shiftUp(mean, bitShift_);
}

void Decoder::shiftOutput(Channel& channel) const {
    if (isRanked(header_.type)) {
        for (i32& v : channel.output) {
            const bool lower = header_.type == ShortenType::MuLawAllRanks && v < 0;
            const bool minusZero = lower && v == -1; // its own rank, ahead of the zero
            v = minusZero ? 0x7F : ranks_[static_cast<u32>(wrap(i64{v} + (lower ? 129 : 128))) & 0xFF];
        }
    } else if (bitShift_ > 0) {
        for (i32& v : channel.output) v = shiftUp(v, bitShift_);
    }
}

i16 Decoder::sampleOf(i32 value) const {
    const auto limited = [](i64 v) { return static_cast<i16>(std::clamp<i64>(v, -32768, 32767)); };
    switch (header_.type) {
        case ShortenType::Signed8:
            return static_cast<i16>(std::clamp(value, -128, 127) * 257 + 128);
        case ShortenType::Unsigned8:
            return static_cast<i16>(std::clamp(value, 0, 255) * 257 - 32768);
        case ShortenType::Unsigned16Big:
        case ShortenType::Unsigned16Little:
            return limited(i64{value} - 0x8000);
        case ShortenType::MuLawRanks:
        case ShortenType::MuLawAllRanks:
            return muLawSample(static_cast<u8>(value));
        case ShortenType::MuLawValues:
            return muLawSample(muLawByte(limited(i64{value} * 8)));
        case ShortenType::ALawValues:
            return limited(i64{value} * 8);
        default:
            return limited(value);
    }
}

void Decoder::interleave(u32 channels, std::span<i16> to) const {
    for (u32 c = 0; c < channels; ++c) {
        const std::vector<i32>& from = channels_[c].output;
        for (std::size_t i = 0; i < from.size(); ++i) to[i * channels + c] = sampleOf(from[i]);
    }
}

} // namespace

u8 muLawByte(i32 value) {
    const u32 sign = value < 0 ? 0x80 : 0;
    const u32 biased = static_cast<u32>(std::min(value < 0 ? -value : value, 32635) + 132);
    const u32 segment = std::max(static_cast<u32>(std::bit_width(biased)), 8U) - 8;
    return static_cast<u8>(~(sign | segment << 4 | (biased >> (segment + 3) & 15)));
}

std::unique_ptr<ShortenDecoder> ShortenDecoder::open(const std::shared_ptr<ByteSource>& source) {
    auto decoder = std::make_unique<Decoder>(source);
    if (!decoder->start(*source)) return nullptr;
    return decoder;
}

} // namespace kv
