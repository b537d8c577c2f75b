// The encodings as streams.
#include <algorithm>

#include "formats/codecs/coded_stream.h"
#include "formats/codecs/dialogic_adpcm.h"
#include "formats/codecs/g722.h"
#include "formats/codecs/g726.h"
#include "formats/codecs/rockwell_adpcm.h"
#include "formats/codecs/yamaha_adpcm.h"

namespace kv {

// ---- Decoding

CodedForm imaForm(const ImaBlocks& blocks) {
    if (blocks.channels < 1 || blocks.channels > 2 || blocks.bits < 2 || blocks.bits > 4) return {};
    if (blocks.framesPerBlock() == 0) return {};
    return {blocks.channels, blocks.bytes, blocks.framesPerBlock(),
            [blocks](ByteSpan from, std::span<i16> to) { return ima_DecodeBlocks(from, to, blocks); },
            [blocks](std::size_t bytes) { return blocks.framesIn(bytes); }};
}

CodedForm msForm(u32 channels, u32 blockBytes, u32 framesPerBlock, std::vector<MsCoefficients> coefficients) {
    const auto framesIn = [channels, framesPerBlock](std::size_t bytes) {
        return std::min<std::size_t>(msadpcm_FramesIn(bytes, channels), framesPerBlock);
    };
    if (channels < 1 || channels > 2 || framesIn(blockBytes) == 0) return {};
    return {channels, blockBytes, framesIn(blockBytes),
            [=, pairs = std::move(coefficients)](ByteSpan from, std::span<i16> to) {
                return msadpcm_Decode(to, to.size() / channels, from, blockBytes, channels, framesPerBlock,
                                      pairs);
            },
            framesIn};
}

CodedForm dialogicForm() {
    return {1,
            1,
            2,
            [s = DialogicState()](ByteSpan from, std::span<i16> to) mutable {
                return dialogic_Decode(to, from, to.size(), s);
            },
            {}};
}

CodedForm yamahaForm(bool stereo) {
    const u32 channels = stereo ? 2 : 1;
    return {channels,
            1,
            2 / channels,
            [=, s = std::array<YamahaState, 2>()](ByteSpan from, std::span<i16> to) mutable {
                return yamaha_Decode(to, from, to.size() / channels, stereo, s);
            },
            {}};
}

CodedForm rockwellForm(u32 bits) {
    if (bits < 2 || bits > 4) return {};
    return {1, bits, 8,
            [=, s = RockwellState()](ByteSpan from, std::span<i16> to) mutable {
                return rockwell_Decode(to, from, from.size(), bits, s);
            },
            [bits](std::size_t bytes) { return bytes * 8 / bits; }};
}

CodedForm g726Form(u32 bits, bool bigEndian) {
    if (bits < 2 || bits > 5) return {};
    return {1, bits, 8,
            [=, s = G726State()](ByteSpan from, std::span<i16> to) mutable {
                return g72x_Decode(to, from, bits, bigEndian, s);
            },
            [bits](std::size_t bytes) { return bytes * 8 / bits; }};
}

CodedForm g722Form(u32 bits, bool bigEndian) {
    if (bits < 6 || bits > 8) return {};
    return {1, bits, 16,
            [=, s = G722State()](ByteSpan from, std::span<i16> to) mutable {
                return g722_Decode(to, from, from.size(), bits, bigEndian, s);
            },
            [bits](std::size_t bytes) { return bytes * 8 / bits * 2; }};
}

CodedForm gsmForm(bool plainFrames, std::size_t blockBytes) {
    const std::size_t unit = plainFrames ? kGsmPlainBytes : std::max(blockBytes, kGsmDoubleBytes);
    const auto samplesIn = [plainFrames](std::size_t bytes) {
        return bytes * 8 / (plainFrames ? 264 : 260) * kGsmFrame;
    };
    return {1, unit, samplesIn(unit),
            [=, s = GsmState()](ByteSpan from, std::span<i16> to) mutable {
                std::size_t done = 0;
                for (; !from.empty(); from = from.subspan(std::min(unit, from.size())))
                    done += gsm_Decode(s, to.subspan(done), from, std::min(unit, from.size()), plainFrames);
                return done;
            },
            samplesIn};
}

namespace {

/// Frames of a modem recording. Where the bytes around a frame are missing, frames follow each other more
/// closely than their count tells, so that bytes are left over.
class UsrGsmReader {
public:
    std::size_t decode(ByteSpan from, std::span<i16> to) {
        if (at_ > bytes_.size() / 2) {
            bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(at_));
            at_ = 0;
        }
        bytes_.insert(bytes_.end(), from.begin(), from.end());
        std::size_t done = 0;
        for (std::size_t round = from.size() / kUsrGsmBytes; round > 0; --round) {
            const ByteSpan record = ByteSpan(bytes_).subspan(at_, kUsrGsmBytes);
            const bool marked =
                record[0] == std::byte{0xFE} || record[0] == std::byte{0xB6} || record[35] == std::byte{0};
            done +=
                gsm_Decode(state_, to.subspan(done), record.subspan(marked ? 2 : 0), kGsmPlainBytes, true);
            at_ += marked ? kUsrGsmBytes : kGsmPlainBytes;
        }
        return done;
    }

private:
    GsmState state_;
    Bytes bytes_;
    std::size_t at_ = 0; ///< of the next record
};

} // namespace

CodedForm usrGsmForm() {
    return {1,
            kUsrGsmBytes,
            kGsmFrame,
            [reader = UsrGsmReader()](ByteSpan from, std::span<i16> to) mutable {
                return reader.decode(from, to);
            },
            {}};
}

// ---- Encoding

namespace {

/// A writer of blocks, each of which is coded by itself.
template <class Encoder>
CodedWriter blockWriter(u32 channels, std::size_t blockFrames, std::size_t blockBytes, Encoder encoder) {
    return {channels, blockFrames, blockBytes, true, [=](std::span<const i16> from, Bytes& out) mutable {
                for (; !from.empty(); from = from.subspan(std::min(from.size(), blockFrames * channels)))
                    encoder.encode(from.first(std::min(from.size(), blockFrames * channels)), out);
            }};
}

/// A writer by a function from samples to bytes that answers how many it made.
template <class Encode>
CodedWriter runWriter(u32 channels, std::size_t unitFrames, std::size_t unitBytes, bool wholeUnits,
                      Encode encode) {
    return {channels, unitFrames, unitBytes, wholeUnits, [=](std::span<const i16> from, Bytes& out) mutable {
                const std::size_t start = out.size(), units = from.size() / channels / unitFrames + 1;
                out.resize(start + units * unitBytes);
                out.resize(start + encode(from, std::span(out).subspan(start)));
            }};
}

} // namespace

CodedWriter imaWriter(const ImaBlocks& blocks) {
    return blockWriter(blocks.channels, blocks.framesPerBlock(), blocks.bytes, ImaBlockEncoder(blocks));
}

CodedWriter msWriter(u32 channels, u32 blockBytes) {
    return blockWriter(channels, msadpcm_FramesIn(blockBytes, channels), blockBytes,
                       MsBlockEncoder(channels, blockBytes));
}

CodedWriter dialogicWriter() {
    return runWriter(1, 2, 1, false,
                     [s = DialogicState()](std::span<const i16> from, std::span<std::byte> to) mutable {
                         return dialogic_Encode(to, from, s);
                     });
}

CodedWriter yamahaWriter(bool stereo) {
    const u32 channels = stereo ? 2 : 1;
    return runWriter(
        channels, 2 / channels, 1, false,
        [=, s = std::array<YamahaState, 2>()](std::span<const i16> from, std::span<std::byte> to) mutable {
            return yamaha_Encode(to, from, stereo, s);
        });
}

CodedWriter rockwellWriter(u32 bits) {
    return runWriter(1, 8, bits, false,
                     [=, s = RockwellState()](std::span<const i16> from, std::span<std::byte> to) mutable {
                         return rockwell_Encode(to, from, bits, s);
                     });
}

CodedWriter g726Writer(u32 bits, bool bigEndian) {
    return runWriter(1, 8, bits, false,
                     [=, s = G726State()](std::span<const i16> from, std::span<std::byte> to) mutable {
                         return g72x_Encode(to, from, from.size(), false, bits, bigEndian, s);
                     });
}

CodedWriter g722Writer(u32 bits, bool bigEndian) {
    return runWriter(1, 16, bits, false,
                     [=, s = G722State()](std::span<const i16> from, std::span<std::byte> to) mutable {
                         return g722_Encode(to, from, bits, bigEndian, s);
                     });
}

CodedWriter gsmWriter(bool plainFrames) {
    return runWriter(1, plainFrames ? kGsmFrame : 2 * kGsmFrame,
                     plainFrames ? kGsmPlainBytes : kGsmDoubleBytes, true,
                     [=, s = GsmState()](std::span<const i16> from, std::span<std::byte> to) mutable {
                         return gsm_Encode(s, to, from, from.size(), plainFrames);
                     });
}

CodedWriter usrGsmWriter(u8 mark) {
    return runWriter(1, kGsmFrame, kUsrGsmBytes, true,
                     [=, s = GsmState()](std::span<const i16> from, std::span<std::byte> to) mutable {
                         std::size_t filled = 0;
                         for (; !from.empty(); from = from.subspan(std::min(kGsmFrame, from.size()))) {
                             const std::span<std::byte> record = to.subspan(filled, kUsrGsmBytes);
                             record[0] = record[1] = std::byte{mark};
                             gsm_Encode(s, record.subspan(2, kGsmPlainBytes), from,
                                        std::min(kGsmFrame, from.size()), true);
                             record[35] = std::byte{0};
                             record[36] = record[37] = std::byte{0xA5};
                             filled += kUsrGsmBytes;
                         }
                         return filled;
                     });
}

} // namespace kv
