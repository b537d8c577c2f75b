#include "model/articulation_blocks.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <optional>
#include <random>

#include "base/run_context.h"
#include "model/articulation_fields.h"
#include "model/articulation_preset.h"
#include "test_support.h"

namespace kv {
namespace {

constexpr i32 kLowest = std::numeric_limits<i32>::min(), kHighest = std::numeric_limits<i32>::max();

struct Key {
    u16 source, control, destination;
    friend bool operator==(const Key&, const Key&) = default;
};

struct Block {
    Key key;
    u16 transform;
    i32 scale;
};

Bytes listOf(const Articulation& record, const Articulation* parent, int level) {
    ByteWriter to;
    writeArticulationBlocks(to, record, parent, level);
    EXPECT_EQ(to.size(), articulationBlocksSize(record, parent, level)) << "level " << level;
    return to.take();
}

std::vector<Block> blocksOf(const Articulation& record, const Articulation* parent, int level) {
    const Bytes list = listOf(record, parent, level);
    ByteCursor in(list);
    in.skip(24);
    std::vector<Block> blocks(in.u32le());
    for (Block& b : blocks) {
        b.key = {in.u16le(), in.u16le(), in.u16le()};
        b.transform = in.u16le();
        b.scale = in.s32le();
    }
    EXPECT_TRUE(in.ok() && in.left() == 0);
    return blocks;
}

std::optional<i32> scaleOf(const std::vector<Block>& blocks, Key key) {
    const auto found = std::ranges::find(blocks, key, &Block::key);
    return found == blocks.end() ? std::nullopt : std::optional(found->scale);
}

Bytes chunkOf(std::initializer_list<Block> blocks, u32 count) {
    ByteWriter to;
    to.u32le(8).u32le(count);
    for (const Block& b : blocks) {
        to.u16le(b.key.source).u16le(b.key.control).u16le(b.key.destination).u16le(b.transform);
        to.u32le(static_cast<u32>(b.scale));
    }
    return to.take();
}

using Change = std::function<void(Articulation&)>;

Articulation changed(const Change& change) {
    Articulation record;
    if (change) change(record);
    return record;
}

Articulation readBack(const Bytes& list) {
    Articulation record;
    EXPECT_TRUE(readArticulationBlocks(ByteSpan(list).subspan(20), record));
    return record;
}

TEST(ArticulationBlocks, WritesTheseBytes) {
    const auto list = [](std::string_view type, std::string_view chunk, std::initializer_list<Block> blocks) {
        const u32 count = static_cast<u32>(blocks.size());
        ByteWriter to;
        to.text("LIST").u32le(20 + 12 * count).text(type).text(chunk).u32le(8 + 12 * count);
        return to.bytes(chunkOf(blocks, count)).take();
    };
    EXPECT_EQ(listOf({}, nullptr, 1), list("lart", "art1", {}));
    EXPECT_EQ(listOf({}, nullptr, 2), list("lar2", "art2", {}));
    // Two blocks stand in every list from level 4 on.
    EXPECT_EQ(listOf({}, nullptr, 4), list("lar2", "art2", {{{3, 0, 1}, 0x4000, 0}, {{8, 0, 1}, 0, 0}}));
    const Articulation record = changed([](Articulation& a) {
        a.lfo1Frequency = 13.75F; // five octaves below 440 Hz, 900 cents above key 0
        a.modToLfo2Pitch = -1.5F;
    });
    EXPECT_EQ(listOf(record, nullptr, 2),
              list("lar2", "art2", {{{0, 0, 0x0104}, 0, 0x03840000}, {{9, 0x81, 3}, 0x4000, -0x00960000}}));
}

constexpr Key kTune{0, 0, 3}, kCutoff{0, 0, 0x0500}, kType{0, 0, 0x8805}, kLfoVolume{1, 0, 1},
    kLfoPitch{1, 0, 3}, kFrequency{0, 0, 0x0104}, kKeyToPan{3, 0, 4};
constexpr i32 kSemitone = 6553600, kDecibel = 655360, kFull = 65536000, kCent = 65536;

/// What is written for a record below a parent; nothing: no such block.
struct Case {
    const char* what;
    int level;
    Change record, parent; // without a change of the parent there is none
    Key key;
    std::optional<i32> scale;
};

void check(const Case& c) {
    const Articulation parent = changed(c.parent);
    const auto blocks = blocksOf(changed(c.record), c.parent ? &parent : nullptr, c.level);
    EXPECT_EQ(scaleOf(blocks, c.key), c.scale) << c.what << ", level " << c.level;
}

#define KV_SET(...) []([[maybe_unused]] Articulation& a) { __VA_ARGS__; }
#define KV_FILTER(type, ...) KV_SET(a.filterEnable = true; a.filterType = type; __VA_ARGS__)
#define KV_EQ(...) KV_SET(a.eqEnable = true; __VA_ARGS__)
const Change kNone;

TEST(ArticulationBlocks, LimitsAndForms) {
    const Case cases[] = {
        {"rounded", 2, KV_SET(a.lfo1ToVolume = 1.6F / kDecibel), kNone, kLfoVolume, 2},
        {"truncated", 2, KV_SET(a.masterTune = 1.6F / kSemitone), kNone, kTune, 1},
        {"truncated below zero", 2, KV_SET(a.masterTune = -1.6F / kSemitone), kNone, kTune, -1},
        {"tune", 2, KV_SET(a.masterTune = -48), kNone, kTune, -12 * kSemitone},
        {"an octave", 2, KV_SET(a.eg1Attack = 2), kNone, {0, 0, 0x0206}, 1200 * kCent},
        {"half a second", 2, KV_SET(a.eg1Attack = 0.5F), kNone, {0, 0, 0x0206}, -1200 * kCent},
        {"longest", 2, KV_SET(a.eg1KeyToHold = 2e21F), kNone, {3, 0, 0x020C}, kHighest},
        {"shortest", 2, KV_SET(a.eg1KeyToHold = 5e-22F), kNone, {3, 0, 0x020C}, kLowest},
        {"no shutdown", 2, KV_SET(a.eg1Shutdown = 0), kNone, {0, 0, 0x020D}, kLowest},
        {"delay as short as the least", 2, KV_SET(a.lfo1Delay = 0.005F), kNone, {0, 0, 0x0105}, {}},
        {"volume loses its sign", 2, KV_SET(a.lfo1ToVolume = -3), kNone, kLfoVolume, 3 * kDecibel},
        {"volume", 2, KV_SET(a.lfo1ToVolume = -90), kNone, kLfoVolume, 12 * kDecibel},
        {"volume", 4, KV_SET(a.lfo1ToVolume = -90), kNone, kLfoVolume, 90 * kDecibel},
        {"fall", 2, KV_SET(a.velToVolume = 40), kNone, {2, 0, 1}, -40 * kDecibel},
        {"rise", 2, KV_SET(a.velToVolume = -40), kNone, {2, 0, 1}, 0},
        {"rise", 4, KV_SET(a.velToVolume = -40), kNone, {2, 0, 1}, 40 * kDecibel},
        {"volume over keys", 4, KV_SET(a.keyToVolume = 24), kNone, {3, 0, 1}, 96 * kDecibel},
        {"volume over keys", 3, KV_SET(a.keyToVolume = 24), kNone, {3, 0, 1}, {}},
        {"tune over keys", 2, KV_SET(a.keyToPitch = 0.5F), kNone, {3, 0, 3}, 64 * kSemitone},
        {"tune over keys", 2, KV_SET(a.keyToPitch = 2), kNone, {3, 0, 3}, {}},
        {"tune over keys", 4, KV_SET(a.keyToPitch = 2), kNone, {3, 0, 3}, 256 * kSemitone},
        {"tune over keys", 4, KV_SET(a.keyToPitch = 12), kNone, {3, 0, 3}, kHighest},
        {"pitch", 3, KV_SET(a.lfo1ToPitch = -24), kNone, kLfoPitch, -12 * kSemitone},
        {"pitch", 4, KV_SET(a.lfo1ToPitch = -24), kNone, kLfoPitch, -24 * kSemitone},
        {"sine+", 3, KV_SET(a.lfo1ToPitch = 6; a.lfo1Shape = 1), kNone, kLfoPitch, 3 * kSemitone},
        {"sine+", 4, KV_SET(a.lfo1ToPitch = 6; a.lfo1Shape = 1), kNone, kLfoPitch, 6 * kSemitone},
        {"other's sine+", 3, KV_SET(a.lfo2ToPitch = 6; a.lfo1Shape = 1), kNone, {9, 0, 3}, 6 * kSemitone},
        {"shape", 4, KV_SET(a.lfo2Shape = 7), kNone, {0, 0, 0x8804}, 7},
        {"pan", 2, KV_SET(a.panDefault = -1), kNone, {0, 0, 4}, -kFull / 2},
        {"controller", 2, KV_SET(a.cc10ToPan = -1), kNone, {0x8A, 0, 4}, -33292288},
        {"bend", 4, KV_SET(a.pitchBendRange = 12), kNone, {0, 0, 0x0100}, 12 * kSemitone},
        {"bend", 3, KV_SET(a.pitchBendRange = 12), kNone, {0, 0, 0x0100}, {}},
    };
    for (const Case& c : cases) check(c);
}

TEST(ArticulationBlocks, FilterAndEqualiser) {
    const Case cases[] = {
        {"8 kHz is open", 2, KV_FILTER(1, a.filterCutoff = 8000), kNone, kCutoff, {}},
        {"880 Hz", 2, KV_FILTER(1, a.filterCutoff = 880), kNone, kCutoff, 8100 * kCent},
        {"low", 2, KV_FILTER(1, a.filterCutoff = 16), kNone, kCutoff, 5535 * kCent},
        {"low", 3, KV_FILTER(1, a.filterCutoff = 16), kNone, kCutoff, 1548 * kCent},
        {"14080 Hz", 2, KV_FILTER(1, a.filterCutoff = 14080), kNone, kCutoff, {}},
        {"14080 Hz", 3, KV_FILTER(1, a.filterCutoff = 14080), kNone, kCutoff, 12900 * kCent},
        {"high pass", 3, KV_FILTER(4, a.filterCutoff = 880), kNone, kCutoff, {}},
        {"high pass", 4, KV_FILTER(4, a.filterCutoff = 880), kNone, kCutoff, 8100 * kCent},
        {"high pass", 4, KV_FILTER(4, ), kNone, kType, 2},
        {"off", 4, KV_SET(a.filterCutoff = 880), kNone, kCutoff, {}},
        {"turned off", 2, KV_SET(), KV_FILTER(1, a.filterCutoff = 880), kCutoff, kHighest},
        {"open anyway", 2, KV_SET(), KV_FILTER(1, a.filterCutoff = 8000), kCutoff, {}},
        {"type turned off", 4, KV_SET(), KV_FILTER(1, ), kType, 0},
        {"first type stays", 4, KV_SET(), KV_FILTER(0, ), kType, {}},
        {"resonance", 3, KV_FILTER(1, a.filterResonance = 40), kNone, {0, 0, 0x0501}, 22 * kDecibel + 327680},
        {"resonance", 4, KV_FILTER(1, a.filterResonance = 40), kNone, {0, 0, 0x0501}, 40 * kDecibel},
        {"no filter", 4, KV_SET(a.filterResonance = 40), kNone, {0, 0, 0x0501}, {}},
        {"no filter", 4, KV_SET(a.keyToCutoff = 1), KV_FILTER(1, a.keyToCutoff = 1), {3, 0, 0x0500}, 0},
        {"no band", 4, KV_EQ(a.eqLoFreq = 440; a.eqLoQ = 2), kNone, {0, 0, 0x8810}, {}},
        {"band", 4, KV_EQ(a.eqLoFreq = 440; a.eqLoGain = -3), kNone, {0, 0, 0x8810}, 6900 * kCent},
        {"gain", 4, KV_EQ(a.eqMidGain = -3), kNone, {0, 0, 0x8814}, -3 * kDecibel},
        {"gain", 3, KV_EQ(a.eqMidGain = -3), kNone, {0, 0, 0x8814}, {}},
        {"gain, switched off", 4, KV_SET(a.eqMidGain = -3), kNone, {0, 0, 0x8814}, {}},
        {"gain of the parent", 4, KV_SET(), KV_EQ(a.eqMidGain = -3), {0, 0, 0x8814}, 0},
        {"quality", 4, KV_EQ(a.eqHiGain = 6; a.eqHiQ = 0.5F), kNone, {0, 0, 0x8818}, kFull / 2},
        {"quality 1", 4, KV_EQ(a.eqHiGain = 6), kNone, {0, 0, 0x8818}, {}},
        {"quality of the parent", 4, KV_SET(), KV_EQ(a.eqHiGain = 6; a.eqHiQ = 2), {0, 0, 0x8818}, kFull},
    };
    for (const Case& c : cases) check(c);
}

TEST(ArticulationBlocks, OverrideAParent) {
    const Case cases[] = {
        {"back to the default", 2, KV_SET(), KV_SET(a.masterTune = 1), kTune, 0},
        {"back to the default", 2, KV_SET(), KV_SET(a.eg1Attack = 1), {0, 0, 0x0206}, kLowest},
        {"the same", 2, KV_SET(a.masterTune = 1), KV_SET(a.masterTune = 1), kTune, kSemitone},
        {"both default", 2, KV_SET(), KV_SET(), kTune, {}},
        {"alike within limits", 2, KV_SET(), KV_SET(a.keyToPitch = 7), {3, 0, 3}, {}},
        {"pan over keys", 4, KV_SET(), KV_SET(a.keyToPan = 1), kKeyToPan, {}},
        {"pan over keys", 4, KV_SET(), KV_SET(a.panDefault = 1), kKeyToPan, 0},
    };
    for (const Case& c : cases) check(c);
}

TEST(ArticulationBlocks, Level1) {
    const Case cases[] = {
        {"frequency", 1, KV_SET(a.lfo1Frequency = 20), kNone, kFrequency, 22851227},
        {"of LFO 2", 1, KV_SET(a.lfo2ToPitch = 1; a.lfo2Frequency = 6.875F), kNone, kFrequency, -300 * kCent},
        {"of LFO 1",
         1,
         KV_SET(a.lfo2ToPitch = a.lfo1ToPitch = 1; a.lfo2Frequency = 7),
         kNone,
         kFrequency,
         {}},
        {"LFO 2", 1, KV_SET(a.lfo2ToPitch = 1), kNone, {9, 0, 3}, {}},
        {"negative", 1, KV_SET(a.lfo1ToVolume = -3), kNone, kLfoVolume, {}},
        {"negative", 1, KV_SET(a.modToLfo1Volume = -3), kNone, {1, 0x81, 1}, 3 * kDecibel},
        {"sine+", 1, KV_SET(a.lfo1ToPitch = 6; a.lfo1Shape = 1), kNone, kLfoPitch, 3 * kSemitone},
        {"factor", 1, KV_SET(a.eg1KeyToDecay = 100), kNone, {3, 0, 0x0207}, 4800 * kCent},
        {"hold", 1, KV_SET(a.eg1Hold = 1), kNone, {0, 0, 0x020C}, {}},
        {"filter", 1, KV_FILTER(1, a.filterCutoff = 880), kNone, kCutoff, {}},
    };
    for (const Case& c : cases) check(c);
    for (const Block& b : blocksOf(changed(KV_SET(a.panDefault = 1; a.lfo1ToPitch = 1)), nullptr, 1))
        EXPECT_EQ(b.transform, 0);
}

/// Limits of what blocks can hold, where the field's are wider, and fields that no block holds.
struct Narrow {
    std::string_view field;
    f64 least, most;
};
constexpr Narrow kNarrow[] = {{"lfo1Frequency", 0.1, 20},
                              {"lfo2Frequency", 0.1, 20},
                              {"lfo1Delay", 0.01, 10},
                              {"lfo2Delay", 0.01, 10},
                              {"filterCutoff", 21, 19900},
                              {"lfo1ToVolume", 0, 96},
                              {"modToLfo1Volume", 0, 96},
                              {"masterTune", -12, 12},
                              {"aftertouchToLfo1Volume", 0, 96},
                              {"keyToVolume", -18, 18},
                              {"keyToPitch", -2.5, 2.5},
                              {"filterEnable", 1, 1},
                              {"eqEnable", 1, 1},
                              {"eqLoShelf", 0, 0},
                              {"eqHiShelf", 0, 0},
                              {"eg2Shutdown", 0.015F, 0.015F}};

TEST(ArticulationBlocks, KeepEveryField) {
    std::mt19937 random{11};
    for (int round = 0; round < 100; ++round) {
        Articulation record;
        for (const ArticulationField& field : articulationFields()) {
            const auto* found = std::ranges::find(kNarrow, field.name, &Narrow::field);
            Narrow range{field.name, field.least, field.most};
            if (found != std::end(kNarrow)) range = *found;
            if (field.unit == FieldUnit::Factor) range = {field.name, 1e-8, 1e8}; // 27 octaves
            const f64 value = std::uniform_real_distribution(range.least, range.most)(random);
            field.set(record, field.isReal() ? value : std::round(value));
        }
        const Articulation read = readBack(listOf(record, nullptr, kAllArticulationBlocks));
        for (const ArticulationField& field : articulationFields()) {
            const f64 wanted = field.get(record);
            EXPECT_NEAR(field.get(read), wanted, 1.6e-6 + 1e-7 * std::abs(wanted)) << field.name;
        }
    }
}

TEST(ArticulationBlocks, ReadsWhatOthersWrite) {
    struct Read {
        Block block;
        f32 Articulation::*field;
        f32 wanted;
    };
    using A = Articulation;
    const Read cases[] = {
        {{{0, 0, 0x0208}, 0, 0x12340000 + 250}, &A::eg1Sustain, 0.25F},
        {{{0, 0, 0x030C}, 0, 0xFFFF}, &A::eg2Sustain, 65.535F},
        {{{0, 0, 2}, 0, 0x12340000 + 0xFF06}, &A::panDefault, -0.5F},
        {{{2, 0, 0x0500}, 0x1234, kLowest}, &A::velToCutoff, 0},
        {{{2, 0, 0x0500}, 0x1234, -2 * kSemitone}, &A::velToCutoff, -2},
        {{{0, 0, 0x0206}, 0, kLowest}, &A::eg1Attack, 0},
        {{{0, 0, 0x0206}, 0, kHighest}, &A::eg1Attack, 166006752},
        {{{0x8A, 0, 4}, 0x4000, 33292288}, &A::cc10ToPan, 1},
        {{{2, 0, 1}, 0x8400, -96 * kDecibel}, &A::velToVolume, 96},
    };
    for (const Read& c : cases) {
        Articulation record;
        record.*c.field = -7;
        record.lfo1Shape = 3;
        ASSERT_TRUE(readArticulationBlocks(chunkOf({c.block}, 1), record));
        EXPECT_FLOAT_EQ(record.*c.field, c.wanted) << std::hex << c.block.key.destination;
        EXPECT_EQ(record.lfo1Shape, 0);
        EXPECT_TRUE(record.enabled);
    }
}

TEST(ArticulationBlocks, FilterTypesOfBlocks) {
    struct Read {
        i32 cutoff, type;
        bool wantedOn;
        i32 wantedType;
    };
    const Read cases[] = {
        {0, 0, false, 1}, {kHighest, kLowest, false, 1}, {0, 2, true, 4},       {0, 10, true, 9},
        {0, 11, true, 1}, {kHighest, 11, false, 1},      {kHighest, 5, true, 0}};
    for (const Read& c : cases) {
        Articulation record;
        ASSERT_TRUE(readArticulationBlocks(chunkOf({{kCutoff, 0, c.cutoff}, {kType, 0, c.type}}, 2), record));
        EXPECT_EQ(record.filterEnable, c.wantedOn) << c.cutoff << " " << c.type;
        EXPECT_EQ(record.filterType, c.wantedType) << c.cutoff << " " << c.type;
    }
}

TEST(ArticulationBlocks, TakeWhatIsThere) {
    const Block unknown{{7, 7, 7}, 0, 1}, tune{kTune, 0, kSemitone};
    struct Cut {
        Bytes chunk;
        bool wanted;
        f32 wantedTune;
    };
    const Bytes two = chunkOf({unknown, tune}, 0xFFFFFFFF);
    const auto cut = [&](std::size_t n) { return Bytes(two.begin(), two.begin() + static_cast<i64>(n)); };
    for (const Cut& c : {Cut{two, true, 1},
                         {cut(31), true, 0},
                         {cut(8), true, 0},
                         {cut(7), false, 0},
                         {{}, false, 0},
                         {chunkOf({tune}, 0), true, 0}}) {
        Articulation record;
        EXPECT_EQ(readArticulationBlocks(c.chunk, record), c.wanted) << c.chunk.size();
        EXPECT_EQ(record.enabled, c.wanted) << c.chunk.size();
        EXPECT_EQ(record.masterTune, c.wantedTune) << c.chunk.size();
    }
}

Bytes riff(std::string_view type, u32 size, const Bytes& contents) {
    return ByteWriter().text("RIFF").u32le(size).text(type).bytes(contents).take();
}

Bytes chunk(std::string_view name, const Bytes& contents, std::size_t shorter = 0) {
    ByteWriter to;
    to.text(name).u32le(static_cast<u32>(contents.size() - shorter)).bytes(contents);
    return to.take();
}

Bytes inLists(Bytes contents, int depth) {
    for (; depth > 0; --depth) contents = chunk("LIST", ByteWriter().text("any ").bytes(contents).take());
    return contents;
}

TEST(ArticulationPreset, ReplacesTheRecord) {
    const test::TempFolder folder;
    RunContext context;
    const RunContextScope scope(context);
    const Articulation saved = changed(KV_FILTER(4, a.filterCutoff = 880; a.keyToVolume = 2));
    ASSERT_TRUE(saveArticulationPreset(saved, folder / "a.dlsa"));
    const Bytes bytes = test::readFile(folder / "a.dlsa");
    EXPECT_EQ(bytes, riff("DLSA", static_cast<u32>(bytes.size() - 8), listOf(saved, nullptr, 99)));

    Articulation loaded = changed(KV_SET(a.masterTune = 3));
    ASSERT_TRUE(loadArticulationPreset(loaded, folder / "a.dlsa"));
    EXPECT_TRUE(loaded.enabled);
    EXPECT_EQ(loaded.masterTune, 0);
    EXPECT_EQ(loaded.filterType, 4);
    EXPECT_FLOAT_EQ(loaded.filterCutoff, 880);

    EXPECT_FALSE(loadArticulationPreset(loaded, folder / "none.dlsa"));
    EXPECT_EQ(context.error.context, "Articulation preset");
    EXPECT_FALSE(saveArticulationPreset(saved, folder / "none" / "a.dlsa"));
    EXPECT_EQ(folder.fileCount(), 1);
}

TEST(ArticulationPreset, WalksChunks) {
    const Bytes art = chunk("art1", chunkOf({{kTune, 0, kSemitone}}, 1));
    // A chunk of an odd size is followed by a byte that isn't counted.
    const Bytes odd = chunk("odd ", {std::byte{1}, std::byte{2}}, 1);
    Bytes afterOdd = odd;
    afterOdd.insert(afterOdd.end(), art.begin(), art.end());
    struct Walk {
        const char* what;
        Bytes file;
        bool wanted;
    };
    const auto sized = [](const Bytes& contents) {
        return riff("DLSA", static_cast<u32>(contents.size() + 4), contents);
    };
    const Walk cases[] = {
        {"plain", sized(art), true},
        {"aligned", sized(afterOdd), true},
        {"in lists", sized(inLists(art, 8)), true},
        {"too deep", sized(inLists(art, 9)), false},
        {"size too large", riff("DLSA", 0xFFFFFFFF, art), true},
        {"behind the end", riff("DLSA", 4, art), false},
        {"other form", riff("DLS ", 32, art), false},
        {"chunk too short", sized(chunk("art2", Bytes(7))), false},
        {"no chunk", sized(odd), false},
        {"no header", {}, false},
        {"not RIFF", chunk("RIFX", riff("DLSA", 32, art)), false},
    };
    for (const Walk& c : cases) {
        Articulation record;
        const Articulation before = record;
        MemorySource file{ByteSpan(c.file)};
        EXPECT_EQ(loadArticulationPreset(record, file), c.wanted) << c.what;
        EXPECT_EQ(record.masterTune, c.wanted ? 1 : 0) << c.what;
        EXPECT_EQ(record == before, !c.wanted) << c.what;
    }
}

} // namespace
} // namespace kv
