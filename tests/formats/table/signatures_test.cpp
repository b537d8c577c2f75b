// Small starts of files, each put together from the places that decide, under their own extension, under a
// foreign one, and cut at every length.
#include "formats/table/signatures.h"

#include <gtest/gtest.h>

#include "formats/framework/detection.h"
#include "formats/table/format_table_rows.h"

namespace kv {
namespace {

using namespace std::string_view_literals;

struct Piece {
    std::size_t at;
    std::string_view text;
};

struct Sample {
    const char* extension;
    std::string_view description; ///< expected under the extension
    int confidence;
    std::vector<Piece> pieces;
    std::size_t size = 0;          ///< at least; the rest is zeros
    std::string_view foreign = {}; ///< expected under a foreign extension; empty: the same, at 66 %
};

constexpr auto kUnknown = "Unrecognized"sv;

const std::vector<Sample>& samples() {
    static const std::vector<Sample> all = {
        {"wav", "Microsoft wave", 100, {{0, "RIFF"}, {8, "WAVE"}}, 100},
        {"wav", "Microsoft wave", 100, {{0, "RIFF"}, {8, "WAVEbext\4\0\0\0"sv}}, 100, "Broadcast wave"},
        {"bwf", "Broadcast wave", 100, {{0, "RIFF"}, {8, "WAVEfmt \3\0\0\0"sv}, {24, "bext"}}, 100},
        {"bwf", "Microsoft wave", 66, {{0, "RIFF"}, {8, "WAVEdata\4\0\0\0xxxxbext"sv}}, 100},
        {"rif", "Rockwell ADPCM (HotFax/Quicklink)", 100, {{0, "RIFF"}, {8, "WAVEfmt \x10\0\0\0\0\3"sv}}},
        {"gsm", "USR GSM with header", 100, {{0, "RIFF"}, {8, "WAVEfmt \x10\0\0\0\3\3"sv}}},
        {"sds", "SmartSound SDS", 77, {{0, "SDSS"}, {8, "WAVE"}}, 0, kUnknown},
        {"sds", "MIDI SDS", 100, {{0, "\xF0\x7E\0\1"sv}, {20, "\xF7"}}},
        {"mov", "Apple QuickTime movie", 77, {{4, "moov"}}, 100, kUnknown},
        {"w64",
         "Wave-64",
         100,
         {{0, "riff\x2E\x91\xCF\x11\xA5\xD6\x28\xDB\x04\xC1\0\0"sv},
          {24, "wave\xF3\xAC\xD3\x11\x8C\xD1\0\xC0\x4F\x8E\xDB\x8A"sv}}},
        {"sf2", "SoundFont v2 bank", 100, {{0, "RIFF"}, {8, "sfbk"}, {32, "\2\0"sv}}},
        {"sf2", "SoundFont v1", 66, {{0, "RIFF"}, {8, "sfbk"}, {32, "\1\0"sv}}},
        {"sf2", "SoundFont v2 bank", 100, {{0, "RIFF"}, {8, "sfbk"}, {32, "\3\0"sv}}},
        {"sf2", "SoundFont v2 bank", 55, {{0, "RIFF"}, {8, "sfbk"}, {32, "\4\0"sv}}, 0, kUnknown},
        {"sbk", "SoundFont v1", 100, {{0, "RIFF"}, {8, "sfbk"}, {32, "\1\0"sv}}},
        {"sf2pack", "MIDI Converter Studio", 100, {{0, "RIFF"}, {8, "sfpk"}, {32, "\2\0"sv}}},
        {"dls", "DownLoadable Sounds", 100, {{0, "RIFF"}, {8, "DLS "}}},
        {"gig", "GigaStudio/GigaSampler", 77, {{0, "RIFF"}, {8, "DLS "}}, 0, "DownLoadable Sounds"},
        {"rmi", "RIFF-MIDI (DLS optional)", 100, {{0, "RIFF"}, {8, "RMID"}}},
        {"sfz", "rgc:audio SFZ bank", 77, {{2040, "<region>"}}, 0, kUnknown},
        {"sfz", "rgc:audio SFZ bank", 55, {{2041, "<region>"}}, 0, kUnknown},
        {"akp", "AKAI S5000 program", 100, {{0, "RIFF"}, {8, "APRG"}}},
        {"pgm", "Akai MPC1000/2500 drums + WAV's", 100, {{0, "\x04\x2A\0\0MPC1000 PGM "sv}}},
        {"pgm", "Akai MPC1000/2500 drums + WAV's", 77, {{0, "\x05\x2A\0\0MPC1000 PGM 1.00"sv}}, 0, kUnknown},
        {"pgm", "Akai MPC2000/2000XL drums", 100, {{0, "\7\4\1\0SNARE           \0"sv}}},
        {"pgm", "Akai MPC3000 drums + SND's", 100, {{0, "\7\0"sv}}, 4608},
        {"snd", "AKAI MPC sample", 77, {{0, "\1\4SNARE           \0"sv}}, 0, kUnknown},
        {"s",
         "Akai S900/S950 sample",
         77,
         {{0, "KICK            \x64\0\0\0\x10\x27\0\0\0\0O\0\x64\0\0\0\0\0\0\0\0\0\0\0"sv}},
         0,
         kUnknown},
        {"s",
         "Akai S900/S950 sample",
         55,
         {{0, "KICK      ABCDEF\x64\0\0\0\x10\x27\0\0\0\0O\0\x64\0\0\0\0\0\0\0\0\0\0\0"sv}},
         0,
         kUnknown},
        {"p",
         "AKAI S900/S950 program",
         77,
         {{0, "PROGRAM 1 "}, {22, "\xFF"}, {27, "\xFF"}, {62, "KICK      "}},
         0,
         kUnknown},
        {"p", "AKAI S1000 program", 100, {{0, "\1\x96\0\x0B\x0C"sv}, {42, "\1"}, {150, "\2"}}, 300},
        {"p", "AKAI S3000 program", 100, {{0, "\1\xC0\0\x0B\x0C"sv}, {42, "\1"}, {192, "\2"}}, 384},
        {"s", "Akai S1000 sample", 100, {{0, "\3\1\x3C\x0B"}, {26, "\5\0\0\0"sv}}, 160},
        {"s", "Akai S3000 sample", 100, {{0, "\3\1\x3C\x0B"}, {26, "\5\0\0\0"sv}}, 202},
        {"pcg", "Korg Triton bank", 100, {{0, "KORG\x50\0"sv}, {16, "PCG1"}}},
        {"pcg", "Korg Kronos bank", 55, {{0, "KORG\x68\1"sv}, {16, "PCG1"}}, 0, kUnknown},
        {"pcg", kUnknown, 0, {{0, "KORG\x3C\0"sv}, {16, "PCG1"}}, 0, kUnknown},
        {"ksf", "Korg sample", 100, {{0, "SMP1"}}},
        {"kmp", "Korg keymap", 100, {{0, "MSP1"}}},
        {"ksc", "Korg script", 100, {{0, "#KORG Script Version 1.0"}}},
        {"sfark", "Melody Machine SF", 100, {{26, "sfArk"}}},
        {"mod", "Tracker module", 55, {{0, "A SONG"}, {45, "\x40"}}, 466, kUnknown},
        {"mod", kUnknown, 0, {{0, "A SONG"}, {465, "\x41"}}, 466, kUnknown},
        {"669", "669 module", 100, {{0, "JN"}}},
        {"ams", "Extreme Tracker module", 100, {{0, "Extreme"}}},
        {"ams", "Velvet Studio module", 100, {{0, "AMShdr\x1A"}}},
        {"dcm", "DCM module", 100, {{0, "WUFFDCMw"}}},
        {"dcm", "DCM module", 77, {{0, "WUFF"}}, 0, kUnknown},
        {"dmf", "XTracker module", 100, {{0, "DDMF"}}},
        {"dsm", "Digital Sound Module", 100, {{0, "RIFF"}, {8, "DSMF"}}},
        {"dtm", "DigiTrekker module", 77, {{0, "SONG"}}, 0, kUnknown},
        {"emd", "ABT extended module", 100, {{0, "EMOD"}}},
        {"f2r", "Farandoyle linear module", 100, {{0, "F2R"}}},
        {"f3r", "Farandole blocked linear module", 100, {{0, "F3R"}}},
        {"far", "Farandoyle module", 100, {{0, "FAR\xFE"}}},
        {"fnk", "FunkTracker module", 100, {{0, "Funk"}}},
        {"gdm", "Bells, Whistles, Sound Boards module", 100, {{0, "GDM\xFE"}, {71, "GMFS"}}},
        {"gdm", "Bells, Whistles, Sound Boards module", 55, {{0, "GDM\xFE"}}, 80, kUnknown},
        {"mdl", "Digitrakker module", 100, {{0, "DMDL"}}},
        {"med", "OctaMED module", 100, {{0, "MMD"}}},
        {"mt2", "MadTracker 2 module", 100, {{0, "MT20"}}},
        {"mtm", "MultiTracker module", 100, {{0, "MTM"}}},
        {"okt", "Oktalyzer module", 100, {{0, "OKTASONG"}}},
        {"okt", "Oktalyzer module", 55, {{0, "OKTA"}}, 8, kUnknown},
        {"plm", "DisorderTracker2 module", 100, {{0, "PLM\x1A"}}},
        {"psm", "Protracker Studio module", 100, {{0, "PSM\xFE"}}},
        {"ptm", "Poly Tracker module", 100, {{44, "PTMF"}}},
        {"ult", "UltraTracker module", 100, {{0, "MAS"}}},
        {"umx", "Unreal Tournament music", 100, {{0, "\xC1\x83\x2A\x9E"}}, 0, "Unreal Tournament"},
        {"xm", "Fast Tracker 2 module", 100, {{0, "Extended Module: "}}},
        {"xi", "Fast Tracker 2 instrument", 100, {{0, "Extended Instrument: "}}},
        {"it", "Impulse Tracker module", 100, {{0, "IMPM"}}},
        {"it", "Impulse Tracker module", 77, {{0, "ziRCONia"}}, 0, kUnknown},
        {"iti", "Impulse Tracker instrument", 100, {{0, "IMPI"}}, 0, "Impulse Tracker module"},
        {"its", "Impulse Tracker sample", 100, {{0, "IMPS"}}, 0, "Impulse Tracker module"},
        {"s3m", "ScreamTracker v3 module", 100, {{44, "SCRM"}}},
        {"s3i", "ScreamTracker v3 sample", 100, {{76, "SCRS"}}},
        {"mid", "Standard MIDI", 100, {{0, "MThd"}}},
        {"mp3", "MPEG layer III", 77, {{0, "\xFF\xFB\x90\x00"sv}}, 0, kUnknown},
        {"mp3", kUnknown, 0, {{0, "\xFF\xFF\xFF\xFF"sv}}, 0, kUnknown},
        {"aac", "MPEG 2/4 AAC", 77, {{0, "\xFF\xF1\x50\x80"sv}}, 0, kUnknown},
        {"ogg", "Ogg Vorbis", 100, {{0, "OggS"}, {28, "\1vorbis"}}},
        {"ogg", "Opus", 66, {{0, "OggS"}, {28, "OpusHead"}}},
        {"dx7", "Yamaha DX7 voice SysEx", 100, {{0, "\xF0\x43\2\x09"}}},
    };
    return all;
}

Bytes bytesOfSample(const Sample& sample) {
    Bytes bytes(sample.size);
    for (const Piece& piece : sample.pieces) {
        bytes.resize(std::max(bytes.size(), piece.at + piece.text.size()));
        std::copy_n(bytesOf(piece.text).begin(), piece.text.size(),
                    bytes.begin() + static_cast<std::ptrdiff_t>(piece.at));
    }
    return bytes;
}

void expectDetected(const Sample& sample, const std::string& extension, std::string_view description,
                    int confidence) {
    const Bytes bytes = bytesOfSample(sample);
    int found = -1;
    const int row = DetectBytes(formatTable(), "file." + extension, bytes, bytes.size(), found);
    EXPECT_EQ(formatTable().RowDescription(row), description) << extension;
    EXPECT_EQ(found, confidence) << description << " under " << extension;
}

TEST(Signatures, AreFoundUnderTheirExtension) {
    for (const Sample& sample : samples()) {
        expectDetected(sample, sample.extension, sample.description, sample.confidence);
    }
}

TEST(Signatures, AreFoundUnderAForeignExtension) {
    for (const Sample& sample : samples()) {
        const std::string_view expected = sample.foreign.empty() ? sample.description : sample.foreign;
        expectDetected(sample, "none", expected, expected == kUnknown ? 0 : 66);
    }
}

// Every function sees every start at every length, in a block of exactly that size so that the sanitizers
// notice a step past the end. A signature cut anywhere is no longer complete.
TEST(Signatures, SurviveTruncation) {
    for (const Sample& sample : samples()) {
        const Bytes whole = bytesOfSample(sample);
        std::size_t needed = 0;
        for (const Piece& piece : sample.pieces) needed = std::max(needed, piece.at + piece.text.size());
        const bool decisive = sample.confidence == 100 && sample.foreign.empty();
        for (std::size_t length = 0; length <= std::min<std::size_t>(whole.size(), 520); ++length) {
            const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
            for (const FormatTable::Probe& probe : formatTable().probes()) {
                const int score = probe.detect ? probe.detect(cut, probe.subType, length) : 0;
                ASSERT_TRUE(score >= 0 && score <= 6) << probe.row;
                const bool own = formatTable().RowDescription(probe.row) == sample.description;
                ASSERT_FALSE(own && decisive && length < needed && score == kSignature)
                    << sample.description << " cut at " << length;
            }
        }
    }
}

TEST(Signatures, FalseStartsOfOnesAndZerosAreNobodys) {
    for (const std::byte fill : {std::byte{0}, std::byte{0xFF}, std::byte{' '}}) {
        const Bytes bytes(kDetectionBytes, fill);
        for (const FormatTable::Probe& probe : formatTable().probes()) {
            const int score = probe.detect ? probe.detect(bytes, probe.subType, bytes.size()) : 0;
            EXPECT_LT(score, kSignature) << formatTable().RowDescription(probe.row);
        }
    }
}

TEST(Signatures, HeaderlessFilesGoByTheirExtension) {
    for (const char* extension : {"sb", "ub", "sw", "f32", "alaw", "vox", "g726-4", "gsm", "dvd-16-48"}) {
        for (const std::size_t size : {0u, 1u, 1000u}) {
            int confidence = 0;
            const Bytes bytes(size, std::byte{0x55});
            const int row =
                DetectBytes(formatTable(), std::string("x.") + extension, bytes, size, confidence);
            EXPECT_EQ(formatTable().RowExtension(row), extension);
            EXPECT_EQ(confidence, 55);
        }
    }
}

} // namespace
} // namespace kv
