// Files of other programs read here, and our files read by them, sample by sample.
#include "formats/audio/classic/classic_test.h"

namespace kv {
namespace {

class Peers : public test::ClassicTest {
protected:
    /// What a program makes of a file, as 16-bit samples.
    std::vector<i16> peerReads(const std::string& program, const std::string& name) {
        std::filesystem::remove(folder / "peer.s16");
        const bool done = program == "sox" ? run("sox -D " + name + " -t raw -e signed -b 16 -L peer.s16")
                          : program == "ffmpeg" ? run("ffmpeg -v error -y -i " + name + " -f s16le peer.s16")
                                                : run("sndfile-convert -pcm16 " + name + " peer.au") &&
                                                      run("sox peer.au -t raw -e signed -b 16 -L peer.s16");
        EXPECT_TRUE(done) << program << " can't read " << name;
        const Bytes bytes = test::readFile(folder / "peer.s16");
        std::vector<i16> samples;
        for (ByteCursor in(bytes); in.left() >= 2;) samples.push_back(in.s16le());
        return samples;
    }
    /// Equal but for how 8 bits are made 16: full scale is 0x7F00 there.
    static std::string differences(std::vector<i16> ours, std::vector<i16> theirs, bool bytesOnly) {
        if (ours.size() != theirs.size())
            return fmt::format("{} samples here, {} there", ours.size(), theirs.size());
        for (std::size_t i = 0; i < ours.size(); ++i) {
            const int shift = bytesOnly ? 8 : 0;
            if (ours[i] >> shift != theirs[i] >> shift)
                return fmt::format("sample {}: {} here, {} there", i, ours[i], theirs[i]);
        }
        return {};
    }
};

TEST_F(Peers, TheirFilesAreRead) {
    struct Case {
        const char* writer;
        const char* command; ///< makes the file from in.wav
        const char* name;
        u32 channels;
        const char* reader;
        bool bytesOnly = false;
        std::size_t padding = 0; ///< samples that the peer takes from behind the end
        u32 rate = 22050;
    };
    const Case cases[] = {
        {"sox", "sox -D in.wav a.8svx", "a.8svx", 1, "sox", true},
        {"sox", "sox -D in.wav a.8svx", "a.8svx", 2, "ffmpeg", true},
        {"sox", "sox -D in.wav -b 8 a.maud", "a.maud", 2, "sox", true},
        {"sox", "sox -D in.wav -b 16 a.maud", "a.maud", 1, "sox"},
        {"sox", "sox -D in.wav -e a-law a.maud", "a.maud", 2, "sox"},
        {"sox", "sox -D in.wav -e mu-law a.maud", "a.maud", 1, "sox", false, 2},
        {"sox", "sox -D in.wav -b 8 a.voc", "a.voc", 1, "sox", true, 0, 22222},
        {"sox", "sox -D in.wav -b 8 a.voc", "a.voc", 2, "sox", true},
        {"sox", "sox -D in.wav -b 16 a.voc", "a.voc", 2, "ffmpeg"},
        {"ffmpeg", "ffmpeg -v error -i in.wav -c:a pcm_u8 a.voc", "a.voc", 1, "ffmpeg", true, 0, 22222},
        {"ffmpeg", "ffmpeg -v error -i in.wav -c:a pcm_s16le a.voc", "a.voc", 2, "ffmpeg"},
        {"ffmpeg", "ffmpeg -v error -i in.wav -c:a pcm_alaw a.voc", "a.voc", 1, "ffmpeg"},
        {"sox", "sox -D in.wav a.smp", "a.smp", 1, "sox"},
        {"sox", "sox -D in.wav -r 50k a.txw", "a.txw", 1, "sox", false, 1000, 50000},
        {"sox", "sox -D in.wav a.hcom", "a.hcom", 1, "sox", true},
        {"sox", "sox -D in.wav -b 8 a.avr", "a.avr", 2, "ffmpeg", true},
        {"sndfile-convert", "sndfile-convert -pcm16 in.wav a.avr", "a.avr", 2, "ffmpeg"},
        {"sndfile-convert", "sndfile-convert -pcm16 in.wav a.sd2", "a.sd2", 2, "sndfile-convert"},
        {"sndfile-convert", "sndfile-convert -pcm24 in.wav a.sd2", "a.sd2", 1, "sndfile-convert"},
        {"sndfile-convert", "sndfile-convert -pcms8 in.wav a.sd2", "a.sd2", 1, "sndfile-convert", true},
    };
    if (!has("sox") || !has("ffmpeg") || !has("sndfile-convert"))
        GTEST_SKIP() << "sox, ffmpeg and sndfile-convert make the files";
    for (const Case& c : cases) {
        SCOPED_TRACE(c.command);
        signal(3001, c.channels);
        std::filesystem::remove(folder / c.name);
        if (!run(c.command)) {
            ADD_FAILURE() << "the peer fails";
            continue;
        }
        ASSERT_TRUE(Import(folder / c.name, false)) << failure();
        Wave* wave = store().First<Wave>();
        ASSERT_TRUE(wave);
        EXPECT_EQ(wave->sampleRate, c.rate);
        EXPECT_EQ(wave->channels, c.channels);
        EXPECT_FALSE(wave->resident());
        std::vector<i16> theirs = peerReads(c.reader, c.name);
        const std::vector<i16> ours = samplesOf(*wave);
        if (c.padding != 0 && theirs.size() > ours.size() && theirs.size() - ours.size() < c.padding)
            theirs.resize(ours.size());
        EXPECT_EQ(differences(ours, theirs, c.bytesOnly), "");
    }
}

TEST_F(Peers, OurFilesAreRead) {
    struct Case {
        const char* row;
        const char* name;
        u32 code, channels;
        const char* reader;
        u32 rate = 22050;
    };
    const Case cases[] = {
        {"Interchange file format", "o.8svx", kPcm8, 1, "sox"},
        {"Interchange file format", "o.8svx", kPcm8, 2, "ffmpeg"},
        {"SoundBlaster voice", "o.voc", kPcm8, 1, "sox"},
        {"SoundBlaster voice", "o.voc", kPcm8, 2, "ffmpeg"},
        {"SoundBlaster voice", "o.voc", kPcm8, 1, "ffmpeg", 20000},
        {"SoundBlaster voice", "o.voc", kPcm8, 2, "sox", 44100},
        {"SoundBlaster voice", "o.voc", kPcm16, 1, "sox"},
        {"SoundBlaster voice", "o.voc", kPcm16, 2, "ffmpeg"},
        {"SoundBlaster voice", "o.voc", kMuLaw, 1, "ffmpeg"},
        {"SoundBlaster voice", "o.voc", kALaw, 2, "sox"},
        {"SoundBlaster voice - Old Style", "o.voc", kPcm8, 1, "ffmpeg", 20000},
        {"SoundBlaster voice - Old Style", "o.voc", kPcm8, 2, "sox", 20000},
        {"Sound Designer II data", "o.sd2", kPcm16, 2, "sndfile-convert", 44100},
    };
    if (!has("sox") || !has("ffmpeg") || !has("sndfile-convert"))
        GTEST_SKIP() << "sox, ffmpeg and sndfile-convert read the files";
    for (const Case& c : cases) {
        SCOPED_TRACE(fmt::format("{} {} channels {:x}", c.name, c.channels, c.code));
        Wave* wave = signal(3001, c.channels, c.rate);
        // Either stands between the blocks of samples: ffmpeg ends at the end of a repeat, sox at a marker.
        const bool marked = std::string(c.reader) == "ffmpeg";
        if (marked) {
            wave->cuePoints.push_back({1000, 0, "7", ""});
        } else {
            wave->params.loopFlags = kLooped;
            wave->params.loopStart = 500;
            wave->params.loopEnd = 2500;
        }
        const std::vector<i16> before = samplesOf(*wave);
        wave = rewritten(c.row, wave, c.name, c.code | kBoth);
        ASSERT_TRUE(wave);
        EXPECT_EQ(wave->sampleRate, c.rate);
        const std::vector<i16> ours = samplesOf(*wave);
        EXPECT_EQ(differences(ours, peerReads(c.reader, c.name), c.code == kPcm8), "");
        const bool linear = c.code == kPcm8 || c.code == kPcm16;
        if (linear) {
            EXPECT_EQ(differences(ours, before, c.code == kPcm8), "");
        }
    }
}

TEST_F(Peers, TwelveBitSamplesAreRead) {
    if (!has("sox")) GTEST_SKIP() << "sox reads the file";
    Wave* wave = signal(3001, 1, 33333);
    const std::vector<i16> before = samplesOf(*wave);
    wave = rewritten("Yamaha TX16W wave", wave, "o.w01");
    std::filesystem::copy_file(folder / "o.w01", folder / "o.txw");
    std::vector<i16> theirs = peerReads("sox", "o.txw");
    ASSERT_GE(theirs.size(), before.size());
    theirs.resize(before.size()); // it takes the padding for samples
    EXPECT_EQ(differences(samplesOf(*wave), theirs, false), "");
    for (std::size_t i = 0; i < before.size(); ++i) ASSERT_EQ(before[i] & ~15, theirs[i]) << i;
}

/// An 8SVX file of compressed samples.
Bytes deltaFile(u8 compression, u32 channels, ByteSpan coded) {
    const auto size = static_cast<u32>(coded.size());
    ByteWriter out;
    out.text("FORM").u32be(4 + 28 + 12 + 8 + size).text("8SVX");
    out.text("VHDR").u32be(20).u32be(0).u32be(0).u32be(0).u16be(8000).u8le(1).u8le(compression);
    out.u32be(0x10000).text("CHAN").u32be(4).u32be(channels == 2 ? 6 : 2);
    return out.text("BODY").u32be(size).bytes(coded).take();
}

TEST_F(Peers, DeltasAreDecodedAlike) {
    if (!has("ffmpeg")) GTEST_SKIP() << "ffmpeg decodes them too";
    // ffmpeg takes the low half of a byte first, which the format's own decoder doesn't, and it stops at full
    // scale: so it gets the halves turned around, and steps that stay in the middle.
    ByteWriter ours, theirs;
    for (u32 i = 0; i < 400; ++i) {
        const u32 up = 8 + i * i % 7, down = 16 - up; // opposite steps
        const bool header = i % 200 < 2;
        ours.u8le(static_cast<u8>(header ? 0x88 : up << 4 | down));
        theirs.u8le(static_cast<u8>(header ? 0x88 : down << 4 | up));
    }
    for (const u8 compression : {u8{1}, u8{2}}) {
        for (const u32 channels : {1U, 2U}) {
            test::writeFile(folder / "theirs.iff", deltaFile(compression, channels, theirs.view()));
            Wave* wave = import(deltaFile(compression, channels, ours.view()), "ours.iff");
            ASSERT_TRUE(wave) << failure();
            EXPECT_EQ(wave->frames, (400 / channels - 2) * 2);
            EXPECT_EQ(differences(samplesOf(*wave), peerReads("ffmpeg", "theirs.iff"), true), "")
                << int{compression} << " " << channels;
        }
    }
}

TEST_F(Peers, LaterCreativeAdpcmIsDecodedAlike) {
    if (!has("ffmpeg")) GTEST_SKIP() << "ffmpeg decodes it too";
    for (const u8 channels : {u8{1}, u8{2}}) {
        ByteWriter out;
        out.text("Creative Voice File\x1A").u16le(26).u16le(0x0114).u16le(0x111F);
        out.u8le(9).u16le(12 + 999).u8le(0).u32le(22050).u8le(4).u8le(channels).u16le(0x200).u32le(0);
        for (u32 i = 0; i < 999; ++i) out.u8le(static_cast<u8>((i * i * 5 + i) % 253));
        out.u8le(0);
        Wave* wave = import(out.view(), "ct.voc");
        ASSERT_TRUE(wave) << failure();
        EXPECT_EQ(differences(samplesOf(*wave), peerReads("ffmpeg", "ct.voc"), false), "");
    }
}

} // namespace
} // namespace kv
