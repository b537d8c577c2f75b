// The encodings with state against streams of other programs (tests/data/coded/README.md), sample by sample
// and code by code; and what they do where a stream ends or makes no sense.
#include <fmt/format.h>

#include <functional>

#include "formats/codecs/dialogic_adpcm.h"
#include "formats/codecs/g722.h"
#include "formats/codecs/g726.h"
#include "formats/codecs/gsm_0610.h"
#include "formats/codecs/ima_adpcm.h"
#include "formats/codecs/ms_adpcm.h"
#include "formats/codecs/rockwell_adpcm.h"
#include "formats/codecs/yamaha_adpcm.h"
#include "places.h"
#include "test_support.h"

namespace kv {
namespace {

using Samples = std::vector<i16>;

Bytes dataFile(const std::string& name) {
    return test::readFile(std::filesystem::path(KV_SOURCE_DIR "/tests/data/coded") / name);
}
Samples samplesIn(const std::string& name) {
    const Bytes bytes = dataFile(name);
    ByteCursor in(bytes);
    Samples samples;
    while (in.left() >= 2) samples.push_back(in.s16le());
    return samples;
}

/// Decodes a piece of a stream, or encodes one, with a state that goes on from call to call.
using Decode = std::function<std::size_t(ByteSpan from, std::span<i16> to)>;
using Encode = std::function<std::size_t(std::span<const i16> from, std::span<std::byte> to)>;

Decode rockwellDecoder(u32 bits) {
    return [bits, s = RockwellState()](ByteSpan from, std::span<i16> to) mutable {
        return rockwell_Decode(to, from, from.size(), bits, s);
    };
}
Encode rockwellEncoder(u32 bits) {
    return [bits, s = RockwellState()](std::span<const i16> from, std::span<std::byte> to) mutable {
        return rockwell_Encode(to, from, bits, s);
    };
}
Decode g726Decoder(u32 bits, bool bigEndian) {
    return [=, s = G726State()](ByteSpan from, std::span<i16> to) mutable {
        return g72x_Decode(to, from, bits, bigEndian, s);
    };
}
Encode g726Encoder(u32 bits, bool bigEndian) {
    return [=, s = G726State()](std::span<const i16> from, std::span<std::byte> to) mutable {
        return g72x_Encode(to, from, from.size(), false, bits, bigEndian, s);
    };
}
Decode g722Decoder(u32 bits) {
    return [=, s = G722State()](ByteSpan from, std::span<i16> to) mutable {
        return g722_Decode(to, from, from.size(), bits, false, s);
    };
}
Encode g722Encoder(u32 bits) {
    return [=, s = G722State()](std::span<const i16> from, std::span<std::byte> to) mutable {
        return g722_Encode(to, from, bits, false, s);
    };
}
Decode dialogicDecoder() {
    return [s = DialogicState()](ByteSpan from, std::span<i16> to) mutable {
        return dialogic_Decode(to, from, to.size(), s);
    };
}
Decode gsmDecoder() {
    return [s = GsmState()](ByteSpan from, std::span<i16> to) mutable {
        return gsm_Decode(s, to, from, from.size(), true);
    };
}

struct Stream {
    std::string coded, decoded;
    std::size_t pieceBytes, pieceSamples; ///< that whole codes fill
    Decode decode;
    Encode encode; ///< of the test signal; none: others choose other codes
};

std::vector<Stream> streams() {
    std::vector<Stream> all{
        {"vox.vox", "vox", 7, 14, dialogicDecoder(), {}},
        {"vox_enc.vox",
         "",
         7,
         14,
         {},
         [s = DialogicState()](std::span<const i16> from, std::span<std::byte> to) mutable {
             return dialogic_Encode(to, from, s);
         }},
        {"gsm_plain.gsm", "gsm_plain", 33, 160, gsmDecoder(),
         [s = GsmState()](std::span<const i16> from, std::span<std::byte> to) mutable {
             return gsm_Encode(s, to, from, from.size(), true);
         }},
    };
    for (u32 bits = 2; bits <= 4; ++bits) {
        const std::string name = fmt::format("rockwell_{}", bits);
        all.push_back({name + ".bin", name, bits, 8, rockwellDecoder(bits), rockwellEncoder(bits)});
    }
    for (u32 bits = 2; bits <= 5; ++bits) {
        const std::string name = fmt::format("g726_{}", bits);
        all.push_back({name + ".msb", name, bits, 8, g726Decoder(bits, true), g726Encoder(bits, true)});
        all.push_back({name + ".lsb", name, bits, 8, g726Decoder(bits, false), g726Encoder(bits, false)});
    }
    for (u32 bits = 6; bits <= 8; ++bits) {
        const std::string name = fmt::format("g722_{}", bits);
        all.push_back(
            {name + (bits == 8 ? ".bin" : ".lsb"), name, bits, 16, g722Decoder(bits), g722Encoder(bits)});
    }
    return all;
}

TEST(Adpcm, DecodesAsOthersDo) {
    for (Stream& stream : streams()) {
        if (!stream.decode) continue;
        const Bytes coded = dataFile(stream.coded);
        const Samples expected = samplesIn(stream.decoded + ".s16");
        ASSERT_FALSE(expected.empty()) << stream.decoded;
        Samples samples(expected.size());
        for (std::size_t at = 0, out = 0; at < coded.size();
             at += stream.pieceBytes, out += stream.pieceSamples) {
            const ByteSpan piece =
                ByteSpan(coded).subspan(at, std::min(stream.pieceBytes, coded.size() - at));
            stream.decode(piece, std::span(samples).subspan(out));
        }
        EXPECT_EQ(samples, expected) << stream.coded;
    }
}

TEST(Adpcm, EncodesAsOthersDo) {
    const Samples signal = samplesIn("in_8k.s16");
    for (Stream& stream : streams()) {
        if (!stream.encode) continue;
        const Bytes expected = dataFile(stream.coded);
        Bytes coded(expected.size());
        std::size_t filled = 0;
        for (std::size_t at = 0; at < signal.size(); at += stream.pieceSamples) {
            const auto piece =
                std::span(signal).subspan(at, std::min(stream.pieceSamples, signal.size() - at));
            filled += stream.encode(piece, std::span(coded).subspan(filled));
        }
        EXPECT_EQ(filled, expected.size()) << stream.coded;
        EXPECT_TRUE(coded == expected) << stream.coded;
    }
}

TEST(Adpcm, ShortStreamsEndWhereTheirCodesDo) {
    const Bytes bytes(40, std::byte{0x77});
    Samples to(2000);
    struct Case {
        const char* name;
        Decode decode;
        std::size_t bytes, samples;
    };
    const Case cases[] = {
        {"a vox byte has two codes", dialogicDecoder(), 3, 6},
        {"part of a code is none", rockwellDecoder(3), 1, 2},
        {"no such width", rockwellDecoder(5), 40, 0},
        {"part of a code is none, 5 bits", g726Decoder(5, true), 3, 4},
        {"no such width of G.726", g726Decoder(6, true), 40, 0},
        {"two samples a word", g722Decoder(7), 6, 12},
        {"no such width of G.722", g722Decoder(5), 40, 0},
        {"part of a frame is none", gsmDecoder(), 32, 0},
        {"a frame", gsmDecoder(), 34, 160},
    };
    for (const Case& c : cases) EXPECT_EQ(c.decode(ByteSpan(bytes).first(c.bytes), to), c.samples) << c.name;
}

TEST(ImaAdpcm, LimitsItsState) {
    Samples out(16);
    i32 predictor = 0, index = 95; // as 88, where code 7 reaches the limit at once
    ima_Decode(out, Bytes(2, std::byte{0x77}), 4, 4, 0, false, predictor, index);
    EXPECT_EQ(out[0], 32767);
    EXPECT_EQ(index, 88);
    predictor = 0;
    index = -5;
    ima_Decode(out, Bytes(1), 16, 4, 0, false, predictor, index); // what has no codes is silence
    EXPECT_EQ(index, 0);
    EXPECT_EQ(out[15], 0);
    ImaState state{0, 95};
    ima_EncodeSample(32767, state);
    EXPECT_EQ(state.index, 88);
}

TEST(ImaAdpcm, SingleSamplesFollowTheReference) {
    // Codes 0 to 15 from the start: the published recurrence, by hand.
    const i16 expected[] = {0, 1, 4, 8, 15, 27, 47, 88, 82, 66, 41, 10, -28, -84, -181, -380};
    Bytes codes;
    for (u32 code = 0; code < 16; code += 2) codes.push_back(static_cast<std::byte>(code | (code + 1) << 4));
    Samples out(16);
    i32 predictor = 0, index = 0;
    ima_Decode(out, codes, 16, 4, 0, false, predictor, index);
    EXPECT_TRUE(std::equal(out.begin(), out.end(), expected));
    // What the encoder's state says is what the decoder gives.
    ImaState state, decoder;
    for (const i16 sample : samplesIn("in_8k.s16")) {
        const u32 code = ima_EncodeSample(sample, state);
        ima_Decode(out, Bytes{static_cast<std::byte>(code)}, 1, 4, 0, false, decoder.predictor,
                   decoder.index);
        ASSERT_EQ(decoder.predictor, state.predictor);
        ASSERT_EQ(decoder.index, state.index);
    }
}

/// A block of Microsoft's with the given head and codes, mono.
Bytes msBlock(u8 pair, i16 delta, i16 s1, i16 s2, std::initializer_list<u8> codes) {
    ByteWriter out;
    out.u8le(pair).u16le(static_cast<u16>(delta)).u16le(static_cast<u16>(s1)).u16le(static_cast<u16>(s2));
    for (const u8 code : codes) out.u8le(code);
    return out.take();
}

TEST(MsAdpcm, BlocksEndWhereTheyMust) {
    struct Case {
        const char* name;
        Bytes bytes;
        std::size_t blockBytes, perBlock, maxFrames, frames;
    };
    const Bytes one = msBlock(0, 16, 5, 6, {0x12, 0x34}), bad = msBlock(7, 16, 5, 6, {0x12, 0x34});
    Bytes mixed = one;
    mixed.insert(mixed.end(), bad.begin(), bad.end());
    const Case cases[] = {
        {"a whole block", one, 9, 6, 100, 6},
        {"a pair outside the list ends", bad, 9, 6, 100, 0},
        {"and ends behind what was good", mixed, 9, 6, 100, 6},
        {"fewer frames stated", one, 9, 5, 100, 5},
        {"only the first", one, 9, 1, 100, 1},
        {"fewer wanted", one, 9, 6, 3, 3},
        {"more stated than there is room", one, 9, 1000, 100, 6},
        {"a head alone", Bytes(one.begin(), one.begin() + 7), 9, 6, 100, 2},
        {"half a head", Bytes(one.begin(), one.begin() + 6), 9, 6, 100, 0},
        {"blocks of nothing", one, 0, 6, 100, 0},
        {"blocks without a head", one, 3, 6, 100, 0},
    };
    for (const Case& c : cases) {
        Samples out(100);
        EXPECT_EQ(
            msadpcm_Decode(out, c.maxFrames, c.bytes, c.blockBytes, 1, c.perBlock, msStandardCoefficients()),
            c.frames)
            << c.name;
        if (c.frames < 2) continue;
        EXPECT_EQ(std::pair(out[0], out[1]), std::pair(i16{6}, i16{5})) << c.name;
    }
    Samples out(100);
    EXPECT_EQ(msadpcm_Decode(out, 100, one, 9, 1, 6, {}), 0U); // no pairs at all
    // The step stays at 16 or above: codes of 1 on a silent prediction move by it.
    EXPECT_EQ(msadpcm_Decode(out, 100, msBlock(2, 17, 0, 0, {0x11, 0x11}), 9, 1, 6, msStandardCoefficients()),
              6U);
    EXPECT_EQ(out[5], 16);
    // Damaged codes and pairs of the greatest size: the sanitizers watch.
    const MsCoefficients wild[] = {{-32768, -32768}};
    Bytes loud = msBlock(0, 32767, -32768, -32768, {});
    loud.resize(4000, std::byte{0x88});
    Samples many(8000);
    EXPECT_EQ(msadpcm_Decode(many, 8000, loud, loud.size(), 1, 10000, wild), 2 + 2 * (loud.size() - 7));
}

TEST(Gsm, TwoFramesOfTheWavFormTake65Bytes) {
    const Samples signal = samplesIn("in_8k.s16");
    GsmState plain, packed;
    Bytes one(66), two(65);
    ASSERT_EQ(gsm_Encode(plain, one, signal, 320, true), 66U);
    ASSERT_EQ(gsm_Encode(packed, two, signal, 320, false), 65U);
    gsm_Init(plain);
    gsm_Init(packed);
    Samples a(320), b(320);
    EXPECT_EQ(gsm_Decode(plain, a, one, 66, true), 320U);
    EXPECT_EQ(gsm_Decode(packed, b, two, 65, false), 320U);
    EXPECT_EQ(a, b);
    // An odd frame is followed by silence.
    EXPECT_EQ(gsm_Encode(packed, two, signal, 100, false), 65U);
    EXPECT_EQ(gsm_Encode(packed, std::span(two).first(64), signal, 100, false), 0U);
    // A frame without its mark, of codes out of range: decoded as far as it goes.
    const Bytes noise(33, std::byte{0x5F});
    EXPECT_EQ(gsm_Decode(plain, a, noise, 33, true), 160U);
}

} // namespace
} // namespace kv
