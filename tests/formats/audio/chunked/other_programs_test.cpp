// Files of other programs, and ours in their hands: every sample has to be the same.
#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>

#include "formats/audio/chunked/chunked_test.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

class OtherPrograms : public test::FormatTest {
protected:
    void SetUp() override {
        for (const char* program : {"sox", "ffmpeg", "sndfile-convert"}) {
            const std::string command = fmt::format("command -v {} >/dev/null", program);
            if (std::system(command.c_str()) != 0) GTEST_SKIP() << program << " is not installed";
        }
        fs::current_path(folder.path());
    }
    void TearDown() override { fs::current_path("/"); }
    static bool run(const std::string& command) {
        return std::system(("(" + command + ") >/dev/null 2>&1").c_str()) == 0;
    }
    static Bytes output(const std::string& command) {
        Bytes bytes;
        if (FILE* pipe = ::popen((command + " 2>/dev/null").c_str(), "r")) {
            std::byte buffer[65536];
            while (const std::size_t n = std::fread(buffer, 1, sizeof buffer, pipe))
                bytes.insert(bytes.end(), buffer, buffer + n);
            ::pclose(pipe);
        }
        return bytes;
    }
    static Bytes decoded(const std::string& name) {
        return output("ffmpeg -v error -i " + name + " -f f64le -");
    }
    static Bytes soxDecoded(const std::string& name) { return output("sox -D " + name + " -t f64 -"); }
    /// 24 bits of noise.
    static bool makeSource(int channels) {
        return run(
            fmt::format("sox -R -n -r 8000 -c {} -b 24 source.wav synth 0.131 pinknoise vol 0.5", channels));
    }
};

TEST_F(OtherPrograms, TheirFilesAreRead) {
    struct Case {
        const char *name, *command;
        const char* reference = nullptr; ///< for what ffmpeg can't read
    };
    const Case cases[] = {
        {"a.aif", "sox source.wav -b 8 a.aif"},
        {"b.aiff", "sox source.wav b.aiff"},
        {"c.aifc", "sox source.wav c.aifc"},
        {"s.aif", "sox source.wav -b 16 -t aiff - | cat > s.aif"},
        {"d.aif", "ffmpeg -i source.wav -c:a pcm_s16le d.aif"},
        {"e.aif", "ffmpeg -i source.wav -c:a pcm_f32be e.aif"},
        {"f.aif", "ffmpeg -i source.wav -c:a pcm_f64be f.aif"},
        {"g.aif", "ffmpeg -i source.wav -c:a pcm_alaw g.aif"},
        {"h.aif", "ffmpeg -i source.wav -c:a adpcm_ima_qt h.aif"},
        {"t.aif", "ffmpeg -i source.wav -f aiff - | cat > t.aif", "source16.wav"},
        {"i.aif", "sndfile-convert -pcm32 source.wav i.aif"},
        {"j.aif", "sndfile-convert -endian=little -pcm24 source.wav j.aif", "source.wav"},
        {"a.au", "sox source.wav a.au"},
        {"b.au", "sox source.wav -e a-law b.au"},
        {"c.snd", "sox source.wav -b 8 -t au c.snd"},
        {"d.au", "sndfile-convert -endian=little -pcm32 source.wav d.au", "source.wav"},
        {"e.au", "sndfile-convert -endian=little -pcm16 source.wav e.au", "source16.wav"},
        {"s.au", "ffmpeg -i source.wav -f au - | cat > s.au"},
        {"f.au", "ffmpeg -i source.wav -ac 1 -ar 16000 -c:a g722 f.au"},
        {"a.caf", "ffmpeg -i source.wav -c:a pcm_s24be a.caf"},
        {"b.caf", "ffmpeg -i source.wav -c:a pcm_f32le b.caf"},
        {"c.caf", "ffmpeg -i source.wav -c:a pcm_mulaw c.caf"},
        {"d.caf", "ffmpeg -i source.wav -c:a adpcm_ima_qt d.caf"},
        {"e.caf", "ffmpeg -i source.wav -ac 1 -c:a gsm e.caf"},
        {"s.caf", "ffmpeg -i source.wav -f caf - | cat > s.caf"},
        {"f.caf", "sndfile-convert -pcm32 source.wav f.caf"},
        {"g.caf", "sndfile-convert -endian=little -alaw source.wav g.caf"},
    };
    ASSERT_TRUE(makeSource(2) && run("ffmpeg -i source.wav -c:a pcm_s16le source16.wav"));
    for (const Case& c : cases) {
        if (!run(c.command)) {
            ADD_FAILURE() << c.command;
            continue;
        }
        ASSERT_TRUE(Import(folder / c.name, false)) << c.name << failure();
        exportAs("ours.wav");
        const Bytes theirs = decoded(c.reference ? c.reference : c.name);
        EXPECT_FALSE(theirs.empty()) << c.name;
        EXPECT_TRUE(decoded("ours.wav") == theirs) << c.name;
    }
}

TEST_F(OtherPrograms, OursAreReadByThem) {
    for (const int channels : {1, 2}) {
        ASSERT_TRUE(makeSource(channels));
        for (const u32 code : {kPcm8, kPcm16, kPcm24, kPcm32, kFloat32, kFloat64, kMuLaw, kALaw}) {
            if (channels == 1 && code != kPcm8) continue;
            for (const std::string name : {"a.aif", "a.au", "a.caf"}) {
                ASSERT_TRUE(Import(folder / "source.wav", false));
                Wave* wave = store().First<Wave>();
                wave->comments = "some text";
                wave->cuePoints = {{3, 0, "x", "y"}};
                wave->params.loopFlags = kLooped;
                wave->params.loopEnd = 100;
                exportAs(name, code | kMonoBit | kStereoBit);
                const Bytes ours = decoded(name);
                ASSERT_TRUE(Import(folder / name, false)) << failure();
                EXPECT_TRUE(store().First<Wave>()->frames == 1048);
                exportAs("ours.wav", (code == kFloat64 ? kFloat32 : code) | kMonoBit | kStereoBit);
                EXPECT_EQ(ours.size(), 1048U * 8 * static_cast<unsigned>(channels));
                EXPECT_TRUE(ours == decoded("ours.wav")) << name << std::hex << code;
                // sox knows neither CAF nor laws in AIFF-C.
                if (name == "a.caf" || (name == "a.aif" && (code & (kMuLaw | kALaw)) != 0)) continue;
                EXPECT_TRUE(soxDecoded(name) == soxDecoded("ours.wav")) << name << std::hex << code;
            }
        }
    }
}

TEST_F(OtherPrograms, OursHaveTheTextsWhereTheyLook) {
    ASSERT_TRUE(makeSource(1));
    for (const std::string name : {"a.aif", "a.caf"}) {
        ASSERT_TRUE(Import(folder / "source.wav", false));
        Wave* wave = store().First<Wave>();
        wave->SetName("Tr\xC3\xA4um");
        wave->artist = "Somebody";
        wave->comments = "A comment";
        exportAs(name);
        const std::string probe(textOf(output("ffprobe -v error -show_entries format_tags " + name)));
        for (const char* text : {"title=Tr\xC3\xA4um", "Somebody", "A comment"})
            EXPECT_NE(probe.find(text), std::string::npos) << probe;
    }
}

} // namespace
} // namespace kv
