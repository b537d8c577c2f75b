// Stored forms of samples by data format word, decoded to and encoded from the working forms: 16-bit
// integers and floats, both interleaved.
#pragma once

#include <span>
#include <vector>

#include "base/bytes.h"
#include "samples/data_format.h"

namespace kv {

/// What a data format word says of a run of samples.
class StoredForm {
public:
    explicit StoredForm(u32 word) : word_(word) {}

    u32 code() const { return word_ & kCodeMask; }
    bool swapped() const { return (word_ & kByteswap) != 0; }
    bool padded() const { return (word_ & kPaddedMsb) != 0; }
    bool isUnsigned() const { return (word_ & kUnsigned) != 0; }
    bool sequential() const { return (word_ & kSequential) != 0; }

    /// Bits that a sample takes in the file; 0 for a form that is not read here.
    u32 storedBits() const;
    /// Bytes of `count` samples.
    u64 storedBytes(u64 count) const { return (count * storedBits() + 7) / 8; }
    /// Decodes to float, else to 16-bit integers.
    bool isFloat() const;
    /// The same bytes mean the same samples; channel bits of the words don't count.
    bool sameAs(StoredForm other) const;
    /// The stored bytes are the working form's.
    bool isWorkingForm() const;
    /// Decodes in pieces of any number of samples; else only as a whole.
    bool decodesInPieces() const;

    /// Bytes per sample when written; 0 for a form that is not.
    u32 writtenBytes() const;
    /// Encodes from float, else from 16-bit integers.
    bool encodesFromFloat() const { return writtenBytes() >= 3; }
    /// Encodes from 16-bit integers as well, with the same result as by way of float.
    bool encodesFromEither() const { return code() == kPcm24 || code() == kFloat32; }

private:
    u32 word_;
};

/// Decodes a run of samples, in pieces where the form allows. Planes of sequential stereo are the caller's
/// matter.
class SampleDecoder {
public:
    explicit SampleDecoder(u32 word) : form_(word) {}

    /// Decodes to.size() samples of a form for 16 bits from as many stored bytes.
    void decode(ByteSpan from, std::span<i16> to);
    /// Likewise for a form for float.
    void decode(ByteSpan from, std::span<f32> to);

private:
    ByteSpan inOrder(ByteSpan from, std::size_t bytesPerSample);

    StoredForm form_;
    u16 sum_ = 0; ///< of all differences so far
    Bytes scratch_;
};

/// Encodes a run of samples, in pieces.
class SampleEncoder {
public:
    explicit SampleEncoder(u32 word) : form_(word) {}

    /// Encodes into from.size() * writtenBytes() bytes.
    void encode(std::span<const i16> from, std::span<std::byte> to);
    void encode(std::span<const f32> from, std::span<std::byte> to);

private:
    void finish24(std::span<std::byte> samples) const;

    StoredForm form_;
    u16 last_ = 0; ///< what the next difference refers to
};

} // namespace kv
