#include <cmath>
#include <random>

#include "formats/banks/soundfont/sbk_mapping.h"
#include "formats/banks/soundfont/sf2_mapping.h"
#include "formats/banks/soundfont/sf_bank_lists.h"
#include "formats/banks/soundfont/sf_tables.h"
#include "formats/banks/soundfont/test_bank.h"
#include "model/instrument.h"
#include "model/store.h"
#include "places.h"

namespace kv {
namespace {

using test::FormatTest;
using test::range;
using test::TestBank;
using test::TestZone;

TEST(Sf2Mapping, EveryAmountComesBack) {
    struct Sweep {
        u8 number;
        int least, most;
        bool filter = false;
    };
    const Sweep generators[] = {
        {5, -12000, 12000},
        {6, -12000, 12000},
        {7, -12000, 12000},
        {8, 1500, 13488, true},
        {9, 0, 960, true},
        {10, -12000, 12000, true},
        {11, -12000, 12000, true},
        {13, -960, 960},
        {15, 0, 1000},
        {16, 0, 1000},
        {17, -500, 500},
        {21, -12000, 5000},
        {22, -16000, 4500},
        {23, -12000, 5000},
        {24, -16000, 4500},
        {25, -12000, 5000},
        {26, -12000, 8000},
        {27, -12000, 5000},
        {28, -12000, 8000},
        {29, 0, 1000},
        {30, -12000, 8000},
        {33, -12000, 5000},
        {34, -12000, 8000},
        {35, -12000, 5000},
        {36, -12000, 8000},
        {37, 0, 1000},
        {38, -12000, 6386},
        {39, -1200, 1200},
        {40, -1200, 1200},
        {48, -1439, 1439},
        {51, -120, 120},
        {54, 0, 1},
        {56, -1200, 1200},
    };
    const SfZone nothing = presetZoneDefaults();
    for (const Sweep& sweep : generators) {
        for (int amount = sweep.least; amount <= sweep.most; ++amount) {
            SfZone zone = instrumentZoneDefaults();
            if (sweep.filter) zone.generators[kInitialFilterFc] = 6000;
            zone.generators[sweep.number] = static_cast<i16>(amount);
            Articulation articulation;
            SampleParams params;
            sf2_ReadZone({nothing, zone}, false, articulation, params);
            SfZone written = sf2_ZoneOf(articulation);
            sf2_AddPlaying(written, articulation, params, SampleParams());
            ASSERT_EQ(written.generators[sweep.number], amount) << int{sweep.number};
        }
    }
    for (std::size_t slot = 0; slot < kSlotCount; ++slot) {
        if (slot == 4) continue; // a second form, which is read alone
        const bool filter = slot >= 13 && slot <= 18;
        const int least = slot >= 20 ? 0 : -1000, most = 1000;
        for (int amount = least; amount <= most; ++amount) {
            SfZone zone = instrumentZoneDefaults();
            if (filter) zone.generators[kInitialFilterFc] = 6000;
            zone.slots[slot] = static_cast<i16>(amount);
            Articulation articulation;
            SampleParams params;
            sf2_ReadZone({nothing, zone}, false, articulation, params);
            ASSERT_EQ(sf2_ZoneOf(articulation).slots[slot], amount) << slot;
        }
    }
}

TEST(Sf2Mapping, ModulatorsAreKnownAgain) {
    for (std::size_t slot = 0; slot < kSlotCount; ++slot) {
        const std::optional<SlotAmount> known = slotOf(modulatorOf(slot, -123));
        if (slot == 8) {
            EXPECT_FALSE(known) << "the pitch wheel is written without the flag that it's known by";
            continue;
        }
        ASSERT_TRUE(known) << slot;
        EXPECT_EQ(known->slot, slot);
        EXPECT_EQ(known->amount, -123) << slot;
    }
}

TEST(Sf2Mapping, WhatTheFormatDoesNotHave) {
    Articulation articulation;
    articulation.filterEnable = true;
    articulation.filterCutoff = 1000;
    for (const i32 type : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}) {
        articulation.filterType = type;
        const bool told = type <= 2 || type == 6 || type == 7;
        EXPECT_EQ(sf2_ZoneOf(articulation).generators[kInitialFilterFc], told ? 8321 : 13500) << type;
    }
    articulation = {};
    articulation.lfo1ToPitch = 1;
    articulation.lfo1ToVolume = 10;
    articulation.lfo1Shape = 5; // swings to one side: half the depth, and the middle of it for the volume
    SfZone zone = sf2_ZoneOf(articulation);
    EXPECT_EQ(zone.generators[kModLfoToPitch], 50);
    EXPECT_EQ(zone.generators[kModLfoToVolume], 50);
    EXPECT_EQ(zone.generators[kInitialAttenuation], -130);
    articulation.eg1Release = kEndlessRelease;
    EXPECT_EQ(sf2_ZoneOf(articulation).generators[kReleaseVolEnv], 8000);
    articulation.lfo1Frequency = 5; // between whole cents
    EXPECT_EQ(sf2_ZoneOf(articulation).generators[kFreqModLfo], -850);
}

/// A bank of varied regions, as instruments of other formats have them.
class Sf2Write : public FormatTest {
protected:
    Bytes write(Item& item, const std::string& name = "out.sf2", u32 wanted = kAnyFormat) {
        const int row = formatTable().RowByExtension(std::filesystem::path(name).extension().string(),
                                                     classOf(item.id()));
        EXPECT_TRUE(Export(row, folder / name, &item, wanted, 0, false)) << failure();
        return test::readFile(folder / name);
    }
    Wave* addWave(std::string_view name, u32 frames = 100, u32 channels = 1) {
        Wave* wave = store().Create<Wave>(kNextFreeNumber, nullptr, name);
        wave->frames = frames;
        wave->channels = channels;
        wave->sourceFile = kMemoryOnly;
        wave->reloadable = false;
        EXPECT_TRUE(wave->samples16.allocate(frames * channels));
        for (u32 i = 0; i < frames * channels; ++i) wave->samples16.data()[i] = static_cast<i16>(i * 257);
        return wave;
    }
    void startCollection() {
        store().DeleteAllItems();
        store().Create<Collection>(folder / "made.sf2");
    }
    static const SfRecords& table(const SfFile& file, bool presets) {
        return (presets ? file.presets : file.instruments).generators;
    }
    SfFile parse(const Bytes& bytes) {
        FileContext context;
        context.source = std::make_shared<MemorySource>(bytes);
        SfFile file;
        EXPECT_TRUE(file.read(context, *store().First<Collection>()));
        return file;
    }
};

TEST_F(Sf2Write, TheFileFromFrontToEnd) {
    startCollection();
    store().First<Collection>()->copyright = "me";
    Wave* wave = addWave("Sample with a long name");
    wave->params.loopStart = 10.6;
    store().Create<Instrument>(kNextFreeNumber, numberOf(wave->id()), 1U, "Caf\xC3\xA9");
    const Bytes bytes = write(*store().First<Collection>());
    const std::string_view text = textOf(bytes);
    std::size_t at = 0;
    for (const char* id : {"RIFF", "sfbk", "INFO", "ifil", "isng", "INAM", "ICOP", "ISFT", "sdta", "smpl",
                           "pdta", "phdr", "pbag", "pmod", "pgen", "inst", "ibag", "imod", "igen", "shdr"}) {
        const std::size_t found = text.find(id, at);
        ASSERT_NE(found, std::string_view::npos) << id;
        at = found;
    }
    EXPECT_EQ(text.find("sm24"), std::string_view::npos);
    const SfFile file = parse(bytes);
    EXPECT_EQ(file.minor, 1);
    EXPECT_EQ(file.smpl->size, (100 + 46) * 2U);
    ByteCursor header = file.samples[0];
    EXPECT_EQ(textOf(header.bytes(20)), "Sample with a long n");
    EXPECT_EQ(header.u32le(), 0U);
    EXPECT_EQ(header.u32le(), 100U);
    EXPECT_EQ(header.u32le(), 11U);
    EXPECT_EQ(textOf(file.presets.names[0].bytes(4)), "Caf\xE9") << "in the 8-bit form of such files";
    // The records behind the last ones.
    ByteCursor pgen = file.presets.generators[file.presets.generators.count() - 1];
    EXPECT_EQ(pgen.u16le(), 0);
    EXPECT_EQ(pgen.u16le(), 1) << "the number of instruments";
    ByteCursor igen = file.instruments.generators[file.instruments.generators.count() - 1];
    EXPECT_EQ(igen.u16le(), 17);
    EXPECT_TRUE(textOf(file.presets.names[1].bytes(20)).starts_with("EOP"));
}

TEST_F(Sf2Write, OneItemIsABankOfItsOwn) {
    startCollection();
    Wave* wave = addWave("one");
    addWave("other");
    Instrument* instrument = store().Create<Instrument>(kNextFreeNumber, numberOf(wave->id()), 2U, "I");
    instrument->articulation.enabled = true;
    instrument->articulation.panDefault = 0.5F;
    Layer* layer = store().Find<Layer>(instrument->childIds[0]);
    Region* region = store().Find<Region>(layer->childIds[0]);
    region->keyHigh = 64;
    struct Case {
        Item* item;
        std::size_t layers;
        f32 pan;
        u8 keyHigh;
    };
    const std::size_t before = store().count(kInstrumentClass);
    std::vector<std::pair<Case, Bytes>> written;
    for (const Case& c :
         {Case{wave, 1, 0, 127}, {region, 1, 0.5F, 64}, {layer, 1, 0.5F, 64}, {instrument, 2, 0.5F, 64}})
        written.emplace_back(c, write(*c.item));
    EXPECT_EQ(store().count(kInstrumentClass), before) << "what was made for saving is gone";
    for (const auto& [c, bytes] : written) {
        test::writeFile(folder / "again.sf2", bytes);
        ASSERT_TRUE(Import(folder / "again.sf2", true));
        EXPECT_EQ(store().count(kWaveClass), 1U);
        EXPECT_EQ(store().count(kInstrumentClass), 1U);
        EXPECT_EQ(store().count(kLayerClass), c.layers);
        EXPECT_EQ(store().First<Region>()->keyHigh, c.keyHigh);
        EXPECT_EQ(store().First<Region>()->articulation.panDefault, c.pan);
    }
}

TEST_F(Sf2Write, TwentyFourBits) {
    startCollection();
    Wave* wave = addWave("w", 101);
    store().Create<Instrument>(kNextFreeNumber, numberOf(wave->id()), 1U, "I");
    Bytes bytes = write(*wave, "24.sf2", kPcm24);
    SfFile file = parse(bytes);
    EXPECT_EQ(file.minor, 4);
    EXPECT_EQ(file.sm24->size, (101 + 46) + 1U) << "padded to an even size";
    const ByteSpan low = ByteSpan(bytes).subspan(file.sm24->start, file.sm24->size);
    EXPECT_TRUE(std::all_of(low.begin(), low.end(), [](std::byte b) { return b == std::byte{}; }));

    ASSERT_TRUE(wave->samplesFloat.allocate(101));
    wave->samples16.reset();
    for (int i = 0; i < 101; ++i)
        wave->samplesFloat.data()[i] = static_cast<f32>(i * 12345 - 600000) / 8388608;
    bytes = write(*wave, "24.sf2", kPcm24);
    ASSERT_TRUE(Import(folder / "24.sf2", true));
    Wave& again = *store().First<Wave>();
    ASSERT_TRUE(again.LoadData());
    for (int i = 0; i < 101; ++i)
        ASSERT_EQ(GetFloatData(again)[static_cast<std::size_t>(i)] * 8388608, i * 12345 - 600000);
}

TEST_F(Sf2Write, NamesLikeEndMarksEndNothing) {
    startCollection();
    Wave* first = addWave("EOS");
    Wave* second = addWave("other");
    for (const Wave* wave : {first, second})
        store().Create<Instrument>(kNextFreeNumber, numberOf(wave->id()), 1U, wave == first ? "EOP" : "EOI");
    write(*store().First<Collection>(), "marks.sf2");
    ASSERT_TRUE(Import(folder / "marks.sf2", true));
    EXPECT_EQ(store().count(kInstrumentClass), 2U);
    EXPECT_EQ(store().count(kWaveClass), 2U);
    EXPECT_EQ(store().count(kRegionClass), 2U);
}

TEST_F(Sf2Write, WhatIsLostIsTold) {
    startCollection();
    Wave* wave = addWave("stereo", 50, 2);
    Instrument* instrument = store().Create<Instrument>(kNextFreeNumber, numberOf(wave->id()), 1U, "I");
    instrument->articulation.enabled = instrument->articulation.eqEnable = true;
    instrument->articulation.lfo1Shape = 2;
    store().First<Region>()->trigger = 1;
    write(*store().First<Collection>());
    std::set<std::string> fields;
    for (const Diagnostic& d : space.diagnostics.entries()) fields.insert(d.field);
    EXPECT_EQ(fields, (std::set<std::string>{"channels", "eqEnable", "lfo1Shape, lfo2Shape", "trigger"}));
}

TEST_F(Sf2Write, ManyValuesShareInstruments) {
    startCollection();
    Wave* wave = addWave("w");
    // The same keys everywhere, with an offset of volume and tune for each instrument: 130 * 100 * 6 values.
    std::minstd_rand random(1);
    std::vector<Articulation> keys(100);
    for (Articulation& a : keys) {
        a.enabled = true;
        for (f32 Articulation::*field :
             {&Articulation::eg1Attack, &Articulation::eg1Decay, &Articulation::eg1Hold,
              &Articulation::eg1Delay, &Articulation::eg2Attack})
            a.*field = static_cast<f32>(random() % 1000) / 100;
        a.filterEnable = true;
        a.filterType = 1;
        a.filterCutoff = 300 + static_cast<f32>(random() % 400);
    }
    const auto fill = [&](bool alike) {
        for (u32 i = 0; i < 130; ++i) {
            Instrument* instrument = store().Create<Instrument>(kNextFreeNumber, 0U, 0U, "I");
            instrument->patch = i;
            Layer* layer = store().Create<Layer>(kNextFreeNumber);
            instrument->AddChild(layer->id());
            for (u8 key = 0; key < 100; ++key) {
                Region* region = store().Create<Region>(kNextFreeNumber, numberOf(wave->id()), key, key);
                region->articulation = keys[key];
                if (!alike) region->articulation.eg1Attack = static_cast<f32>(random() % 30000) / 1000;
                if (!alike) region->articulation.eg1Decay = static_cast<f32>(random() % 30000) / 1000;
                region->articulation.panDefault = static_cast<f32>(i) / 500;
                layer->AddChild(region->id());
            }
        }
    };
    fill(true);
    const Bytes bytes = write(*store().First<Collection>());
    const SfFile file = parse(bytes);
    EXPECT_LT(file.instruments.generators.count(), 2000U);
    for (std::size_t i = 0; i < file.instruments.generators.count(); ++i) {
        ByteCursor record = file.instruments.generators[i];
        const bool cutoff = record.u16le() == kInitialFilterFc;
        ASSERT_LE(record.u16le(), cutoff ? 13500 : 65535) << "players limit it before they add the preset's";
    }
    test::writeFile(folder / "shared.sf2", bytes);
    ASSERT_TRUE(Import(folder / "shared.sf2", true));
    EXPECT_EQ(store().count(kRegionClass), 13000U);
    const Instrument& last = *store().Find<Instrument>(store().First<Collection>()->childIds.back());
    const Region* region = LayerRegionAtKey(*store().Find<Layer>(last.childIds[0]), 50);
    EXPECT_FLOAT_EQ(region->articulation.panDefault, 129 / 500.0F);
    EXPECT_NEAR(region->articulation.eg1Attack, keys[50].eg1Attack, 0.01);

    startCollection();
    wave = addWave("w");
    fill(false);
    const int row = rowOf("SoundFont v2 bank");
    EXPECT_FALSE(Export(row, folder / "many.sf2", store().First<Collection>(), kAnyFormat, 0, false));
    EXPECT_TRUE(space.error.message.starts_with("Save failed - Too many 'parameter values' !\n\nThe SF2"));
    EXPECT_FALSE(std::filesystem::exists(folder / "many.sf2"));
}

/// Rewriting what was written gives the same bytes, and readers see the same zones.
TEST_F(Sf2Write, RewritingRealBanks) {
    struct Case {
        const char* file;
        std::size_t presets, zones, samples;
    };
    const Case cases[] = {{"TimGM6mb.sf2", 136, 2063, 520},
                          {"VintageDreamsWaves-v2.sf2", 136, 1287, 123},
                          {"lip_24bit_sm24_a.sf2", 1, 2, 2},
                          {"poly_from_sfz_mono.sf2", 1, 2, 2},
                          {"ding.sf2", 1, 1, 1}};
    for (const Case& c : cases) {
        const std::filesystem::path source = std::filesystem::path(KV_CORPUS_DIR) / "sf2" / c.file;
        if (!std::filesystem::exists(source)) GTEST_SKIP() << source << " is not there";
        SCOPED_TRACE(c.file);
        std::vector<Bytes> generations;
        std::filesystem::path from = source;
        for (const char* to : {"1.sf2", "2.sf2", "3.sf2", "4.sbk", "5.sbk", "6.sbk"}) {
            ASSERT_TRUE(Import(from, true)) << failure();
            EXPECT_EQ(store().count(kInstrumentClass), c.presets) << to;
            EXPECT_EQ(store().count(kRegionClass), c.zones) << to;
            EXPECT_EQ(store().count(kWaveClass), c.samples) << to;
            generations.push_back(write(*store().First<Collection>(), to));
            from = folder / to;
        }
        EXPECT_EQ(generations[1], generations[2]);
        EXPECT_EQ(generations[4], generations[5]);
    }
}

TEST_F(Sf2Write, DamagedBanksAreReadAsFarAsTheyGo) {
    TestBank bank = TestBank::simple({{{17, 100}}}, {{{{43, range(0, 20)}, {8, 5000}, {53, 0}}},
                                                     {{{43, range(20, 40)}, {53, 1}}, {{0x0081, 6, 100}}}});
    bank.samples.push_back({"T", 500, 900, 0, 0, 60, 0, 0, 4});
    bank.low.assign(1000, std::byte{1});
    const Bytes whole = bank.build();
    const int rows[] = {rowOf("SoundFont v2 bank"), rowOf("SoundFont v1")};
    const auto survives = [&](const Bytes& bytes) {
        test::writeFile(folder / "hurt.sf2", bytes);
        for (const int row : rows) {
            if (!Import(folder / "hurt.sf2", true, row)) continue;
            for (Wave& wave : store().all<Wave>()) wave.LoadData();
            Export(rows[0], folder / "again.sf2", store().First<Collection>(), kAnyFormat, 0, true);
        }
    };
    for (std::size_t size = 0; size < whole.size(); size += size < 200 || size > 2900 ? 1 : 97)
        survives(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
    std::minstd_rand random(7);
    for (int i = 0; i < 400; ++i) {
        Bytes bytes = whole;
        for (int n = 0; n < 3; ++n) {
            // The tables, mostly: most of the file is sample data.
            const std::size_t at =
                random() % 3 == 0 ? random() % bytes.size() : bytes.size() - 1 - random() % 420;
            bytes[at] = static_cast<std::byte>(random());
        }
        survives(bytes);
    }
}

TEST(SbkMapping, LinearUnitsBothWays) {
    const SfZone nothing = presetZoneDefaults();
    struct Case {
        u8 number;
        i16 amount;
        f32 Articulation::*field;
        f64 value;
    };
    using A = Articulation;
    const Case cases[] = {
        {22, 100, &A::lfo1Frequency, 8.405}, {34, 250, &A::eg1Attack, 0.25},
        {37, 33, &A::eg1Sustain, 1.0 / 3},   {13, 10, &A::lfo1ToVolume, 1.8},
        {11, 10, &A::eg2ToCutoff, -0.936},   {17, 0, &A::panDefault, -1},
        {17, 127, &A::panDefault, 1},        {16, 255, &A::reverbDefault, 0.998835},
        {8, 100, &A::filterCutoff, 4800},    {56, 1, &A::keyToPitch, 0.5},
    };
    for (const Case& c : cases) {
        SfZone zone = sbkInstrumentDefaults();
        zone.generators[kInitialFilterFc] = 100;
        zone.generators[c.number] = c.amount;
        Articulation articulation;
        SampleParams params;
        sbk_ReadZone({nothing, zone}, articulation, params);
        EXPECT_NEAR(articulation.*c.field, c.value, 1e-5) << int{c.number};
        EXPECT_EQ(sbk_ZoneOf(articulation).generators[c.number], c.amount) << int{c.number};
    }
    SfZone zone = sbkInstrumentDefaults();
    EXPECT_EQ(sbk_SampleRate({nothing, zone}), 44100U);
    zone.generators[kSamplePitch] = 7200;
    EXPECT_EQ(sbk_SampleRate({nothing, zone}), 22050U);
    Articulation articulation;
    SampleParams params;
    zone.generators[kInitialAttenuation] = 127 - 64;
    sbk_ReadZone({nothing, zone}, articulation, params);
    EXPECT_EQ(params.gainDb, -48);
    EXPECT_FALSE(articulation.filterEnable);
}

} // namespace
} // namespace kv
