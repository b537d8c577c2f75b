#include <cmath>

#include "formats/banks/dls/test_dls.h"
#include "formats/framework/chunks.h"
#include "model/articulation_fields.h"
#include "model/articulation_levels.h"

namespace kv {
namespace {

using namespace test;

class DlsWrite : public DlsTest {
protected:
    Wave* addWave(std::string_view name, u32 frames, u32 channels = 1) {
        Wave* made = store().Create<Wave>(kNextFreeNumber, nullptr, name);
        made->frames = frames;
        made->channels = channels;
        made->sampleRate = 44100;
        made->sourceFile = kMemoryOnly;
        made->reloadable = false;
        EXPECT_TRUE(made->samples16.allocate(frames * channels));
        for (u32 i = 0; i < frames * channels; ++i) made->samples16.data()[i] = static_cast<i16>(i * 97);
        return made;
    }
    /// An instrument with a layer for each region.
    Instrument* addInstrument(std::size_t regions, u32 patch = 0) {
        Wave* played = addWave("played", 20);
        Instrument* made = store().Create<Instrument>(kNextFreeNumber, numberOf(played->id()),
                                                      static_cast<u32>(regions), "made");
        made->patch = patch;
        return made;
    }
    void start() {
        store().DeleteAllItems();
        ui.messages.clear();
        ui.questions.clear();
        space.diagnostics.clear();
        store().Create<Collection>(folder / "made.dls");
    }
    bool write(std::string_view level, Item* item = nullptr, u32 wanted = kAnyFormat) {
        for (Item* one = store().FirstItem(kWaveClass); one; one = store().NextItem(*one)) one->FixUp();
        for (const u32 bit : {kRegionClass, kLayerClass, kInstrumentClass}) {
            for (Item* one = store().FirstItem(bit); one && classOf(one->id()) == bit;
                 one = store().NextItem(*one))
                one->FixUp();
        }
        const std::string row = "DownLoadable Sounds level " + std::string(level);
        const bool mobile = level.starts_with("Mobile");
        return Export(rowOf(mobile ? level : std::string_view(row)), folder / "out.dls",
                      item ? item : store().First<Collection>(), wanted, 0, true);
    }
    bool readBack() {
        space.settings.load.bAutoBid2Fwd = space.settings.load.bAutoRev2Fwd = false;
        return Import(folder / "out.dls", false);
    }
    std::size_t written(std::string_view id) {
        const Bytes bytes = readFile(folder / "out.dls");
        const std::string_view text = textOf(bytes);
        std::size_t count = 0;
        for (std::size_t at = text.find(id); at != text.npos; at = text.find(id, at + 1)) ++count;
        return count;
    }
};

TEST_F(DlsWrite, TooManyRegions) {
    struct Row {
        std::string_view level;
        u32 patch;
        std::size_t regions, kept; ///< when the answer is No
    };
    const Row rows[] = {
        {"1", 0, 16, 16},   {"1", 0, 17, 16},   {"1", Instrument::kDrumKit, 17, 17},
        {"2", 0, 128, 128}, {"2", 0, 129, 128}, {"1", Instrument::kDrumKit, 130, 128},
    };
    for (const Row& row : rows) {
        for (const bool all : {false, true}) {
            start();
            addInstrument(row.regions, row.patch);
            addInstrument(row.regions, row.patch);
            ui.answers = {all ? 0 : 1};
            ASSERT_TRUE(write(row.level)) << failure();
            EXPECT_EQ(ui.questions.size(), row.kept < row.regions ? 1U : 0U) << "once for a save";
            ui.answers.clear();
            ASSERT_TRUE(readBack());
            EXPECT_EQ(store().count(kRegionClass), 2 * (all ? row.regions : row.kept)) << row.level;
        }
    }
}

TEST_F(DlsWrite, MobileLimits) {
    constexpr std::string_view kMinimal = "Mobile DLS - 'minimal' device caps",
                               kFull = "Mobile DLS - 'full' device caps";
    struct Row {
        std::string_view row;
        u32 frames;
        u32 wanted;
        std::string warning;
    };
    const Row rows[] = {
        {kMinimal, 3584, kPcm16, ""}, {kMinimal, 3585, kPcm16, "> 7 KB"}, {kMinimal, 7168, kPcm8, ""},
        {kFull, 7680, kPcm16, ""},    {kFull, 7681, kPcm16, "> 15 KB"},
    };
    for (const Row& row : rows) {
        start();
        addWave("w", row.frames);
        ASSERT_TRUE(write(row.row, nullptr, row.wanted)) << failure();
        ASSERT_EQ(ui.messages.size(), row.warning.empty() ? 0U : 1U) << row.frames;
        if (!row.warning.empty()) {
            EXPECT_NE(ui.messages[0].find(row.warning), std::string::npos);
        }
    }
    start();
    addInstrument(1, Instrument::kDrumKit);
    addInstrument(1, 5);
    ASSERT_TRUE(write(kFull));
    ASSERT_EQ(ui.messages.size(), 1U);
    ASSERT_TRUE(readBack());
    ASSERT_EQ(store().count(kInstrumentClass), 1U) << "the kit is left out";
    EXPECT_EQ(store().First<Instrument>()->program(), 5U);
}

TEST_F(DlsWrite, WhatEachLevelHolds) {
    struct Row {
        std::string_view level;
        bool velocities;
        u16 loopFlags;
        std::size_t rgn2, privateLists;
    };
    const Row rows[] = {
        {"1", false, kLooped, 0, 0},
        {"2", true, kLooped | kLoopUntilRelease, 1, 0},
        {"2+", true, kLooped | kLoopUntilRelease, 1, 0},
        {"2++", true, kLooped | kLoopUntilRelease | kLoopBidirectional, 1, 3},
    };
    for (const Row& row : rows) {
        start();
        Instrument* instrument = addInstrument(1);
        Region& region = *store().First<Region>();
        region.velLow = 10;
        region.velHigh = 20;
        region.params = {.override = true, .rootKey = 70, .fineTune = 20, .loopStart = 3, .loopEnd = 17};
        region.params.loopFlags = kLooped | kLoopUntilRelease | kLoopBidirectional;
        region.articulation.enabled = true;
        region.articulation.masterTune = 1.5F;
        ASSERT_TRUE(write(row.level, instrument)) << failure();
        EXPECT_EQ(written("rgn2"), row.rgn2);
        EXPECT_EQ(written("LKF1"), row.privateLists);
        ASSERT_TRUE(readBack());
        const Region& back = *store().First<Region>();
        EXPECT_EQ(back.velLow, row.velocities ? 10 : 0) << row.level;
        EXPECT_EQ(back.velHigh, row.velocities ? 20 : 127);
        EXPECT_EQ(back.params.loopFlags, row.loopFlags);
        EXPECT_EQ(back.params.loopStart, 3);
        EXPECT_EQ(back.params.loopEnd, 17);
        const f64 pitch =
            back.params.fineTune - back.params.rootKey * 100.0 + back.articulation.masterTune * 100;
        EXPECT_NEAR(pitch, 170.0 - 7000, 0.01) << "tuning counts once at level " << row.level;
    }
}

/// The list of a form is as long as it says, and so is each within it.
void checkSizes(ByteSource& source, u64 start, u64 end, int depth = 0) {
    u64 at = start;
    ChunkWalker walker(source, start, end);
    for (Chunk chunk; walker.next(chunk);) {
        ASSERT_EQ(chunk.size, chunk.statedSize);
        ASSERT_EQ(chunk.start, at + 8);
        at = chunk.end() + chunk.size % 2;
        if (chunk.id == fourcc("LIST")) checkSizes(source, chunk.start + 4, chunk.end(), depth + 1);
        if (chunk.id == fourcc("LKF1")) checkSizes(source, chunk.start, chunk.end(), depth + 1);
    }
    EXPECT_EQ(at, end) << depth;
}

/// Moves a field off its default, to a value that the blocks hold exactly.
void disturb(const ArticulationField& field, Articulation& record, int salt) {
    switch (field.unit) {
        case FieldUnit::Flag:
            return field.set(record, 1);
        case FieldUnit::Shape:
            return field.set(record, 3 + salt);
        case FieldUnit::FilterType:
            return field.set(record, 4 + salt);
        case FieldUnit::Hertz:
            return field.set(record, field.most > 100 ? 220 * (1 + salt) : 6.875 * (1 + salt % 2));
        case FieldUnit::Seconds:
        case FieldUnit::Factor:
            return field.set(record, 0.25 * (1 << salt));
        default:
            return field.set(record, field.initial() == 0.5 ? 0.25 : 0.5);
    }
}

TEST_F(DlsWrite, TheFullLevelLosesNothing) {
    start();
    Collection& collection = *store().First<Collection>();
    collection.SetName("Everything", false);
    collection.engineer = "Ann";
    collection.copyright = "nobody's";
    collection.comments = "all of it";
    Wave* mono = addWave("mono", 101);
    Wave* stereo = addWave("stereo", 51, 2);
    mono->artist = "a";
    mono->album = "b";
    mono->engineer = "c";
    mono->copyright = "d";
    mono->comments = "e";
    mono->params = {.override = true,
                    .rootKey = 61,
                    .fineTune = -7,
                    .gainDb = -2.5F,
                    .loopStart = 10.25,
                    .loopEnd = 90.75};
    mono->params.loopFlags = kLooped | kLoopBidirectional | kLoopUntilRelease;
    Instrument& instrument =
        *store().Create<Instrument>(kNextFreeNumber, numberOf(mono->id()), 2U, "instrument");
    instrument.patch = 7 | 8 << 7 | 9 << 14; // a kit would have no records of its layers
    instrument.comment = "how it is played";
    Layer& layer = *store().Find<Layer>(instrument.childIds[1]);
    Region& region = *store().Find<Region>(layer.childIds[0]);
    region.keyLow = 20;
    region.keyHigh = 30;
    region.velLow = 40;
    region.velHigh = 50;
    region.phaseGroup = 9;
    region.phaseMaster = 1;
    region.trigger = 0x32;
    region.pedalUp = 0;
    region.keyGroup = 5;
    region.selfNonExclusive = 1;
    region.params = mono->params;
    region.params.gainDb = 3;
    region.params.loopStart = 11.5;
    region.params.loopFlags = kLooped | kLoopReverse;
    layer.AddChild(store().Create<Region>(kNextFreeNumber, numberOf(stereo->id()), u8{60}, u8{70})->id());
    int salt = 0;
    for (Articulation* record : {&region.articulation, &layer.articulation, &instrument.articulation}) {
        record->enabled = true;
        for (const ArticulationField& field : articulationFields()) disturb(field, *record, salt);
        ++salt;
    }
    // What has no block: shelves of the equaliser, and a field that stands for symmetry.
    constexpr std::string_view kWithoutBlock[] = {"eqLoShelf", "eqHiShelf", "eg2Shutdown"};
    ASSERT_TRUE(write("2++")) << failure();

    const Articulation layerWas = layer.articulation, instrumentWas = instrument.articulation;
    const SampleParams monoWas = mono->params;
    const std::vector<i16> points(stereo->samples16.data(), stereo->samples16.data() + 102);
    const SampleParams paramsWas = region.params;
    const Articulation regionWas = region.articulation;
    const u8 triggerWas = region.trigger, upWas = region.pedalUp, downWas = region.pedalDown;

    FileContext file;
    file.source = openFileSource(folder / "out.dls");
    checkSizes(*file.source, 12, file.size());
    space.diagnostics.clear();
    ASSERT_TRUE(readBack()) << failure();
    EXPECT_TRUE(space.diagnostics.entries().empty());

    const Collection& c = *store().First<Collection>();
    EXPECT_EQ(c.name(), "Everything");
    EXPECT_EQ(c.engineer, "Ann");
    EXPECT_EQ(c.copyright, "nobody's");
    EXPECT_EQ(c.comments, "all of it");
    ASSERT_EQ(store().count(kWaveClass), 2U);
    Wave& m = *store().First<Wave>();
    Wave& s = *store().Next(m);
    EXPECT_EQ(m.name(), "mono");
    EXPECT_EQ(m.artist, "a");
    EXPECT_EQ(m.album, "b");
    EXPECT_EQ(m.engineer, "c");
    EXPECT_EQ(m.copyright, "d");
    EXPECT_EQ(m.comments, "e");
    EXPECT_TRUE(m.params == monoWas);
    ASSERT_TRUE(s.LoadData());
    ASSERT_EQ(s.channels, 2U);
    EXPECT_TRUE(std::equal(points.begin(), points.end(), s.samples16.data()));

    const Instrument& i = *store().First<Instrument>();
    EXPECT_EQ(i.patch, 7U | 8 << 7 | 9 << 14);
    EXPECT_EQ(i.name(), "instrument");
    EXPECT_EQ(i.comment, "how it is played");
    EXPECT_EQ(ranges(), "0-127 | 20-30 60-70");
    const Layer& l = *store().Find<Layer>(i.childIds[1]);
    const Region& r = *store().Find<Region>(l.childIds[0]);
    EXPECT_EQ(r.velLow, 40);
    EXPECT_EQ(r.velHigh, 50);
    EXPECT_EQ(r.phaseGroup, 9);
    EXPECT_EQ(r.phaseMaster, 1);
    EXPECT_EQ(r.trigger, triggerWas);
    EXPECT_EQ(r.pedalUp, upWas);
    EXPECT_EQ(r.pedalDown, downWas);
    EXPECT_EQ(r.keyGroup, 5);
    EXPECT_EQ(r.selfNonExclusive, 1);
    EXPECT_TRUE(r.params == paramsWas) << r.params.gainDb;
    const std::pair<const Articulation&, const Articulation&> records[] = {
        {r.articulation, regionWas}, {l.articulation, layerWas}, {i.articulation, instrumentWas}};
    for (const auto& [now, before] : records) {
        SCOPED_TRACE(&now == &r.articulation ? "region" : &now == &l.articulation ? "layer" : "instrument");
        EXPECT_TRUE(now.enabled);
        for (const ArticulationField& field : articulationFields()) {
            const bool held = std::ranges::count(kWithoutBlock, field.name) == 0;
            const f64 wanted = held ? field.get(before) : field.initial();
            EXPECT_NEAR(field.get(now), wanted, 1e-5 * std::max(1.0, std::abs(wanted))) << field.name;
        }
    }
}

TEST_F(DlsWrite, LossesAreToldOnceForAnInstrument) {
    start();
    addInstrument(2);
    for (Region& region : store().all<Region>()) {
        region.velHigh = 100;
        region.articulation.enabled = true;
        region.articulation.filterEnable = true;
        region.articulation.filterCutoff = 4000;
        region.articulation.eg2Decay = 30; // moves nothing
    }
    ASSERT_TRUE(write("1"));
    std::vector<std::string> fields;
    for (const Diagnostic& d : space.diagnostics.entries()) fields.push_back(d.field);
    EXPECT_EQ(fields, (std::vector<std::string>{"filterCutoff", "filterEnable", "velLow, velHigh"}));
    space.diagnostics.clear();
    ASSERT_TRUE(write("2"));
    EXPECT_TRUE(space.diagnostics.entries().empty()) << space.diagnostics.entries()[0].field;
}

TEST_F(DlsWrite, WavesInFormsOfTheirOwn) {
    const u32 forms[] = {kPcm8, kPcm16, kPcm24, kPcm32, kFloat32, kMuLaw, kALaw};
    start();
    for (const u32 form : forms) addWave("w", 33)->preferredFormat = form;
    addWave("other", 33)->preferredFormat = kAdpcm4;
    ASSERT_TRUE(write("2+")) << failure();
    EXPECT_EQ(written("fact"), 3U);
    ASSERT_TRUE(readBack());
    std::size_t at = 0;
    for (Wave& back : store().all<Wave>()) {
        EXPECT_EQ(back.preferredFormat, at < std::size(forms) ? forms[at] : kPcm16) << at;
        EXPECT_EQ(back.frames, 33U);
        EXPECT_TRUE(back.LoadData());
        ++at;
    }
    EXPECT_EQ(at, std::size(forms) + 1);
}

} // namespace
} // namespace kv
