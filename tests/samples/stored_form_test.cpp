#include "samples/stored_form.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace kv {
namespace {

Bytes bytes(std::initializer_list<int> values) {
    Bytes out;
    for (const int v : values) out.push_back(static_cast<std::byte>(v));
    return out;
}

std::vector<i16> decode16(u32 word, const Bytes& from, std::size_t count) {
    std::vector<i16> samples(count);
    SampleDecoder(word).decode(from, samples);
    return samples;
}
std::vector<f32> decodeFloat(u32 word, const Bytes& from, std::size_t count) {
    std::vector<f32> samples(count);
    SampleDecoder(word).decode(from, samples);
    return samples;
}

TEST(StoredForm, SixteenBitFormsByHand) {
    struct Case {
        const char* name;
        u32 word;
        Bytes stored;
        std::vector<i16> samples;
    };
    const Case cases[] = {
        {"as stored", kPcm16, bytes({0x34, 0x12}), {0x1234}},
        {"swapped", kPcm16 | kByteswap, bytes({0x12, 0x34}), {0x1234}},
        {"unsigned", kPcm16 | kUnsigned, bytes({0x00, 0x80, 0, 0}), {0, -32768}},
        {"padded 12", kPcm12 | kPaddedMsb, bytes({0xFF, 0x0F, 0x34, 0xF2}), {-16, 0x2340}},
        {"packed 12, low first", kPcm12, bytes({0x34, 0xA2, 0x5B}), {0x2340, 0x5BA0}},
        {"packed 12, high first",
         kPcm12 | kByteswap,
         bytes({0x12, 0x3A, 0xBC}),
         {0x1230, static_cast<i16>(0xABC0)}},
        {"packed 12, odd", kPcm12 | kByteswap, bytes({0x12, 0x3A}), {0x1230}},
        {"unsigned 12", kPcm12 | kByteswap | kUnsigned, bytes({0x80, 0x00}), {0}},
        {"delta 8", kDeltaPcm8, bytes({1, 1, 0xFF}), {385, 642, 385}},
        {"delta 8 unsigned", kDeltaPcm8 | kUnsigned, bytes({0x80, 0x7F, 1}), {128, 32767, -32768}},
        {"delta 16", kDeltaPcm16, bytes({0xFF, 0x7F, 1, 0, 2, 0}), {32767, -32768, -32766}},
        {"delta 16 swapped", kDeltaPcm16 | kByteswap, bytes({0, 5, 0, 5}), {5, 10}},
        {"byte delta", kByteDeltaPcm16, bytes({1, 1, 1, 0xFF}), {0x0201, 0x0203}},
        {"reversed mu-law", kRevMuLaw, bytes({0x01, 0xFE}), {32124, static_cast<i16>(0)}},
        {"reversed A-law", kRevALaw, bytes({0xAB}), {8}},
    };
    for (const Case& c : cases) {
        if (std::string_view(c.name) == "reversed mu-law") {
            // 0x01 reversed is 0x80, 0xFE reversed is 0x7F.
            EXPECT_EQ(decode16(c.word, c.stored, 2), decode16(kMuLaw, bytes({0x80, 0x7F}), 2));
            continue;
        }
        EXPECT_EQ(decode16(c.word, c.stored, c.samples.size()), c.samples) << c.name;
    }
}

TEST(StoredForm, FloatFormsByHand) {
    constexpr f32 kHalf = 0.5F;
    struct Case {
        const char* name;
        u32 word;
        Bytes stored;
        std::vector<f32> samples;
    };
    const Case cases[] = {
        {"24", kPcm24, bytes({0, 0, 0x40, 0, 0, 0xC0}), {kHalf, -kHalf}},
        {"24 swapped", kPcm24 | kByteswap, bytes({0x40, 0, 0}), {kHalf}},
        {"24 unsigned",
         kPcm24 | kUnsigned,
         bytes({0, 0, 0xC0, 0, 0, 0, 0xFF, 0xFF, 0xFF}),
         {kHalf, -1.0F, 1.0F - 0x1p-23F}},
        // The stride stays three bytes, so what comes in is what a packed file would give.
        {"24 padded", kPcm24 | kPaddedMsb, bytes({0, 0, 0x40, 0, 0, 0xC0, 9, 9}), {kHalf, -kHalf}},
        {"32", kPcm32, bytes({0, 0, 0, 0x40}), {kHalf}},
        {"32 unsigned", kPcm32 | kUnsigned, bytes({0, 0, 0, 0xC0, 0, 0, 0, 0}), {kHalf, -1.0F}},
        {"32 swapped", kPcm32 | kByteswap, bytes({0x40, 0, 0, 0}), {kHalf}},
        {"float swapped", kFloat32 | kByteswap, bytes({0x3F, 0, 0, 0}), {kHalf}},
        {"double", kFloat64, bytes({0, 0, 0, 0, 0, 0, 0xE0, 0x3F}), {kHalf}},
        // Inverted polarity, on purpose.
        {"20 low first", kPcm20, bytes({0x00, 0x00, 0x04, 0x00, 0xC0}), {-kHalf, kHalf}},
        {"20 high first", kPcm20 | kByteswap, bytes({0x40, 0x00, 0x0C, 0x00, 0x00}), {-kHalf, kHalf}},
        // A sixteenth of full scale, and no sign.
        {"20 padded", kPcm20 | kPaddedMsb, bytes({0, 0, 0x40, 0, 0, 0xC0}), {-kHalf / 16, -0x1.8p-4F}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(decodeFloat(c.word, c.stored, c.samples.size()), c.samples) << c.name;
}

TEST(StoredForm, SizesAndKinds) {
    EXPECT_EQ(StoredForm(kPcm12).storedBytes(3), 5U);
    EXPECT_EQ(StoredForm(kPcm12 | kPaddedMsb).storedBytes(3), 6U);
    EXPECT_EQ(StoredForm(kPcm20).storedBytes(3), 8U);
    EXPECT_EQ(StoredForm(kPcm24 | kPaddedMsb).storedBytes(2), 8U);
    EXPECT_EQ(StoredForm(kGsm).storedBits(), 0U);
    EXPECT_EQ(StoredForm(kPcm8 | kPcm16).storedBits(), 0U); // more than one code
    EXPECT_TRUE(StoredForm(kPcm16 | kMonoBit).isWorkingForm());
    for (const u32 word : {kPcm16 | kUnsigned, kPcm16 | kByteswap, kFloat32 | kByteswap, kPcm24}) {
        EXPECT_FALSE(StoredForm(word).isWorkingForm());
    }
    for (const u32 code : {kPcm12, kPcm20, kByteDeltaPcm16, kAdpcm4})
        EXPECT_EQ(StoredForm(code).writtenBytes(), 0U);
    EXPECT_TRUE(StoredForm(kPcm16 | kMonoBit).sameAs(StoredForm(kPcm16 | kStereoBit)));
    EXPECT_FALSE(StoredForm(kPcm16).sameAs(StoredForm(kPcm16 | kUnsigned)));
}

template <class T>
void settles(u32 word, const std::vector<T>& samples) {
    Bytes once(samples.size() * StoredForm(word).writtenBytes()), twice(once.size());
    SampleEncoder(word).encode(std::span<const T>(samples), once);
    std::vector<T> back(samples.size());
    SampleDecoder(word).decode(once, back);
    SampleEncoder(word).encode(std::span<const T>(back), twice);
    EXPECT_EQ(once, twice) << std::hex << word;
    // In two pieces, state and all.
    Bytes pieces(once.size());
    SampleEncoder encoder(word);
    const std::size_t cut = samples.size() / 3, bytesPerSample = StoredForm(word).writtenBytes();
    encoder.encode(std::span<const T>(samples).first(cut), std::span(pieces).first(cut * bytesPerSample));
    encoder.encode(std::span<const T>(samples).subspan(cut), std::span(pieces).subspan(cut * bytesPerSample));
    EXPECT_EQ(pieces, once) << std::hex << word;
}

TEST(StoredForm, WrittenFormsDecodeToThemselves) {
    std::mt19937 random(3);
    std::vector<i16> integers(1001);
    for (i16& s : integers) s = static_cast<i16>(random());
    std::vector<f32> floats(1001);
    for (f32& x : floats) x = static_cast<f32>(static_cast<i32>(random())) * 0x1p-31F;
    for (const u32 flags : {0U, kUnsigned, kByteswap, kUnsigned | kByteswap}) {
        for (const u32 code : {kPcm8, kPcm16, kALaw, kRevALaw, kDeltaPcm8}) settles(code | flags, integers);
        for (const u32 code : {kPcm24, kPcm32, kFloat32, kFloat64}) settles(code | flags, floats);
    }
    settles(kDeltaPcm16, integers);
    settles(kDeltaPcm16 | kByteswap, integers);
}

TEST(StoredForm, EitherWorkingFormEncodesTheSame) {
    std::vector<i16> integers(65536);
    std::vector<f32> floats(65536);
    for (std::size_t i = 0; i < integers.size(); ++i) {
        integers[i] = static_cast<i16>(i);
        floats[i] = static_cast<f32>(integers[i]) / 32768;
    }
    for (const u32 word : {kPcm24, kPcm24 | kUnsigned | kByteswap, kFloat32, kFloat32 | kByteswap}) {
        ASSERT_TRUE(StoredForm(word).encodesFromEither());
        Bytes a(integers.size() * StoredForm(word).writtenBytes()), b(a.size());
        SampleEncoder(word).encode(integers, a);
        SampleEncoder(word).encode(floats, b);
        EXPECT_EQ(a, b) << std::hex << word;
    }
}

TEST(DataFormat, CodesAreFoundByValueAndName) {
    EXPECT_EQ(formatCodes().size(), 23U);
    for (const FormatCode& row : formatCodes()) {
        u32 bits = 99;
        EXPECT_TRUE(FormatCodeInfo(row.code, nullptr, &bits));
        EXPECT_EQ(bits, row.bits);
        EXPECT_EQ(FormatCodeByName(row.name), row.code);
    }
    EXPECT_EQ(FormatCodeByName("pcm 24-BIT"), kPcm24);
    EXPECT_FALSE(FormatCodeInfo(kPcm8 | kPcm16, nullptr, nullptr));
    const std::pair<f32, u32> rates[] = {{0, 8},     {12, 8},    {12.1F, 16}, {104, 96},
                                         {105, 112}, {288, 256}, {289, 320},  {999, 320}};
    for (const auto& [kbps, wanted] : rates) EXPECT_EQ(nearestCompressedRate(kbps), wanted) << kbps;
}

} // namespace
} // namespace kv
