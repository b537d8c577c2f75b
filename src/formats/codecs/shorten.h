// Shorten: lossless packing by polynomial or linear prediction and Rice codes. Document: Tony Robinson,
// "SHORTEN: Simple lossless and near-lossless waveform compression", CUED/F-INFENG/TR.156 (1994).
#pragma once

#include <array>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "base/byte_source.h"

namespace kv {

/// What the samples were before packing, by number in the file.
enum class ShortenType : u32 {
    MuLawRanks, ///< mu-law bytes in the order of their values, of the two zeros one far off
    Signed8,
    Unsigned8,
    Signed16Big,
    Unsigned16Big,
    Signed16Little,
    Unsigned16Little,
    MuLawValues,   ///< the values of mu-law bytes, an eighth of 16 bits
    MuLawAllRanks, ///< mu-law bytes in the order of their values
    ALawRanks,     ///< not read here
    ALawValues,    ///< the values of A-law bytes, an eighth of 16 bits
};

/// The mu-law byte of a 16-bit value by the rules of ITU-T G.711, so that what was decoded from a byte finds
/// it again, but for the second zero.
u8 muLawByte(i32 value);

struct ShortenHeader {
    u32 version = 0; ///< 1 to 3
    ShortenType type = ShortenType::Signed16Little;
    u32 channels = 0;
};

/// Decodes a stream from its beginning.
class ShortenDecoder {
public:
    /// Null with the error pair set when it is no such stream, or one of a kind that isn't read.
    static std::unique_ptr<ShortenDecoder> open(const std::shared_ptr<ByteSource>& source);
    virtual ~ShortenDecoder() = default;

    virtual const ShortenHeader& header() const = 0;
    /// Decodes one block of all channels; answers its frames, 0 at the end or where the stream is damaged.
    virtual std::size_t nextBlock() = 0;
    /// The first channels of the last block, interleaved, as 16-bit samples.
    virtual void interleave(u32 channels, std::span<i16> to) const = 0;
    /// Foreign bytes that came so far: those of the packed file that are no samples, such as its header.
    virtual ByteSpan foreignBytes() const = 0;
    /// How many of them stood ahead of the first sample.
    virtual std::size_t foreignHeadBytes() const = 0;
};

/// Packs samples as a stream of version 2.
class ShortenEncoder {
public:
    /// `type` is Unsigned8, Signed16Little or MuLawAllRanks.
    ShortenEncoder(ShortenType type, u32 channels);

    void foreign(ByteSpan bytes);
    /// Packs whole frames of interleaved samples: numbers of the type, or mu-law bytes. Only the last call
    /// may have other than a multiple of 256 frames.
    void samples(std::span<const i32> interleaved);
    void finish();
    /// What was packed since the last call, whole bytes.
    Bytes take();

    static constexpr std::size_t kBlockFrames = 256;
    static constexpr std::size_t kHeadBytes = 5; ///< ahead of the bits, which come in words of 32

private:
    void bits(u32 value, u32 count);
    void code(u32 value, u32 lowBits);
    void number(u32 value);
    void block();

    ShortenType type_;
    u32 channels_;
    std::vector<std::array<i32, 3>> before_; ///< of each channel, the last three samples
    std::vector<i32> run_;                   ///< of one channel: those three and a block
    std::size_t blockFrames_ = kBlockFrames;
    Bytes out_;
    u64 pending_ = 0;
    u32 pendingBits_ = 0;
    u64 written_ = 0; ///< bytes
};

} // namespace kv
