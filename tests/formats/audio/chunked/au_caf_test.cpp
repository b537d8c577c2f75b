// AU and CAF files as no program here writes them.
#include <bit>

#include "formats/audio/chunked/chunked_test.h"

namespace kv {
namespace {

using test::firstSamples;
using namespace std::string_view_literals;

class AuCaf : public test::FormatTest {
protected:
    const std::vector<i16> samples{100, -200, 300, -400};

    static void addCafChunk(ByteWriter& out, std::string_view id, ByteSpan contents) {
        out.text(id).u64be(contents.size()).bytes(contents);
    }
    struct Desc {
        std::string_view format = "lpcm";
        u32 flags = 0, packetBytes = 2, packetFrames = 1, channels = 1, bits = 16;
        f64 rate = 44100;
    };
    static Bytes caf(const Desc& d, ByteSpan data, ByteSpan more = {}) {
        ByteWriter out, desc, contents;
        desc.u64be(std::bit_cast<u64>(d.rate)).text(d.format).u32be(d.flags).u32be(d.packetBytes);
        desc.u32be(d.packetFrames).u32be(d.channels).u32be(d.bits);
        out.text("caff").u16be(1).u16be(0);
        addCafChunk(out, "desc", desc.view());
        addCafChunk(out, "data", contents.u32be(0).bytes(data).view());
        return out.bytes(more).take();
    }
    static void addMarker(ByteWriter& out, std::string_view type, f64 position, u32 id) {
        out.text(type).u64be(std::bit_cast<u64>(position)).u32be(id).fill(12);
    }
};

TEST_F(AuCaf, HeadersOfAllMakers) {
    struct Case {
        std::string_view magic;
        bool big;
        const char* name;
        u32 size, offset;
    };
    const Case cases[] = {
        {".snd"sv, true, "a.au", 8, 24},  {"dns."sv, false, "a.au", 8, 24},
        {".sd\0"sv, true, "a.au", 8, 28}, {"\0ds."sv, false, "a.snd", 8, 24},
        {".snd"sv, true, "a.snd", 8, 32}, {".snd"sv, true, "a", 0xFFFFFFFF, 24},
        {".snd"sv, true, "a.au", 0, 24},  {".snd"sv, true, "a.au", 1000, 24},
        {"dns."sv, false, "a.bin", 8, 0},
    };
    for (const Case& c : cases) {
        ByteWriter out;
        const auto order = c.big ? std::endian::big : std::endian::little;
        out.text(c.magic).integer(c.offset, order).integer(c.size, order);
        out.integer(3U, order).integer(22050U, order).integer(1U, order);
        if (c.offset > 24) out.text("text\0\0\0\0"sv.substr(0, c.offset - 24));
        out.bytes(c.big ? test::bigEndian16(samples) : test::int16Bytes(samples));
        Wave* wave = import(out.view(), c.name);
        ASSERT_TRUE(wave) << c.name << failure();
        EXPECT_EQ(wave->comments, c.offset > 24 ? "text" : "");
        EXPECT_EQ(wave->sampleRate, 22050U);
        EXPECT_EQ(firstSamples(*wave), samples) << c.magic << c.name;
    }
    ByteWriter out;
    EXPECT_FALSE(
        import(out.text(".snd").u32be(24).u32be(8).u32be(9).u32be(8000).u32be(1).fill(8).view(), "a.au"));
    EXPECT_EQ(failure(), "au_Imp: Encoding 9 is not supported");
}

TEST_F(AuCaf, CafHoldsLinearSamplesOfManySizes) {
    struct Case {
        Desc desc;
        std::string_view data;
        std::vector<i16> wanted; ///< empty: refused
        u32 bits;
    };
    const Case cases[] = {
        {{.flags = 2}, "\x34\x12\xDC\xFE"sv, {0x1234, -0x124}, 16},
        {{}, "\x12\x34\xFE\xDC"sv, {0x1234, -0x124}, 16},
        {{.bits = 12}, "\x12\x30\xFE\xD0"sv, {0x1230, -0x130}, 12},
        {{.flags = 2, .packetBytes = 4, .bits = 24}, "\0\0\x34\x12\0\0\xDC\xFE"sv, {0x1234, -0x124}, 24},
        {{.flags = 1, .packetBytes = 8, .bits = 64}, "\x3F\xE0\0\0\0\0\0\0"sv, {0x4000}, 64},
        {{.packetBytes = 0}, "\x12\x34"sv, {0x1234}, 16},
        {{.packetBytes = 6, .channels = 3}, "\x12\x34\0\1\0\0\xFE\xDC\0\2\0\0"sv, {0x1234, 1, -0x124, 2}, 16},
        {{.flags = 32}, "\x12\x34"sv, {}, 0}, // planes
        {{.flags = 1}, "\x12\x34"sv, {}, 0},  // half floats
        {{.packetBytes = 3, .channels = 2}, "\x12\x34\0"sv, {}, 0},
        {{.bits = 17}, "\x12\x34"sv, {}, 0},
        {{.channels = 0}, "\x12\x34"sv, {}, 0},
        {{.rate = -1}, "\x12\x34"sv, {}, 0},
    };
    for (const Case& c : cases) {
        Wave* wave = import(caf(c.desc, bytesOf(c.data)), "a.caf");
        ASSERT_EQ(wave != nullptr, !c.wanted.empty()) << c.desc.flags << " " << c.desc.bits;
        if (!wave) continue;
        EXPECT_EQ(firstSamples(*wave), c.wanted) << c.desc.flags << " " << c.desc.bits;
        EXPECT_EQ(wave->bits, c.bits);
    }
    EXPECT_FALSE(import(caf({.format = "alac"}, {}), "a.caf"));
    EXPECT_EQ(failure(), "caf_Imp: Compression type \"alac\" is not supported");
}

TEST_F(AuCaf, CafPlacesOfOtherProgramsAreTaken) {
    // A loop between markers only; and a size that was never known.
    ByteWriter marks, more;
    marks.u32be(0).u32be(3);
    addMarker(marks, "slbg", 0.5, 1);
    addMarker(marks, "slen", 3.25, 2);
    addMarker(marks, "indx", 2, 3);
    addCafChunk(more, "mark", marks.view());
    addCafChunk(more, "strg",
                bytesOf("\0\0\0\2\0\0\0\3\0\0\0\0\0\0\0\2\0\0\0\1\0\0\0\0\0\0\0\x7Fx\0index\0"sv));
    addCafChunk(more, "info", bytesOf("\0\0\0\2TITLE\0Gro\xC3\x9F\0recording engineer\0E\0"sv));
    Wave* wave = import(caf({}, test::bigEndian16(samples), more.view()), "a.caf");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(wave->name(), "Gro\xC3\x9F");
    EXPECT_EQ(wave->engineer, "E");
    EXPECT_TRUE(wave->params.looped());
    EXPECT_EQ(wave->params.loopStart, 0.5);
    EXPECT_EQ(wave->params.loopEnd, 3.25);
    ASSERT_EQ(wave->cuePoints.size(), 1U);
    EXPECT_EQ(wave->cuePoints[0], (CuePoint{2, 0, "index", {}}));

    Bytes open = caf({}, test::bigEndian16(samples));
    const std::size_t size = textOf(open).find("data") + 4;
    for (const u8 value : {u8{0xFF}, u8{0}}) {
        std::fill_n(open.begin() + static_cast<std::ptrdiff_t>(size), 8, std::byte{value});
        wave = import(open, "a.caff");
        ASSERT_TRUE(wave) << failure();
        EXPECT_EQ(firstSamples(*wave), samples);
    }
}

TEST_F(AuCaf, PacketTableEndsAStream) {
    Bytes packets(34 * 2);
    packets[1] = std::byte{5};
    packets[2] = packets[3] = std::byte{0x77};
    ByteWriter table, more;
    table.u64be(2).u64be(100).u32be(0).u32be(28);
    addCafChunk(more, "pakt", table.view());
    Wave* wave = import(
        caf({.format = "ima4", .packetBytes = 34, .packetFrames = 64, .bits = 0}, packets, more.view()),
        "a.caf");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(wave->frames, 100U);
    EXPECT_EQ(firstSamples(*wave, 200).size(), 100U);
    EXPECT_EQ(wave->preferredFormat, kPcm16);
}

} // namespace
} // namespace kv
