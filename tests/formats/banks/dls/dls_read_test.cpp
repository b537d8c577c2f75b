#include <fmt/format.h>

#include <random>

#include "formats/banks/dls/dls_reader.h"
#include "formats/banks/dls/test_dls.h"
#include "places.h"

namespace kv {
namespace {

using namespace test;

using DlsRead = DlsTest;

TEST_F(DlsRead, OtherFormsAreRefused) {
    EXPECT_FALSE(read(dls({}, "WAVE")));
    EXPECT_EQ(failure(), "dls_Parse: Not a RIFF DLS file");
    EXPECT_TRUE(read(dls({pool({wave()})}, "MLS ")));
}

TEST_F(DlsRead, InstrumentHeaders) {
    struct Row {
        u32 bank, program;
        u32 patch;
        std::string name;
    };
    const Row rows[] = {
        {0x0203, 5, 5 | 3 << 7 | 2 << 14, "Instrument 2-3: 5"},
        {0x80000000, 200, 72 | Instrument::kDrumKit, "Drums 0-0: 72"},
    };
    for (const Row& row : rows) {
        const Bytes region = list("rgn ", {rgnh(0, 127), wlnk(0)});
        ASSERT_TRUE(readInstrument({insh(row.bank, row.program), list("lrgn", {region})}));
        EXPECT_EQ(store().First<Instrument>()->patch, row.patch);
        EXPECT_EQ(store().First<Instrument>()->name(), row.name);
        const Bytes info = list("INFO", {chunk("INAM", bytesOf("Flute")), chunk("ICMT", bytesOf("soft"))});
        ASSERT_TRUE(readInstrument({info, insh(row.bank, row.program), list("lrgn", {region})}));
        EXPECT_EQ(store().First<Instrument>()->name(), "Flute") << "wherever the name stands";
        EXPECT_EQ(store().First<Instrument>()->comment, "soft");
    }
}

/// Layers are looked at before the import is done, which drops empty ones.
TEST_F(DlsRead, RegionsFindTheirLayers) {
    struct Row {
        std::vector<std::pair<std::pair<u16, u16>, int>> regions; ///< keys and layer; -1: a short header
        std::string layers;
    };
    const Row rows[] = {
        {{{{0, 127}, 3}}, " |  | 0-127"},
        {{{{0, 59}, -1}, {{60, 127}, -1}, {{50, 70}, -1}, {{0, 10}, -1}}, "0-59 60-127 | 50-70 0-10"},
        {{{{0, 59}, 2}, {{40, 70}, 2}, {{60, 80}, 2}}, "40-70 | 0-59 60-80"},
        {{{{90, 20}, 0}, {{0, 300}, 0}}, "20-90 | 0-127"},
    };
    for (const Row& row : rows) {
        ByteWriter regions;
        for (const auto& [keys, layer] : row.regions)
            regions.bytes(list("rgn2", {rgnh(keys.first, keys.second, layer), wlnk(0)}));
        const Bytes bank = dls({list("lins", {list("ins ", {insh(), list("lrgn", {regions.take()})})}),
                                ptbl({0}), pool({wave()})});
        store().DeleteAllItems();
        FileContext file;
        file.source = std::make_shared<MemorySource>(bank);
        ASSERT_TRUE(readDlsChunks(file, 0, file.size(), *store().Create<Collection>()));
        EXPECT_EQ(ranges(), row.layers);
    }
}

TEST_F(DlsRead, RegionsAndTheirPlaying) {
    const Bytes region = list("rgn2", {rgnh(10, 20, 0, 30, 40, 1, 0x17), wlnk(0, 1, 300),
                                       wsmp({64, -30, -655360, 0, 1, 1, 5, 60, 24})});
    ASSERT_TRUE(readInstrument({insh(), list("lrgn", {region})}));
    const Region& r = *store().First<Region>();
    EXPECT_EQ(r.velLow, 30);
    EXPECT_EQ(r.velHigh, 40);
    EXPECT_TRUE(r.selfNonExclusive);
    EXPECT_EQ(r.keyGroup, 7);
    EXPECT_TRUE(r.phaseMaster);
    EXPECT_EQ(r.phaseGroup, 45) << "beyond 255 they go around";
    EXPECT_TRUE(r.params.override);
    EXPECT_EQ(r.params.rootKey, 64);
    EXPECT_EQ(r.params.fineTune, -30);
    EXPECT_EQ(r.params.gainDb, -1);
    EXPECT_EQ(r.params.loopFlags, kLooped | kLoopUntilRelease);
    EXPECT_EQ(r.params.loopStart, 5) << "behind a header that is longer than we know";
    EXPECT_EQ(r.params.loopEnd, 65);

    const Bytes same = list("rgn ", {rgnh(0, 127), wlnk(0), wsmp({50})});
    ASSERT_TRUE(readInstrument({insh(), list("lrgn", {same})}, wave(100, wsmp({50}))));
    EXPECT_FALSE(store().First<Region>()->params.override) << "as its wave plays";
    EXPECT_EQ(store().First<Wave>()->params.rootKey, 50);
}

TEST_F(DlsRead, ArticulationOfEachLevel) {
    const Bytes region = list("rgn2", {rgnh(0, 127, 1), wlnk(0), list("lar2", {attack("art2", kOneOctave)}),
                                       list("lart", {attack("art2", 0)})});
    const Bytes own = chunk(
        "LKF1", join({chunk("lyrh", ByteWriter().u16le(1)), list("lar2", {attack("art2", 2 * kOneOctave)})}));
    ASSERT_TRUE(readInstrument({insh(), list("lrgn", {region}), own,
                                list("lart", {attack("art1", -kOneOctave), attack("art2", 0)})}));
    EXPECT_EQ(store().First<Region>()->articulation.eg1Attack, 2) << "a lart behind a lar2 is left out";
    EXPECT_EQ(store().First<Layer>()->articulation.eg1Attack, 4);
    EXPECT_EQ(store().First<Instrument>()->articulation.eg1Attack, 1) << "art2 before art1";
    EXPECT_TRUE(store().First<Instrument>()->articulation.enabled);
}

TEST_F(DlsRead, ConditionsSkipTheRestOfTheirList) {
    const Bytes region = list("rgn ", {rgnh(0, 127), wlnk(0)});
    ASSERT_TRUE(readInstrument({insh(), list("lrgn", {region}), list("lart", {cdl(0), attack("art1", 0)}),
                                list("INFO", {chunk("INAM", bytesOf("behind"))})}));
    EXPECT_FALSE(store().First<Instrument>()->articulation.enabled);
    EXPECT_EQ(store().First<Instrument>()->name(), "behind") << "other lists go on";
    ASSERT_TRUE(readInstrument({insh(), cdl(1), list("lrgn", {region})}));
    EXPECT_EQ(store().count(kRegionClass), 1U);
    ASSERT_TRUE(readInstrument({insh(), cdl(0), list("lrgn", {region})}));
    EXPECT_EQ(store().count(kRegionClass), 0U);
}

TEST_F(DlsRead, WavesAreFoundByTheirCues) {
    const Bytes one = wave(10), two = wave(20);
    const auto second = static_cast<u32>(one.size());
    const std::string missing =
        "DLS parser warning: Mandatory 'ptbl' chunk is missing, will attempt to read file "
        "anyway, but may not be correct!";
    struct Row {
        Bytes table;
        u32 cue;
        u32 frames; ///< of the wave that is found; 0: the region is left out
        std::string message;
    };
    const Row rows[] = {
        {ptbl({second, 0}), 0, 20, {}},
        {ptbl({second, 0}), 1, 10, {}},
        {ptbl({second, 0}), 2, 0, "Missing cue"},
        {ptbl({7}), 0, 0, "Missing wave"},
        {{}, 1, 20, missing},
        {{}, 2, 0, missing},
        {chunk("ptbl", ByteWriter().u32le(12).u32le(1).u32le(9).u32le(second)), 0, 20, {}},
        {chunk("ptbl", ByteWriter().u32le(8).u32le(3).u32le(second)), 0, 20, {}},
    };
    for (const Row& row : rows) {
        const Bytes region = list("rgn ", {rgnh(0, 127), wlnk(row.cue)});
        ASSERT_TRUE(read(dls(
            {list("lins", {list("ins ", {insh(), list("lrgn", {region})})}), row.table, pool({one, two})})));
        const Region* found = store().First<Region>();
        EXPECT_EQ(found ? RegionWave(*found)->frames : 0, row.frames) << row.message;
        ASSERT_EQ(ui.messages.size(), row.message.empty() ? 0U : 1U);
        if (!row.message.empty()) {
            EXPECT_TRUE(ui.messages[0].ends_with(": " + row.message)) << ui.messages[0];
        }
    }
    const Bytes lying = chunk("ptbl", ByteWriter().u32le(8).u32le(0x40000000));
    EXPECT_FALSE(read(dls({lying, pool({one})})));
    EXPECT_EQ(failure(), "dls_Parse: Could not read pool cue table");
}

TEST_F(DlsRead, WavesAndTexts) {
    const Bytes info = list("INFO", {chunk("INAM", bytesOf("Bank")), chunk("IENG", bytesOf("Ann")),
                                     chunk("ICOP", bytesOf("mine")), chunk("ICMT", bytesOf("words"))});
    const Bytes named =
        wave(30, join({chunk("fact", ByteWriter().u32le(12)),
                       list("INFO", {chunk("INAM", bytesOf("Tone")), chunk("IART", bytesOf("Bob"))})}));
    ASSERT_TRUE(read(dls({pool({named, wave(0), wave(9)}), info})));
    const Collection& collection = *store().First<Collection>();
    EXPECT_EQ(collection.name(), "Bank");
    EXPECT_EQ(collection.engineer, "Ann");
    EXPECT_EQ(collection.copyright, "mine");
    EXPECT_EQ(collection.comments, "words");
    ASSERT_EQ(store().count(kWaveClass), 2U) << "without samples it is none";
    const Wave& first = *store().First<Wave>();
    EXPECT_EQ(first.name(), "Tone");
    EXPECT_EQ(first.artist, "Bob");
    EXPECT_EQ(first.frames, 12U);
    EXPECT_EQ(store().Next(first)->name(), "Wave 3");
    EXPECT_FALSE(read(dls({pool({wave(9, {}, 0x1234)})})));
    EXPECT_EQ(failure(), "wav_Imp: Unsupported compression type");
}

TEST_F(DlsRead, ABankWithinAnotherFile) {
    const Bytes region = list("rgn ", {rgnh(0, 127), wlnk(1)});
    const Bytes song = chunk("RIFF", ByteWriter().text("RMID").u32le(0));
    const Bytes bank = dls({list("lins", {list("ins ", {insh(), list("lrgn", {region})})}),
                            ptbl({0, static_cast<u32>(wave(10).size())}), pool({wave(10), wave(20)}),
                            chunk("LKF1", list("lRMI", {song, chunk("junk", ByteWriter().u32le(1)), song}))});
    const Bytes around = join({Bytes(101), bank, Bytes(50)});
    FileContext file;
    file.source = std::make_shared<MemorySource>(around);
    ASSERT_TRUE(readDlsChunks(file, 101, 101 + bank.size(), *store().Create<Collection>()));
    EXPECT_EQ(std::ranges::count(space.diagnostics.entries(), std::string("lRMI"), &Diagnostic::field), 2)
        << "songs without anything in them";
    const Wave* found = RegionWave(*store().First<Region>());
    ASSERT_TRUE(found);
    EXPECT_EQ(found->frames, 20U);
    EXPECT_EQ(around[static_cast<std::size_t>(found->sourceOffset)], std::byte{7})
        << "places count in the file";
}

TEST_F(DlsRead, NothingRunsAway) {
    Bytes nested = list("lar2", {});
    for (int i = 0; i < 2000; ++i) nested = list("rgn2", {nested});
    ASSERT_TRUE(readInstrument({insh(), list("lrgn", {nested})}));

    // A header for each region that wants the last layer there is, and all keys.
    ByteWriter regions;
    for (int i = 0; i < 30'000; ++i) regions.bytes(list("rgn2", {rgnh(0, 127, 65535), wlnk(0)}));
    const Bytes all = regions.take();
    ASSERT_TRUE(readInstrument({insh(), list("lrgn", {all})}));
    EXPECT_LE(store().count(kLayerClass), 40'000U);
    ByteWriter instruments;
    const Bytes one = list("ins ", {insh(), list("rgn2", {rgnh(0, 127, 65535), wlnk(0)})});
    for (int i = 0; i < 2000; ++i) instruments.bytes(one);
    ASSERT_TRUE(read(dls({list("lins", {instruments.take()}), ptbl({0}), pool({wave()})})));
    EXPECT_LE(store().count(kLayerClass), 20'000U);
}

TEST_F(DlsRead, DamageDoesNoHarm) {
    const Bytes own =
        chunk("LKF1", join({chunk("lyrh", ByteWriter().u16le(2)), list("lar2", {attack("art2", 5)})}));
    const Bytes region =
        list("rgn2", {cdl(1), rgnh(0, 60, 2), wlnk(1), wsmp({60, 3, 0, 0, 1, 0, 1, 9}),
                      chunk("LKF1", chunk("rgnx", ByteWriter().u8le(1).u8le(1))),
                      chunk("LKF1", chunk("wsmx", ByteWriter().u32le(0x3E800000).u32le(0).u16le(3))),
                      list("lar2", {attack("art2", 9)})});
    const Bytes whole =
        dls({list("lins", {list("ins ", {insh(), list("lrgn", {region, region}), own})}),
             ptbl({0, static_cast<u32>(wave(10).size())}), pool({wave(10), wave(20, wsmp({}))})});
    const auto path = folder / "hurt.dls";
    const auto tryOut = [&](const Bytes& bytes) {
        writeFile(path, bytes);
        if (!Import(path, true, formatTable().RowByImportDescription("DownLoadable Sounds"))) return;
        for (Wave& one : store().all<Wave>()) one.LoadData();
    };
    for (std::size_t size = 0; size < whole.size(); size += 3)
        tryOut(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
    std::minstd_rand random(7);
    for (int i = 0; i < 300; ++i) {
        Bytes bytes = whole;
        for (int n = 0; n < 3; ++n) bytes[random() % bytes.size()] = static_cast<std::byte>(random());
        tryOut(bytes);
    }
}

TEST_F(DlsRead, BanksOfOthers) {
    struct Row {
        const char* file;
        std::size_t instruments, waves, regions;
    };
    const Row rows[] = {{"ding.dls", 1, 1, 1}, {"spessa_vintage.dls", 136, 123, 0}};
    for (const Row& row : rows) {
        const std::filesystem::path path = std::filesystem::path(KV_CORPUS_DIR) / "dls" / row.file;
        if (!std::filesystem::exists(path)) GTEST_SKIP() << "no corpus at " KV_CORPUS_DIR;
        ASSERT_TRUE(Import(path, false)) << failure();
        EXPECT_EQ(store().count(kInstrumentClass), row.instruments) << row.file;
        EXPECT_EQ(store().count(kWaveClass), row.waves) << row.file;
        if (row.regions > 0) {
            EXPECT_EQ(store().count(kRegionClass), row.regions) << row.file;
        }
        EXPECT_TRUE(ui.messages.empty()) << ui.messages[0];
        for (Wave& one : store().all<Wave>()) EXPECT_TRUE(one.LoadData()) << failure();
    }
}

} // namespace
} // namespace kv
