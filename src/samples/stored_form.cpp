#include "samples/stored_form.h"

#include <algorithm>
#include <cassert>
#include <cstring>

#include "samples/kernels.h"

namespace kv {
namespace {

/// One row for each form: bits in the file, packed and padded; the working form; bytes when written.
struct FormRow {
    u32 code;
    u8 packedBits, paddedBits;
    bool toFloat;
    u8 writtenBytes;
};
constexpr FormRow kForms[] = {
    {kPcm8, 8, 8, false, 1},         {kMuLaw, 8, 8, false, 1},
    {kALaw, 8, 8, false, 1},         {kDeltaPcm8, 8, 8, false, 1},
    {kRevMuLaw, 8, 8, false, 1},     {kRevALaw, 8, 8, false, 1},
    {kPcm12, 12, 16, false, 0},      {kPcm16, 16, 16, false, 2},
    {kDeltaPcm16, 16, 16, false, 2}, {kByteDeltaPcm16, 16, 16, false, 0},
    {kPcm20, 20, 24, true, 0},       {kPcm24, 24, 32, true, 3},
    {kPcm32, 32, 32, true, 4},       {kFloat32, 32, 32, true, 4},
    {kFloat64, 64, 64, true, 8},
};

const FormRow* findForm(u32 code) {
    for (const FormRow& row : kForms) {
        if (row.code == code) return &row;
    }
    return nullptr;
}

u32 byteAt(ByteSpan bytes, std::size_t i) {
    return std::to_integer<u32>(bytes[i]);
}

template <class T>
void copyBytes(ByteSpan from, std::span<T> to) {
    std::memcpy(to.data(), from.data(), std::min(from.size(), to.size_bytes()));
}

void invertTopBit(std::span<i16> samples) {
    for (i16& s : samples) s = static_cast<i16>(s ^ 0x8000);
}

/// Two samples in three bytes.
void decodePacked12(ByteSpan from, bool swapped, std::span<i16> to) {
    for (std::size_t i = 0; i < to.size(); ++i) {
        const std::size_t at = i / 2 * 3;
        const u32 b1 = byteAt(from, at + 1);
        u32 v = 0;
        if (i % 2 == 0) {
            const u32 b0 = byteAt(from, at);
            v = swapped ? b0 << 8 | (b1 & 0xF0) : (b1 << 8 | b0) << 4;
        } else {
            const u32 b2 = byteAt(from, at + 2);
            v = swapped ? (b1 << 8 | b2) << 4 : b2 << 8 | (b1 & 0xF0);
        }
        to[i] = static_cast<i16>(v);
    }
}

/// 20-bit samples come in with inverted polarity.
constexpr f32 kPcm20Scale = -0x1p-31F;

/// A bit stream; swapped: most significant bits first.
void decodePacked20(ByteSpan from, bool swapped, std::span<f32> to) {
    for (std::size_t i = 0; i < to.size(); ++i) {
        const std::size_t bit = i * 20, at = bit / 8;
        u32 v = byteAt(from, at);
        if (swapped) {
            v = v << 16 | byteAt(from, at + 1) << 8 | byteAt(from, at + 2);
            v = bit % 8 == 0 ? v >> 4 : v & 0xFFFFF;
        } else {
            v |= byteAt(from, at + 1) << 8 | byteAt(from, at + 2) << 16;
            v = bit % 8 == 0 ? v & 0xFFFFF : v >> 4;
        }
        to[i] = static_cast<f32>(static_cast<i32>(v << 12)) * kPcm20Scale;
    }
}

/// Shifted as if the word had 28 bits: a sixteenth of full scale, without sign.
void decodePadded20(ByteSpan from, std::span<f32> to) {
    for (std::size_t i = 0; i < to.size(); ++i) {
        const u32 v =
            byteAt(from, 3 * i) << 4 | byteAt(from, 3 * i + 1) << 12 | byteAt(from, 3 * i + 2) << 20;
        to[i] = static_cast<f32>(static_cast<i32>(v)) * kPcm20Scale;
    }
}

void decode24(ByteSpan from, bool isUnsigned, std::span<f32> to) {
    packed24ToFloat(from.first(3 * to.size()), to);
    if (!isUnsigned) return;
    for (f32& x : to) x += x < 0 ? 1.0F : -1.0F; // exact: the top bit inverted
}

} // namespace

u32 StoredForm::storedBits() const {
    const FormRow* row = findForm(code());
    return !row ? 0 : padded() ? row->paddedBits : row->packedBits;
}

bool StoredForm::isFloat() const {
    const FormRow* row = findForm(code());
    return row && row->toFloat;
}

bool StoredForm::sameAs(StoredForm other) const {
    constexpr u32 kMeaning = kCodeMask | kSequential | kUnsigned | kByteswap | kPaddedMsb;
    return (word_ & kMeaning) == (other.word_ & kMeaning);
}

bool StoredForm::isWorkingForm() const {
    return !swapped() && ((code() == kPcm16 && !isUnsigned()) || code() == kFloat32);
}

bool StoredForm::decodesInPieces() const {
    // Padded 24 bits are read with a stride of three bytes all the same.
    return storedBits() % 8 == 0 && !(code() == kPcm24 && padded());
}

u32 StoredForm::writtenBytes() const {
    const FormRow* row = findForm(code());
    return row ? row->writtenBytes : 0;
}

/// The bytes as the decoder wants them: most significant last.
ByteSpan SampleDecoder::inOrder(ByteSpan from, std::size_t bytesPerSample) {
    if (!form_.swapped() || bytesPerSample < 2) return from;
    scratch_.assign(from.begin(), from.end());
    ByteSwap(scratch_, bytesPerSample);
    return scratch_;
}

void SampleDecoder::decode(ByteSpan from, std::span<i16> to) {
    assert(!form_.isFloat() && from.size() >= form_.storedBytes(to.size()));
    const u32 bits = form_.storedBits();
    if (bits % 16 == 0) from = inOrder(from, bits / 8);
    switch (form_.code()) {
        case kPcm8:
            bytesToInt16(from, form_.isUnsigned(), to);
            return;
        case kMuLaw:
            muLawToInt16(from, to);
            return;
        case kALaw:
            aLawToInt16(from, to);
            return;
        case kRevMuLaw:
        case kRevALaw:
            scratch_.assign(from.begin(), from.end());
            ReverseBits(scratch_);
            if (form_.code() == kRevMuLaw)
                muLawToInt16(scratch_, to);
            else
                aLawToInt16(scratch_, to);
            return;
        case kDeltaPcm8:
            scratch_.assign(from.begin(), from.end());
            for (std::byte& b : scratch_) {
                sum_ = static_cast<u8>(sum_ + std::to_integer<u8>(b));
                b = static_cast<std::byte>(sum_);
            }
            bytesToInt16(scratch_, form_.isUnsigned(), to);
            return;
        case kPcm12:
            if (form_.padded()) {
                copyBytes(from, to);
                for (i16& s : to) s = static_cast<i16>(static_cast<u16>(s) << 4);
            } else {
                decodePacked12(from, form_.swapped(), to);
            }
            break;
        case kDeltaPcm16:
            copyBytes(from, to);
            for (i16& s : to) s = static_cast<i16>(sum_ = static_cast<u16>(sum_ + static_cast<u16>(s)));
            break;
        case kByteDeltaPcm16:
            scratch_.assign(from.begin(), from.end());
            for (std::byte& b : scratch_) {
                sum_ = static_cast<u8>(sum_ + std::to_integer<u8>(b));
                b = static_cast<std::byte>(sum_);
            }
            copyBytes(scratch_, to);
            break;
        default:
            copyBytes(from, to);
            break;
    }
    if (form_.isUnsigned()) invertTopBit(to);
}

void SampleDecoder::decode(ByteSpan from, std::span<f32> to) {
    assert(form_.isFloat() && from.size() >= form_.storedBytes(to.size()));
    const u32 bits = form_.storedBits();
    if (bits % 8 == 0) from = inOrder(from, bits / 8);
    switch (form_.code()) {
        case kPcm20:
            if (form_.padded())
                decodePadded20(from, to);
            else
                decodePacked20(from, form_.swapped(), to);
            return;
        case kPcm24:
            decode24(from, form_.isUnsigned(), to);
            return;
        case kPcm32:
            for (std::size_t i = 0; i < to.size(); ++i) {
                u32 v = 0;
                std::memcpy(&v, &from[4 * i], 4);
                if (form_.isUnsigned()) v ^= 0x80000000;
                to[i] = static_cast<f32>(static_cast<i32>(v)) * 0x1p-31F;
            }
            return;
        case kFloat64:
            for (std::size_t i = 0; i < to.size(); ++i) {
                f64 v = 0;
                std::memcpy(&v, &from[8 * i], 8);
                to[i] = static_cast<f32>(v);
            }
            return;
        default:
            copyBytes(from, to);
            return;
    }
}

/// Sign and byte order of 24-bit samples.
void SampleEncoder::finish24(std::span<std::byte> samples) const {
    if (form_.isUnsigned()) {
        for (std::size_t i = 2; i < samples.size(); i += 3) samples[i] ^= std::byte{0x80};
    }
    if (form_.swapped()) ByteSwap(samples, 3);
}

void SampleEncoder::encode(std::span<const i16> from, std::span<std::byte> to) {
    assert(to.size() == from.size() * form_.writtenBytes());
    switch (form_.code()) {
        case kMuLaw:
        case kRevMuLaw:
            int16ToMuLaw(from, to);
            break;
        case kALaw:
        case kRevALaw:
            int16ToALaw(from, to);
            break;
        case kPcm8:
        case kDeltaPcm8:
            int16ToBytes(from, form_.isUnsigned(), to);
            break;
        case kPcm24:
            int16ToPacked24(from, to);
            finish24(to);
            return;
        case kFloat32:
            int16ToFloat(from, {reinterpret_cast<f32*>(to.data()), from.size()});
            if (form_.swapped()) ByteSwap(to, 4);
            return;
        default:
            std::memcpy(to.data(), from.data(), to.size());
    }
    if (form_.code() == kRevMuLaw || form_.code() == kRevALaw) ReverseBits(to);
    if (form_.code() == kDeltaPcm8) {
        for (std::byte& b : to) {
            const u8 value = std::to_integer<u8>(b);
            b = static_cast<std::byte>(value - last_);
            last_ = value;
        }
    }
    if (form_.writtenBytes() != 2) return;
    for (std::size_t i = 0; i < from.size(); ++i) {
        u16 v = static_cast<u16>(from[i]);
        if (form_.code() == kDeltaPcm16) {
            const u16 value = v;
            v = static_cast<u16>(value - last_);
            last_ = value;
        } else if (form_.isUnsigned()) {
            v ^= 0x8000;
        } else {
            break;
        }
        std::memcpy(&to[2 * i], &v, 2);
    }
    if (form_.swapped()) ByteSwap(to, 2);
}

void SampleEncoder::encode(std::span<const f32> from, std::span<std::byte> to) {
    assert(to.size() == from.size() * form_.writtenBytes());
    switch (form_.code()) {
        case kPcm24:
            floatToPacked24(from, to);
            finish24(to);
            return;
        case kPcm32:
            for (std::size_t i = 0; i < from.size(); ++i) {
                u32 v = static_cast<u32>(quantise(from[i], 32));
                if (form_.isUnsigned()) v ^= 0x80000000;
                std::memcpy(&to[4 * i], &v, 4);
            }
            break;
        case kFloat64:
            for (std::size_t i = 0; i < from.size(); ++i) {
                const f64 v = from[i];
                std::memcpy(&to[8 * i], &v, 8);
            }
            break;
        default:
            std::memcpy(to.data(), from.data(), to.size());
    }
    if (form_.swapped()) ByteSwap(to, form_.writtenBytes());
}

} // namespace kv
