#include "model/articulation_blocks.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/run_context.h"

namespace kv {
namespace {

using A = Articulation;

constexpr u32 kBlockBytes = 12;
constexpr i32 kLowest = std::numeric_limits<i32>::min(), kHighest = std::numeric_limits<i32>::max();
constexpr f32 kInfinite = std::numeric_limits<f32>::infinity();

/// How a value becomes a block's scale, and back.
struct Form {
    enum Kind : u8 {
        Linear,
        Depth,    ///< linear, of which the lowest scale reads as none
        Time,     ///< 1/65536 of a cent above 1 s; the lowest scale is no time
        Pitch,    ///< 1/65536 of a cent above key 0
        Unsigned, ///< the lower 16 bits, of blocks that only some writers use
        Signed
    } kind;
    f64 unit = 1; ///< scale of a value of 1
    f64 out = 1;  ///< factor before writing
    f64 back = 1; ///< factor after reading
    bool rounded = false;
};

constexpr f64 kOctave = 1200.0 * 65536, kLongestTime = 166006752, kPitchOf440 = 5.75; // octaves above key 0
constexpr f64 kFull = 65536000, kDecibel = 655360, kSemitone = 6553600;
constexpr Form kTime{Form::Time}, kPitch{Form::Pitch}, kPlain{Form::Linear};
constexpr Form kLevel{Form::Linear, kFull}, kPan{Form::Linear, kFull, 0.5, 2};
constexpr Form kControllerPan{Form::Linear, kFull, 0.508, 1.968504}; // 127 / 250: a controller ends at 127
constexpr Form kGain{Form::Linear, kDecibel, 1, 1, true}, kFall{Form::Linear, kDecibel, 1, -1, true};
constexpr Form kGainOverKeys{Form::Linear, kDecibel, 1, 0.18897638, true}; // 24 / 127
constexpr Form kTune{Form::Linear, kSemitone}, kTuneOverKeys{Form::Linear, kSemitone, 128, 0.0078125};
constexpr Form kCutoffDepth{Form::Depth, kSemitone};
constexpr Form kPerMille{Form::Unsigned, 1, 1, 0.001}, kPan500{Form::Signed, 1, 1, 0.002};

i32 encode(const Form& form, f64 value) {
    constexpr f64 kHalf = 0.499;
    switch (form.kind) {
        case Form::Time:
            if (!(value > 0)) return kLowest;
            return value >= kLongestTime ? kHighest : roundHalf(std::log2(value) * kOctave, kHalf);
        case Form::Pitch:
            return roundHalf((std::log2(std::max(0.0, value) / 440) + kPitchOf440) * kOctave, kHalf);
        default: {
            const f64 scale = value * form.out * form.unit;
            return form.rounded ? roundHalf(scale, kHalf) : saturate<i32>(scale);
        }
    }
}

f64 decode(const Form& form, i32 scale) {
    switch (form.kind) {
        case Form::Time:
            return scale == kLowest ? 0 : std::exp2(scale / kOctave);
        case Form::Pitch:
            return std::exp2(scale / kOctave - kPitchOf440) * 440;
        case Form::Unsigned:
            return static_cast<u16>(scale) * form.back;
        case Form::Signed:
            return static_cast<i16>(scale) * form.back;
        case Form::Depth:
            if (scale == kLowest) return 0;
            [[fallthrough]];
        default:
            return scale / form.unit * form.back;
    }
}

/// Limits of a value below level 4 and from there on.
struct Limits {
    constexpr Limits(f32 lo, f32 hi) : Limits(lo, hi, lo, hi) {}
    constexpr Limits(f32 lo, f32 hi, f32 lo4, f32 hi4) : low{lo, hi}, high{lo4, hi4} {}
    f64 clamp(f64 value, int level) const {
        const auto& [least, most] = level < 4 ? low : high;
        return std::clamp<f64>(value, least, most);
    }

private:
    struct Range {
        f32 least, most;
    } low, high;
};
constexpr Limits kAny{-kInfinite, kInfinite};
constexpr f32 kNever = std::numeric_limits<f32>::quiet_NaN(); // equals no value, so the row isn't skipped

/// What few rows have.
struct Extras {
    int from = 0;                                    ///< the level from which on the row is written
    bool (*inUse)(const A&, int level) = nullptr;    ///< when not, the row counts as at its default
    f64 (*value)(const A&, int level) = nullptr;     ///< to write instead of the member
    f64 (*inherited)(const A&, int level) = nullptr; ///< what the value is compared with in a parent
    u32 A::*lfo = nullptr;                           ///< shape of the LFO whose depth the row is
    void (*read)(A&, i32 scale) = nullptr;           ///< done after the member is set
};

/// A kind of block: which one it is, the field it stands for and how; the value at which it is left out.
struct Row {
    u16 source, control, destination, transform;
    f32 A::*member;
    Form form;
    Limits limits;
    f32 skip;
    Extras extras = {};

    /// The value before its form is applied, within the limits.
    f64 value(const A& record, int level) const { return valueBy(extras.value, record, level); }
    f64 inherited(const A& parent, int level) const {
        return valueBy(extras.inherited ? extras.inherited : extras.value, parent, level);
    }

private:
    f64 valueBy(f64 (*get)(const A&, int), const A& record, int level) const {
        if (extras.inUse && !extras.inUse(record, level)) return f64{skip};
        return limits.clamp(get ? get(record, level) : f64{record.*member}, level);
    }
};

template <u32 A::*shape>
f64 shapeIndex(const A& record, int) {
    return record.*shape;
}
template <u32 A::*shape>
void readShape(A& record, i32 scale) {
    record.*shape = static_cast<u32>(scale);
}

template <f32 A::*member>
f64 magnitude(const A& record, int) {
    return std::abs(record.*member);
}
f64 velocityFall(const A& record, int) {
    return -f64{record.velToVolume};
}
f64 volumeOverKeys(const A& record, int) {
    return record.keyToVolume * 5.2916665; // dB per octave; 127 keys
}
f64 defaultPan(const A& record, int) {
    return record.panDefault;
}

/// The filter types of blocks, counted from 1, as indices in `filterTypeNames()`.
constexpr i32 kFilterTypes[] = {1, 4, 6, 8, 0, 3, 2, 5, 7, 9};

bool hasFilter(const A& record, int level) {
    constexpr i32 kReplaceable[] = {0, 1, 2, 6, 7}; // those that a low-pass filter of 12 dB can stand for
    return record.filterEnable && (level >= 4 || std::ranges::count(kReplaceable, record.filterType) != 0);
}

/// Hz; a cutoff above what the level can express is infinite, and so is that of no filter.
f64 cutoff(const A& record, int level) {
    constexpr i32 kCent = 65536;
    const i32 least = kCent * (level < 3 ? 5535 : 1548), most = kCent * (level < 3 ? 11921 : 13507);
    const i32 scale = encode(kPitch, record.filterCutoff);
    if (!hasFilter(record, level) || scale > most) return kInfinite;
    return scale < least ? decode(kPitch, least) : f64{record.filterCutoff};
}

void enableFilter(A& record, i32 scale) {
    if (scale == kHighest || record.filterEnable) return;
    record.filterEnable = true;
    record.filterType = 1;
}

f64 filterType(const A& record, int level) {
    if (!hasFilter(record, level)) return 0;
    const auto* found = std::ranges::find(kFilterTypes, std::clamp(record.filterType, 0, 9));
    return static_cast<f64>(found - kFilterTypes + 1);
}

/// A parent's filter of the first type isn't turned off.
f64 inheritedFilterType(const A& parent, int level) {
    return parent.filterType == 0 ? 0 : filterType(parent, level);
}

void readFilterType(A& record, i32 scale) {
    if (scale > std::ssize(kFilterTypes)) return;
    record.filterEnable = scale > 0;
    if (scale > 0) record.filterType = kFilterTypes[scale - 1];
}

template <f32 A::*gain>
bool inBand(const A& record, int) {
    return record.eqEnable && record.*gain != 0;
}
void enableEqualiser(A& record, i32) {
    if (record.eqLoGain != 0 || record.eqMidGain != 0 || record.eqHiGain != 0) record.eqEnable = true;
}

/// The one LFO of level 1 is the second one where only that moves anything.
template <f32 A::*first, f32 A::*second>
f64 ofOnlyLfo(const A& record, int) {
    const bool useSecond = record.lfo1ToVolume == 0 && record.lfo1ToPitch == 0 && record.lfo2ToPitch != 0;
    return record.*(useSecond ? second : first);
}

constexpr Extras kFrom4{.from = 4}, kReadOnly{.from = std::numeric_limits<int>::max()};
constexpr Extras kLfo1{.lfo = &A::lfo1Shape}, kLfo2{.lfo = &A::lfo2Shape};
constexpr Extras kFilter{.inUse = hasFilter}, kFilter4{.from = 4, .inUse = hasFilter};
constexpr Extras kFilterLfo{.inUse = hasFilter, .lfo = &A::lfo1Shape};
constexpr Extras kType{
    .from = 4, .value = filterType, .inherited = inheritedFilterType, .read = readFilterType};
template <u32 A::*shape>
constexpr Extras kShape{.from = 4, .value = shapeIndex<shape>, .read = readShape<shape>};
template <f32 A::*depth>
constexpr Extras kVolumeLfo{.value = magnitude<depth>, .lfo = &A::lfo1Shape};
template <f32 A::*gain>
constexpr Extras kBand{.from = 4, .inUse = inBand<gain>, .read = enableEqualiser};
template <f32 A::*first, f32 A::*second>
constexpr Extras kOnlyLfo{.value = ofOnlyLfo<first, second>};

#define KV_EQ_BAND(destination, band)                                                                \
    {0, 0, destination, 0, &A::eq##band##Freq, kPitch, kAny, 0, kBand<&A::eq##band##Gain>},          \
        {0, 0, destination + 1, 0, &A::eq##band##Gain, kGain, kAny, 0, kBand<&A::eq##band##Gain>}, { \
        0, 0, destination + 2, 0, &A::eq##band##Q, kLevel, kAny, 1, kBand<&A::eq##band##Gain>        \
    }

constexpr Limits kLfoVolume{0, 12, 0, 96}, kLfoPitch{-12, 12, -96, 96}, kCutoff{-128, 128};

/// All kinds of blocks, in the order of writing at levels from 2 on.
constexpr Row kRows[] = {
    {0, 0, 0x0104, 0, &A::lfo1Frequency, kPitch, {0.1F, 20}, 5},
    {0, 0, 0x0105, 0, &A::lfo1Delay, kTime, {0.01F, 10}, 0.01F},
    {0, 0, 0x8801, 0, &A::lfo1Ramp, kTime, kAny, 0, kFrom4},
    {0, 0, 0x8802, 0, nullptr, kPlain, kAny, 0, kShape<&A::lfo1Shape>},
    {0, 0, 0x0114, 0, &A::lfo2Frequency, kPitch, {0.1F, 20}, 5},
    {0, 0, 0x0115, 0, &A::lfo2Delay, kTime, {0.01F, 10}, 0.01F},
    {0, 0, 0x8803, 0, &A::lfo2Ramp, kTime, kAny, 0, kFrom4},
    {0, 0, 0x8804, 0, nullptr, kPlain, kAny, 0, kShape<&A::lfo2Shape>},
    {0, 0, 0x020B, 0, &A::eg1Delay, kTime, kAny, 0},
    {0, 0, 0x0206, 0, &A::eg1Attack, kTime, kAny, 0},
    {0, 0, 0x020C, 0, &A::eg1Hold, kTime, kAny, 0},
    {0, 0, 0x0207, 0, &A::eg1Decay, kTime, kAny, 0},
    {0, 0, 0x020A, 0, &A::eg1Sustain, kLevel, kAny, 1},
    {0, 0, 0x0209, 0, &A::eg1Release, kTime, kAny, 0},
    {0, 0, 0x020D, 0, &A::eg1Shutdown, kTime, kAny, 0.015F},
    {2, 0, 0x0206, 0, &A::eg1VelToAttack, kTime, kAny, 1},
    {3, 0, 0x0207, 0, &A::eg1KeyToDecay, kTime, kAny, 1},
    {3, 0, 0x020C, 0, &A::eg1KeyToHold, kTime, kAny, 1},
    {0, 0, 0x030F, 0, &A::eg2Delay, kTime, kAny, 0},
    {0, 0, 0x030A, 0, &A::eg2Attack, kTime, kAny, 0},
    {0, 0, 0x0310, 0, &A::eg2Hold, kTime, kAny, 0},
    {0, 0, 0x030B, 0, &A::eg2Decay, kTime, kAny, 0},
    {0, 0, 0x030E, 0, &A::eg2Sustain, kLevel, kAny, 1},
    {0, 0, 0x030D, 0, &A::eg2Release, kTime, kAny, 0},
    {2, 0, 0x030A, 0, &A::eg2VelToAttack, kTime, kAny, 1},
    {3, 0, 0x030B, 0, &A::eg2KeyToDecay, kTime, kAny, 1},
    {3, 0, 0x0310, 0, &A::eg2KeyToHold, kTime, kAny, 1},
    {0, 0, 0x0500, 0, &A::filterCutoff, kPitch, kAny, kInfinite, {.value = cutoff, .read = enableFilter}},
    {0, 0, 0x0501, 0, &A::filterResonance, kGain, {0, 22.5F, 0, 96}, 0, kFilter},
    {1, 0, 0x0500, 0x4000, &A::lfo1ToCutoff, kCutoffDepth, kCutoff, 0, kFilterLfo},
    {1, 0x81, 0x0500, 0x4000, &A::modToLfo1Cutoff, kCutoffDepth, kCutoff, 0, kFilterLfo},
    {1, 8, 0x0500, 0x4000, &A::aftertouchToLfo1Cutoff, kCutoffDepth, kCutoff, 0, kFilterLfo},
    {5, 0, 0x0500, 0, &A::eg2ToCutoff, kCutoffDepth, kCutoff, 0, kFilter},
    {2, 0, 0x0500, 0, &A::velToCutoff, kCutoffDepth, kCutoff, 0, kFilter},
    {3, 0, 0x0500, 0, &A::keyToCutoff, kCutoffDepth, kCutoff, 0, kFilter},
    {0, 0, 0x8805, 0, nullptr, kPlain, kAny, 0, kType},
    {0x81, 0, 0x0500, 0, &A::modToCutoff, kCutoffDepth, kCutoff, 0, kFilter4},
    {8, 0, 0x0500, 0, &A::aftertouchToCutoff, kCutoffDepth, kCutoff, 0, kFilter4},
    KV_EQ_BAND(0x8810, Lo),
    KV_EQ_BAND(0x8813, Mid),
    KV_EQ_BAND(0x8816, Hi),
    // The depths of volume lose their sign; the swing goes both ways.
    {1, 0, 1, 0x4000, &A::lfo1ToVolume, kGain, kLfoVolume, 0, kVolumeLfo<&A::lfo1ToVolume>},
    {1, 0x81, 1, 0x4000, &A::modToLfo1Volume, kGain, kLfoVolume, 0, kVolumeLfo<&A::modToLfo1Volume>},
    {1, 8, 1, 0x4000, &A::aftertouchToLfo1Volume, kGain, kLfoVolume, 0,
     kVolumeLfo<&A::aftertouchToLfo1Volume>},
    {2, 0, 1, 0x8400, &A::velToVolume, kFall, {-96, 0, -96, 96}, -96, {.value = velocityFall}},
    {3,
     0,
     1,
     0x4000,
     &A::keyToVolume,
     kGainOverKeys,
     {-96, 96},
     kNever,
     {.from = 4, .value = volumeOverKeys}},
    {8, 0, 1, 0, &A::aftertouchToVolume, kGain, {-96, 96}, kNever, kFrom4},
    {0, 0, 3, 0, &A::masterTune, kTune, {-12, 12}, 0},
    {3, 0, 3, 0, &A::keyToPitch, kTuneOverKeys, {0, 1, -12, 12}, 1},
    {9, 0, 3, 0x4000, &A::lfo2ToPitch, kTune, kLfoPitch, 0, kLfo2},
    {9, 0x81, 3, 0x4000, &A::modToLfo2Pitch, kTune, kLfoPitch, 0, kLfo2},
    {9, 8, 3, 0x4000, &A::aftertouchToLfo2Pitch, kTune, kLfoPitch, 0, kLfo2},
    {1, 0, 3, 0x4000, &A::lfo1ToPitch, kTune, kLfoPitch, 0, kLfo1},
    {1, 0x81, 3, 0x4000, &A::modToLfo1Pitch, kTune, kLfoPitch, 0, kLfo1},
    {1, 8, 3, 0x4000, &A::aftertouchToLfo1Pitch, kTune, kLfoPitch, 0, kLfo1},
    {5, 0, 3, 0, &A::eg2ToPitch, kTune, kLfoPitch, 0},
    {0, 0, 0x0100, 0x4000, &A::pitchBendRange, kTune, {-96, 96}, 2, kFrom4},
    {0, 0, 4, 0x4000, &A::panDefault, kPan, kAny, 0},
    // Against a parent this is compared with its fixed pan, not with its own field; lists keep to that.
    {3, 0, 4, 0x4000, &A::keyToPan, kPan, kAny, 0, {.from = 4, .inherited = defaultPan}},
    {0x8A, 0, 4, 0x4000, &A::cc10ToPan, kControllerPan, kAny, 1},
    {0xDB, 0, 0x81, 0, &A::cc91ToReverb, kLevel, kAny, 1},
    {0, 0, 0x81, 0, &A::reverbDefault, kLevel, kAny, 0},
    {0xDD, 0, 0x80, 0, &A::cc93ToChorus, kLevel, kAny, 1},
    {0, 0, 0x80, 0, &A::chorusDefault, kLevel, kAny, 0},
    {0, 0, 0x0208, 0, &A::eg1Sustain, kPerMille, kAny, 0, kReadOnly},
    {0, 0, 0x030C, 0, &A::eg2Sustain, kPerMille, kAny, 0, kReadOnly},
    {0, 0, 2, 0, &A::panDefault, kPan500, kAny, 0, kReadOnly},
};

constexpr Limits kTime1{0, 20}, kFactor1{0.0625F, 16};

/// The blocks of level 1, in the order of writing. They read as those of `kRows` do.
constexpr Row kLevel1Rows[] = {
    {0, 0, 0x0104, 0, nullptr, kPitch, {0, 10}, 5, kOnlyLfo<&A::lfo1Frequency, &A::lfo2Frequency>},
    {0, 0, 0x0105, 0, nullptr, kTime, {0.01F, 10}, 0.01F, kOnlyLfo<&A::lfo1Delay, &A::lfo2Delay>},
    {1, 0, 1, 0, &A::lfo1ToVolume, kGain, kLfoVolume, 0, kLfo1},
    {1, 0, 3, 0, &A::lfo1ToPitch, kTune, kLfoPitch, 0, kLfo1},
    {1, 0x81, 1, 0, nullptr, kGain, kLfoVolume, 0, kVolumeLfo<&A::modToLfo1Volume>},
    {1, 0x81, 3, 0, &A::modToLfo1Pitch, kTune, kLfoPitch, 0, kLfo1},
    {0, 0, 0x0206, 0, &A::eg1Attack, kTime, kTime1, 0},
    {0, 0, 0x0207, 0, &A::eg1Decay, kTime, kTime1, 0},
    {0, 0, 0x020A, 0, &A::eg1Sustain, kLevel, kAny, 1},
    {0, 0, 0x0209, 0, &A::eg1Release, kTime, kTime1, 0},
    {2, 0, 0x0206, 0, &A::eg1VelToAttack, kTime, kFactor1, 1},
    {3, 0, 0x0207, 0, &A::eg1KeyToDecay, kTime, kFactor1, 1},
    {0, 0, 0x030A, 0, &A::eg2Attack, kTime, kTime1, 0},
    {0, 0, 0x030B, 0, &A::eg2Decay, kTime, kTime1, 0},
    {0, 0, 0x030E, 0, &A::eg2Sustain, kLevel, kAny, 1},
    {0, 0, 0x030D, 0, &A::eg2Release, kTime, kTime1, 0},
    {2, 0, 0x030A, 0, &A::eg2VelToAttack, kTime, kFactor1, 1},
    {3, 0, 0x030B, 0, &A::eg2KeyToDecay, kTime, kFactor1, 1},
    {0, 0, 4, 0, &A::panDefault, kPan, kAny, 0},
    {5, 0, 3, 0, &A::eg2ToPitch, kTune, kLfoPitch, 0},
};
#undef KV_EQ_BAND

void readBlock(ByteCursor block, A& record) {
    const u16 source = block.u16le(), control = block.u16le(), destination = block.u16le();
    block.skip(2); // the transform is the source's usual one
    const i32 scale = block.s32le();
    const auto* row = std::ranges::find_if(kRows, [&](const Row& r) {
        return r.source == source && r.control == control && r.destination == destination;
    });
    if (row == std::end(kRows)) return;
    if (row->member) record.*row->member = static_cast<f32>(decode(row->form, scale));
    if (row->extras.read) row->extras.read(record, scale);
}

/// Calls `take(row, scale)` for each block of the record's list.
template <class Take>
void forEachBlock(const A& record, const A* parent, int level, Take take) {
    const std::span<const Row> rows = level < 2 ? std::span<const Row>(kLevel1Rows) : kRows;
    for (const Row& row : rows) {
        if (level < row.extras.from) continue;
        f64 value = row.value(record, level);
        if (value == f64{row.skip} && (!parent || value == row.inherited(*parent, level))) continue;
        // Without shapes an LFO swings both ways, and half the depth comes nearest to one that doesn't.
        const u32 A::*lfo = row.extras.lfo;
        if (lfo && level < 4 && isLfoUnipolar(record.*lfo)) value *= 0.5;
        take(row, encode(row.form, value));
    }
}

constexpr u32 kListBytes = 12 + 8 + 8; // headers of the list and the chunk, size and count

} // namespace

bool readArticulationBlocks(ByteSpan chunk, Articulation& record) {
    ByteCursor in(chunk);
    in.skip(4); // size of the two numbers, always 8
    u32 count = in.u32le();
    if (!in.ok()) return Fail("Articulation", "The list of connection blocks is cut short");
    record.enabled = true;
    record.lfo1Shape = record.lfo2Shape = 0;
    for (; count > 0 && in.left() >= kBlockBytes; --count) readBlock(in.sub(kBlockBytes), record);
    return true;
}

void writeArticulationBlocks(ByteWriter& to, const Articulation& record, const Articulation* parent,
                             int level) {
    const u32 bytes = articulationBlocksSize(record, parent, level);
    to.text("LIST").u32le(bytes - 8).text(level < 2 ? "lart" : "lar2");
    to.text(level < 2 ? "art1" : "art2").u32le(bytes - 20).u32le(8);
    to.u32le((bytes - kListBytes) / kBlockBytes);
    forEachBlock(record, parent, level, [&](const Row& row, i32 scale) {
        to.u16le(row.source).u16le(row.control).u16le(row.destination).u16le(row.transform);
        to.u32le(static_cast<u32>(scale));
    });
}

u32 articulationBlocksSize(const Articulation& record, const Articulation* parent, int level) {
    u32 bytes = kListBytes;
    forEachBlock(record, parent, level, [&](const Row&, i32) { bytes += kBlockBytes; });
    return bytes;
}

} // namespace kv
