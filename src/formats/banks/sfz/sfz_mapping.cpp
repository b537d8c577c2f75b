#include "formats/banks/sfz/sfz_mapping.h"

#include <algorithm>
#include <cassert>
#include <cmath>

#include "base/text.h"
#include "model/instrument.h"
#include "model/wave.h"

namespace kv {
namespace {

using A = Articulation;

constexpr f64 kNoLimit = 1e30;

// clang-format off
constexpr SfzLink kLinks[] = {
    {"transpose",             &A::masterTune,              1,    -127,      127},
    {"pitch_keytrack",        &A::keyToPitch,              0.01, -1200,     1200},
    {"bend_up",               &A::pitchBendRange,          0.01, -9600,     9600},
    {"pitcheg_depth",         &A::eg2ToPitch,              0.01, -12000,    12000},
    {"pitchlfo_depth",        &A::lfo2ToPitch,             0.01, -1200,     1200},
    {"pitchlfo_depthcc1",     &A::modToLfo2Pitch,          0.01, -1200,     1200},
    {"pitchlfo_depthchanaft", &A::aftertouchToLfo2Pitch,   0.01, -1200,     1200,     "pitchlfo_depthpolyaft"},
    {"resonance",             &A::filterResonance,         1,    0,         40},
    {"fil_keytrack",          &A::keyToCutoff,             1.28, 0,         1200},
    {"fil_veltrack",          &A::velToCutoff,             0.01, -9600,     9600},
    {"cutoff_cc1",            &A::modToCutoff,             0.01, -9600,     9600},
    {"cutoff_chanaft",        &A::aftertouchToCutoff,      0.01, -9600,     9600,     "cutoff_polyaft"},
    {"fileg_depth",           &A::eg2ToCutoff,             0.01, -12000,    12000},
    {"fillfo_depth",          &A::lfo1ToCutoff,            0.01, -1200,     1200},
    {"fillfo_depthcc1",       &A::modToLfo1Cutoff,         0.01, -1200,     1200},
    {"fillfo_depthchanaft",   &A::aftertouchToLfo1Cutoff,  0.01, -1200,     1200,     "fillfo_depthpolyaft"},
    {"pan",                   &A::panDefault,              0.01, -100,      100},
    {"amp_keytrack",          &A::keyToVolume,             12,   -96,       12},
    {"amp_veltrack",          &A::velToVolume,             0.96, -100,      100},
    {"gain_cc129",            &A::aftertouchToVolume,      1,    -kNoLimit, kNoLimit, "gain_cc130"},
    {"amplfo_depth",          &A::lfo1ToVolume,            1,    -10,       10},
    {"amplfo_depthcc1",       &A::modToLfo1Volume,         1,    -10,       10},
    {"amplfo_depthchanaft",   &A::aftertouchToLfo1Volume,  1,    -10,       10,       "amplfo_depthpolyaft"},
    {"effect1",               &A::reverbDefault,           0.01, 0,         100},
    {"effect2",               &A::chorusDefault,           0.01, 0,         100},
    // Read only:
    {"eq1_freq",              &A::eqLoFreq,                1,    0,         kNoLimit},
    {"eq1_gain",              &A::eqLoGain,                1,    -kNoLimit, kNoLimit},
    {"eq1_bw",                &A::eqLoQ,                   1,    0,         kNoLimit},
    {"eq2_freq",              &A::eqMidFreq,               1,    0,         kNoLimit},
    {"eq2_gain",              &A::eqMidGain,               1,    -kNoLimit, kNoLimit},
    {"eq2_bw",                &A::eqMidQ,                  1,    0,         kNoLimit},
    {"eq3_freq",              &A::eqHiFreq,                1,    0,         kNoLimit},
    {"eq3_gain",              &A::eqHiGain,                1,    -kNoLimit, kNoLimit},
    {"eq3_bw",                &A::eqHiQ,                   1,    0,         kNoLimit},
};
// clang-format on

constexpr std::array<std::string_view, 10> kFilterTypes{"lpf_1p", "lpf_2p", "lpf_4p", "hpf_1p", "hpf_2p",
                                                        "hpf_4p", "bpf_2p", "bpf_4p", "brf_2p", "brf_4p"};

f64 furtherFromZero(f64 a, f64 b) {
    return std::abs(b) > std::abs(a) ? b : a;
}

/// The links with their opcodes, which are looked for once.
void readLinks(const SfzSection& from, Articulation& to) {
    struct Row {
        const SfzLink* link;
        const SfzOpcode *opcode, *twin;
    };
    static const auto kRows = [] {
        std::array<Row, std::size(kLinks)> rows{};
        for (std::size_t i = 0; i < rows.size(); ++i)
            rows[i] = {&kLinks[i], findSfzOpcode(kLinks[i].opcode), findSfzOpcode(kLinks[i].twin)};
        return rows;
    }();
    for (const Row& row : kRows) {
        f64 value = row.opcode->get(from);
        if (row.twin) value = furtherFromZero(value, row.twin->get(from));
        to.*row.link->field = static_cast<f32>(value * row.link->factor);
    }
}

/// Only one oscillator can take volume and cutoff: the one that does more.
bool filterLfoDominates(const SfzSection& from) {
    const auto size = [](f32 a) { return std::abs(a); };
    const SfzLfo &filter = from.fillfo, &volume = from.amplfo;
    if (size(filter.depth) > size(volume.depth)) return true;
    return volume.depth == 0 && size(filter.depthchanaft) + size(filter.depthcc1) >=
                                    size(volume.depthcc1) + size(volume.depthchanaft);
}

void readModulators(const SfzSection& from, bool oneShot, Articulation& to) {
    sfzReadEg(from.ampeg, oneShot, kSfzEg1, to);
    const bool filterEg = std::abs(i64{from.fileg_depth}) > std::abs(i64{from.pitcheg_depth});
    sfzReadEg(filterEg ? from.fileg : from.pitcheg, false, kSfzEg2, to);
    to.lfo2Frequency = from.pitchlfo.freq;
    to.lfo2Delay = from.pitchlfo.delay;
    to.lfo2Ramp = from.pitchlfo.fade;
    const SfzLfo& lfo = filterLfoDominates(from) ? from.fillfo : from.amplfo;
    to.lfo1Frequency = lfo.freq;
    to.lfo1Delay = lfo.delay;
    to.lfo1Ramp = lfo.fade;
}

/// Other programs' case folding, which folds digits and signs too: texts are compared in this form.
constexpr char folded(char c) {
    return static_cast<char>(c & ~0x20);
}

/// A filter's letter and, for "b", the second one, with the types for 1, 2, and 4 or 6 poles.
struct FilterShape {
    char first, second;
    i32 onePole, twoPoles, more;
};
constexpr FilterShape kFilterShapes[] = {
    {'L', 0, 0, 1, 2}, {'H', 0, 3, 4, 5}, {'B', 'P', 6, 6, 7}, {'B', 'R', 8, 8, 9}};

void readPeak(const SfzSection& from, Articulation& to) {
    to.filterEnable = false;
    if (to.eqEnable) return;
    to.eqEnable = true;
    to.eqLoFreq = from.cutoff;
    to.eqLoGain = from.resonance;
}

void readFilterType(const SfzSection& from, Articulation& to) {
    const std::string& text = from.fil_type;
    if (text.size() < 6) {
        to.filterType = 1;
        if (equalIgnoringCase(text, "comb") || equalIgnoringCase(text, "pink")) to.filterEnable = false;
        return;
    }
    const char first = folded(text[0]), second = folded(text[1]), poles = folded(text[4]);
    if (first == 'A') to.filterEnable = false;
    if (first == 'P') readPeak(from, to);
    for (const FilterShape& shape : kFilterShapes) {
        if (shape.first != first || (shape.second != 0 && shape.second != second)) continue;
        if (poles == folded('1')) to.filterType = shape.onePole;
        if (poles == folded('2')) to.filterType = shape.twoPoles;
        if (poles == folded('4') || poles == folded('6')) to.filterType = shape.more;
    }
}

void readFilter(const SfzSection& from, Articulation& to) {
    to.eqEnable = from.eq1_gain != 0 || from.eq2_gain != 0 || from.eq3_gain != 0;
    if (from.cutoff < 0) {
        to.filterResonance = Articulation().filterResonance;
        return;
    }
    to.filterEnable = true;
    f64 cutoff = static_cast<f64>(from.cutoff);
    if (from.fil_keycenter != 0 && from.fil_keytrack != 0) {
        // The bank's cutoff holds at the key center, the model's at key 0.
        const f64 octaves = -from.fil_keycenter * static_cast<f64>(from.fil_keytrack) / 1200;
        cutoff *= std::exp2(std::clamp(octaves, -64.0, 64.0));
    }
    to.filterCutoff = static_cast<f32>(std::min(cutoff, kNoLimit));
    readFilterType(from, to);
}

u8 triggerOf(const SfzSection& from) {
    constexpr u8 kPress = 0, kRelease = 1, kAlternate = 2;
    if (from.trigger == "release") return kRelease;
    return from.seq_length >= 2 ? kAlternate : kPress;
}

u8 keyGroupOf(const SfzSection& from) {
    const i64 number = from.group != 0 ? from.group : from.off_by;
    if (number == 0) return 0;
    constexpr i64 kGroups = 15;
    return static_cast<u8>(((number - 1) % kGroups + kGroups) % kGroups + 1);
}

void readLoop(const SfzSection& from, SampleParams& to) {
    struct Mode {
        std::string_view name;
        u16 flags;
    };
    constexpr Mode kModes[] = {{"no_loop", 0},
                               {"one_shot", 0},
                               {"loop_continuous", kLooped},
                               {"loop_sustain", kLooped | kLoopUntilRelease}};
    for (const Mode& mode : kModes) {
        if (from.loop_mode == mode.name) to.loopFlags = mode.flags;
    }
    if (from.loop_start >= 0) to.loopStart = from.loop_start;
    // 0, the default, ends no loop: what the sample's own file says stands then.
    if (from.loop_end > 0) to.loopEnd = from.loop_end;
}

void readParams(const SfzSection& from, const Wave& wave, SampleParams& to) {
    to = wave.params;
    if (from.offset > 0) to.startOffset = from.offset;
    if (from.end > 0)
        to.endOffset = saturate<i32>(static_cast<f64>(from.end) - static_cast<f64>(wave.frames));
    readLoop(from, to);
    to.rootKey = from.pitch_keycenter;
    to.fineTune = from.tune;
    to.gainDb = static_cast<f32>((60.0 - from.amp_keycenter) * static_cast<f64>(from.amp_keytrack) +
                                 static_cast<f64>(from.volume));
    to.override = wave.params.override;
    to.override = to != wave.params;
}

} // namespace

std::span<const SfzLink> sfzLinks() {
    return kLinks;
}

const SfzLink& findSfzLink(std::string_view opcode) {
    const auto* found = std::find_if(std::begin(kLinks), std::end(kLinks),
                                     [&](const SfzLink& l) { return l.opcode == opcode; });
    assert(found != std::end(kLinks));
    return *found;
}

std::span<const std::string_view, 10> sfzFilterTypes() {
    return kFilterTypes;
}

void sfzReadEg(const SfzEg& eg, bool oneShot, const SfzEgFields& fields, Articulation& to) {
    constexpr f32 kLowStart = 10, kHighStart = 90; // percent
    if (eg.start >= kHighStart) {
        to.*fields.hold = eg.delay + eg.attack + eg.hold;
    } else {
        to.*fields.hold = eg.hold;
        if (eg.start <= kLowStart) to.*fields.delay = eg.delay;
        to.*fields.attack = eg.start <= kLowStart ? eg.attack : eg.delay + eg.attack;
    }
    if (oneShot) {
        to.*fields.sustain = 1;
        to.*fields.release = kEndlessRelease;
        return;
    }
    const f32 sustain = eg.sustain * 0.01F;
    to.*fields.sustain = sustain;
    to.*fields.decay = sustain < 1 ? eg.decay / (1 - sustain) : eg.decay;
    to.*fields.release = sustain > 0 ? eg.release / sustain : eg.release;
}

void sfzReadRegion(const SfzSection& from, const Wave& wave, Region& region) {
    region.keyLow = from.lokey;
    region.keyHigh = from.hikey;
    region.velLow = from.lovel;
    region.velHigh = from.hivel;
    region.pedalUp = from.locc64 < 64 ? 1 : 0;
    region.pedalDown = from.hicc64 >= 64 ? 1 : 0;
    region.trigger = triggerOf(from);
    region.keyGroup = keyGroupOf(from);
    readParams(from, wave, region.params);

    Articulation& articulation = region.articulation;
    articulation.enabled = true;
    readLinks(from, articulation);
    readModulators(from, from.loop_mode == "one_shot", articulation);
    readFilter(from, articulation);
}

} // namespace kv
