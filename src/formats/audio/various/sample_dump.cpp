// MIDI Sample Dump Standard (MIDI 1.0, sample dump messages) as files.
#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <optional>

#include "base/run_context.h"
#include "formats/audio/various/various_files.h"
#include "formats/codecs/sample_pieces.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::size_t kHeaderBytes = 21;
constexpr std::size_t kPacketBytes = 127;
constexpr std::size_t kPacketHeadBytes = 5;
constexpr std::size_t kPacketDataBytes = 120;
constexpr u32 kMostFrames = (1 << 21) - 1; ///< three bytes of 7 bits
constexpr u32 kMostBits = 28;
constexpr u8 kSysEx = 0xF0, kSysExEnd = 0xF7, kUniversal = 0x7E;
constexpr u8 kHeaderId = 1, kPacketId = 2;
enum LoopType : u8 { kForward = 0, kAlternating = 1, kNoLoop = 0x7F };

u32 bytesPerSample(u32 bits) {
    return (bits + 6) / 7;
}
u32 samplesPerPacket(u32 bits) {
    return static_cast<u32>(kPacketDataBytes) / bytesPerSample(bits);
}

u32 periodOf(u32 rate) {
    return ((rate >> 1) + 1000000000) / rate;
}
/// A usual rate where its period stands there: periods are whole nanoseconds, so that rates come back
/// rounded.
u32 rateOf(u32 period) {
    constexpr u32 kDefaultHz = 44100;
    if (period == 0) return kDefaultHz;
    const u32 rate = ((period >> 1) + 1000000000) / period;
    for (const u32 usual :
         {8000U, 11025U, 16000U, 22050U, 24000U, 32000U, 44100U, 48000U, 88200U, 96000U, 192000U}) {
        if (rate + 1 >= usual && rate <= usual + 1) return usual;
        if (periodOf(usual) == period) return usual;
    }
    return rate;
}

/// Walks the messages of a file that belong to dumps, whatever stands between them.
class DumpMessages {
public:
    DumpMessages(std::shared_ptr<ByteSource> source, u64 start) : source_(std::move(source)), at_(start) {}

    struct Message {
        u8 id = 0;
        u64 offset = 0;
        ByteSpan bytes; ///< valid until the next one
    };
    std::optional<Message> next() {
        while (true) {
            const ByteSpan ahead = window();
            const auto found = std::find(ahead.begin(), ahead.end(), std::byte{kSysEx});
            at_ += static_cast<u64>(found - ahead.begin());
            if (found == ahead.end()) {
                if (ahead.empty()) return {};
                continue;
            }
            const ByteSpan message = window();
            const std::size_t size = sizeOf(message);
            if (size == 0) {
                ++at_;
                continue;
            }
            const u64 offset = at_;
            at_ += size;
            return Message{std::to_integer<u8>(message[3]), offset, message.first(size)};
        }
    }

private:
    /// Of a header or a packet; 0 for anything else, and for one that is cut short.
    static std::size_t sizeOf(ByteSpan bytes) {
        if (bytes.size() < kHeaderBytes || bytes[1] != std::byte{kUniversal}) return 0;
        if (bytes[3] == std::byte{kHeaderId})
            return bytes[kHeaderBytes - 1] == std::byte{kSysExEnd} ? kHeaderBytes : 0;
        return bytes[3] == std::byte{kPacketId} && bytes.size() >= kPacketBytes ? kPacketBytes : 0;
    }
    /// What is at hand from here on: the rest of the file, or at least a message.
    ByteSpan window() {
        const bool inside = at_ >= start_ && at_ - start_ <= buffer_.size();
        if (!inside || buffer_.size() - (at_ - start_) < kPacketBytes) {
            buffer_.resize(65536);
            buffer_.resize(source_->readAt(at_, buffer_));
            start_ = at_;
        }
        return ByteSpan(buffer_).subspan(static_cast<std::size_t>(at_ - start_));
    }

    std::shared_ptr<ByteSource> source_;
    u64 at_;
    u64 start_ = 0; ///< of the buffer
    Bytes buffer_;
};

struct DumpHeader {
    u32 bits = 0, period = 0, frames = 0, loopStart = 0, loopEnd = 0; ///< the end's frame belongs to the loop
    u8 loopType = kNoLoop;
};

DumpHeader readHeader(ByteSpan message) {
    ByteCursor in(message);
    in.skip(6);
    const auto number = [&] {
        u32 value = 0;
        for (u32 shift = 0; shift < 21; shift += 7) value |= (in.u8le() & 0x7FU) << shift;
        return value;
    };
    DumpHeader header;
    header.bits = in.u8le();
    header.period = number();
    header.frames = number();
    header.loopStart = number();
    header.loopEnd = number();
    header.loopType = in.u8le();
    return header;
}

/// Hands the data of each packet of a dump to `take(packet, data)`, numbered from 0 on; their own numbers
/// have 7 bits. Answers the header of the next dump, if one follows.
template <class Take>
std::optional<DumpMessages::Message> walkPackets(DumpMessages& messages, Take&& take) {
    u32 expected = 0;
    u64 offset = 0;
    bool faulty = false;
    std::optional<DumpMessages::Message> message;
    while ((message = messages.next()) && message->id != kHeaderId) {
        const u32 received = std::to_integer<u32>(message->bytes[4]) & 127;
        const bool repeated = expected > 0 && ((expected - 1) & 127) == received;
        if (repeated) {
            --expected;
        } else if ((expected & 127) != received) {
            if ((expected & 127) > received) expected += 128;
            expected = (expected & ~127U) + received;
            faulty = true;
        }
        u8 sum = 0;
        for (const std::byte b : message->bytes.subspan(1, kPacketBytes - 3)) sum ^= std::to_integer<u8>(b);
        faulty |= sum != std::to_integer<u8>(message->bytes[kPacketBytes - 2]);
        if (faulty && offset == 0) offset = message->offset;
        take(expected, message->bytes.subspan(kPacketHeadBytes, kPacketDataBytes));
        ++expected;
    }
    if (faulty) runContext().diagnostics.warn(offset, "data packet", "packets are missing or damaged");
    return message;
}

u32 sampleWord(ByteSpan bytes, u32 count) {
    u32 word = 0;
    for (u32 i = 0; i < count; ++i) word = word << 7 | (std::to_integer<u32>(bytes[i]) & 0x7F);
    return word << (32 - 7 * count); // first bits at the top
}

void decode(u32 word, i16& to) {
    to = static_cast<i16>(static_cast<u16>((word >> 16) ^ 0x8000));
}
void decode(u32 word, f32& to) {
    to = static_cast<f32>(static_cast<i32>(word ^ 0x80000000)) * 0x1p-31F;
}

/// The samples of one dump. A dump is short enough for memory, and its packets may come in any order.
template <class T>
class DumpBlocks final : public SampleBlocks {
public:
    DumpBlocks(u32 frames, std::vector<T> samples)
        : SampleBlocks(1, frames, std::is_same_v<T, f32>), samples_(std::move(samples)) {}

protected:
    bool readNative(std::span<T> to) override {
        if (to.size() > samples_.size() - at_) return Fail("sds_ImpWave", "Reading from file failed");
        std::copy_n(samples_.begin() + static_cast<std::ptrdiff_t>(at_), to.size(), to.begin());
        at_ += to.size();
        return true;
    }

private:
    std::vector<T> samples_;
    std::size_t at_ = 0;
};

template <class T>
std::unique_ptr<SampleBlocks> decodeDump(DumpMessages& messages, u32 bits, u32 frames) {
    const u32 width = bytesPerSample(bits), perPacket = samplesPerPacket(bits);
    std::vector<T> samples(frames); // what is lost stays silent
    walkPackets(messages, [&](u32 packet, ByteSpan data) {
        const u64 first = u64{packet} * perPacket;
        for (u64 i = 0; i < perPacket && first + i < frames; ++i)
            decode(sampleWord(data.subspan(static_cast<std::size_t>(i) * width), width),
                   samples[static_cast<std::size_t>(first + i)]);
    });
    return std::make_unique<DumpBlocks<T>>(frames, std::move(samples));
}

std::unique_ptr<SampleBlocks> openDump(const Wave& wave, FileContext& file) {
    if (file.source && wave.channels == 1 && wave.frames <= kMostFrames) {
        DumpMessages messages(file.source, file.position);
        const auto first = messages.next();
        const u32 bits = first && first->id == kHeaderId ? readHeader(first->bytes).bits : 0;
        if (bits > 0 && bits <= kMostBits)
            return bits > 16 ? decodeDump<f32>(messages, bits, wave.frames)
                             : decodeDump<i16>(messages, bits, wave.frames);
    }
    Fail("sds_ImpWave", "Reading from file failed");
    return nullptr;
}

const WaveReader dumpReader{"sds_ImpWave", loadThroughBlocks, openDump};

struct WidthRow {
    u32 mostBits, code, preferred;
};
constexpr WidthRow kWidths[] = {
    {8, kPcm8, kPcm8},    {12, kPcm12, kPcm16}, {16, kPcm16, kPcm16},
    {20, kPcm20, kPcm24}, {24, kPcm24, kPcm24}, {kMostBits, kPcm32, kPcm32},
};

void makeWave(const DumpHeader& header, u64 offset, u64 framesThere) {
    const WidthRow& width = *std::find_if(std::begin(kWidths), std::end(kWidths),
                                          [&](const WidthRow& row) { return header.bits <= row.mostBits; });
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &dumpReader);
    wave->sourceOffset = offset;
    wave->dataFormat = width.code;
    wave->preferredFormat = width.preferred;
    wave->bits = header.bits;
    wave->sampleRate = rateOf(header.period);
    wave->frames = static_cast<u32>(std::min<u64>(header.frames, framesThere));
    if (header.loopType > kAlternating || header.loopEnd <= header.loopStart ||
        header.loopStart >= wave->frames)
        return;
    wave->params.loopFlags = header.loopType == kForward ? kLooped : kLooped | kLoopBidirectional;
    wave->params.loopStart = header.loopStart;
    wave->params.loopEnd = std::min(header.loopEnd + 1, wave->frames);
}

/// A sample as a number of 32 bits from 0 on, of which the uppermost count.
u32 wordOf(i16 sample) {
    return (static_cast<u32>(static_cast<u16>(sample)) << 16) ^ 0x80000000;
}

class PacketWriter {
public:
    PacketWriter(FileContext& file, u32 bits) : file_(file), bits_(bits) {}

    bool add(u32 word) {
        word &= ~u32{0} << (32 - bits_);
        for (u32 i = 0; i < bytesPerSample(bits_); ++i)
            data_.u8le(static_cast<u8>(word >> (25 - 7 * i) & 0x7F));
        return data_.size() + bytesPerSample(bits_) <= kPacketDataBytes || write();
    }
    /// Fills up the last packet.
    bool finish() {
        while (data_.size() > 0) {
            if (!add(0x80000000)) return false;
        }
        return true;
    }

private:
    bool write() {
        data_.fill(kPacketDataBytes - data_.size());
        ByteWriter out;
        out.u8le(kSysEx).u8le(kUniversal).u8le(0).u8le(kPacketId).u8le(number_).bytes(data_.view());
        u8 sum = 0;
        for (const std::byte b : out.view().subspan(1)) sum ^= std::to_integer<u8>(b);
        out.u8le(sum).u8le(kSysExEnd);
        number_ = (number_ + 1) & 0x7F;
        data_ = {};
        return file_.write(out.view()) || Fail("sds_Exp", "Writing to file failed");
    }

    FileContext& file_;
    u32 bits_;
    u8 number_ = 0;
    ByteWriter data_;
};

Bytes headerFor(const Wave& wave, u32 frames, u32 bits) {
    const SampleParams& params = wave.params;
    const u32 last = std::max(frames, 1U) - 1;
    const auto frame = [last](f64 place) { return std::min(saturate<u32>(place + 0.5), last); };
    ByteWriter out;
    const auto number = [&out](u32 value) {
        for (u32 shift = 0; shift < 21; shift += 7) out.u8le(static_cast<u8>(value >> shift & 0x7F));
    };
    out.u8le(kSysEx).u8le(kUniversal).u8le(0).u8le(kHeaderId).u8le(0).u8le(0).u8le(static_cast<u8>(bits));
    number(wave.sampleRate == 0 ? 0 : std::min(periodOf(wave.sampleRate), kMostFrames));
    number(frames);
    number(params.looped() ? frame(params.loopStart) : last);
    number(params.looped() ? frame(params.loopEnd - 1) : last);
    out.u8le(!params.looped()                               ? kNoLoop
             : (params.loopFlags & kLoopBidirectional) != 0 ? kAlternating
                                                            : kForward);
    out.u8le(kSysExEnd);
    return out.take();
}

} // namespace

bool sds_Imp(Collection&, FileContext& file, u32) {
    DumpMessages messages(file.source, 0);
    std::optional<DumpMessages::Message> message;
    while ((message = messages.next()) && message->id != kHeaderId) {
    }
    if (!message) return Fail("sds_Imp", "No sample dump");
    while (message) {
        const DumpHeader header = readHeader(message->bytes);
        const u64 offset = message->offset;
        if (header.bits == 0 || header.bits > kMostBits) return Fail("sds_Imp", "Unsupported subformat");
        if (CancelRequested()) return Fail("sds_Imp", "Cancelled");
        // What a file lacks at its end isn't taken for silence.
        u64 packets = 0;
        message = walkPackets(
            messages, [&packets](u32 packet, ByteSpan) { packets = std::max<u64>(packets, packet + 1U); });
        makeWave(header, offset, packets * samplesPerPacket(header.bits));
    }
    return true;
}

bool sds_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool perWave, f32) {
    const SampleExport out = openExport("sds_Exp", item, formatWord, perWave);
    if (!out) return false;
    const u32 frames = out.blocks->frames();
    if (frames > kMostFrames) return Fail("sds_Exp", "A sample dump has at most {} frames", kMostFrames);
    u32 bits = 0;
    FormatCodeInfo(out.word & kCodeMask, nullptr, &bits);
    if (bits < 8 || bits > kMostBits) return Fail("sds_Exp", "Unsupported subformat");
    reportLosses(*out.wave, kKeepsRate | kKeepsLoop);
    if (!file.write(headerFor(*out.wave, frames, bits))) return Fail("sds_Exp", "Writing to file failed");

    constexpr std::size_t kPieceFrames = 16384;
    PacketWriter packets(file, bits);
    const auto addAll = [&](auto from, auto word) {
        return std::all_of(from.begin(), from.end(), [&](auto sample) { return packets.add(word(sample)); });
    };
    const bool done =
        bits <= 16
            ? writePieces<i16>(*out.blocks, 1, kPieceFrames, "sds_Exp",
                               [&](std::span<const i16> from) { return addAll(from, wordOf); })
            : writePieces<f32>(*out.blocks, 1, kPieceFrames, "sds_Exp", [&](std::span<const f32> from) {
                  return addAll(from, [bits](f32 x) {
                      return (static_cast<u32>(quantise(x, static_cast<int>(bits))) << (32 - bits)) ^
                             0x80000000;
                  });
              });
    return done && packets.finish();
}

} // namespace kv
