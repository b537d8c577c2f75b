#include "formats/banks/sfz/sfz_region_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>

#include "formats/banks/sfz/sfz_mapping.h"
#include "formats/banks/sfz/sfz_section.h"
#include "model/instrument.h"
#include "model/wave.h"

namespace kv {
namespace {

using A = Articulation;

/// Collects opcodes in lines; a line without any is left out.
class Lines {
public:
    void text(std::string_view name, std::string_view value) {
        fmt::format_to(std::back_inserter(text_), " {}={}", name, value);
    }
    void whole(std::string_view name, i64 value) { text(name, fmt::to_string(value)); }
    void real(std::string_view name, f64 value) { text(name, fmt::format("{:g}", value)); }
    /// A field of the articulation by the table, unless it is the opcode's default.
    void field(std::string_view opcode, const Articulation& from);
    void fields(std::initializer_list<std::string_view> opcodes, const Articulation& from) {
        for (const std::string_view opcode : opcodes) field(opcode, from);
    }
    void endLine() {
        if (text_.size() == lineStart_) return;
        text_ += "\r\n";
        lineStart_ = text_.size();
    }
    std::string take() { return std::move(text_); }

private:
    std::string text_;
    std::size_t lineStart_ = 0;
};

f64 opcodeValue(const SfzLink& link, const Articulation& from) {
    return std::clamp(static_cast<f64>(from.*link.field) / link.factor, link.least, link.most);
}

void Lines::field(std::string_view opcode, const Articulation& from) {
    const SfzLink& link = findSfzLink(opcode);
    const SfzOpcode& row = *findSfzOpcode(opcode);
    const f64 value = opcodeValue(link, from);
    const auto add = [&](std::string_view name) {
        row.isWhole() ? whole(name, roundHalf(value)) : real(name, value);
    };
    if (std::abs(value - row.get(SfzSection())) < (row.isWhole() ? 0.5 : 1e-9)) return;
    add(opcode);
    if (!link.twin.empty()) add(link.twin);
}

bool any(const Articulation& from, std::initializer_list<f32 A::*> members) {
    return std::any_of(members.begin(), members.end(), [&](auto member) { return from.*member != 0; });
}

/// Times of a bank count to and from the sustain level.
void addEg(Lines& lines, std::string_view prefix, const SfzEgFields& fields, const Articulation& from) {
    constexpr f64 kLongest = 100; // s
    const f64 sustain = static_cast<f64>(from.*fields.sustain);
    const auto name = [&](std::string_view part) { return fmt::format("{}_{}", prefix, part); };
    const auto time = [&](std::string_view part, f64 seconds) {
        if (seconds > 0) lines.real(name(part), std::min(seconds, kLongest));
    };
    time("delay", static_cast<f64>(from.*fields.delay));
    time("attack", static_cast<f64>(from.*fields.attack));
    // Without it players begin at zero, which an attack of no time makes a click.
    if (from.*fields.attack == 0 && from.*fields.hold > 0) lines.whole(name("start"), 100);
    time("hold", static_cast<f64>(from.*fields.hold));
    time("decay", static_cast<f64>(from.*fields.decay) * (1 - sustain));
    if (sustain < 1) lines.real(name("sustain"), std::max(sustain, 0.0) * 100);
    time("release", static_cast<f64>(from.*fields.release) * sustain);
}

/// An oscillator's timing; its depths are fields.
struct LfoFields {
    f32 A::*frequency, A::*delay, A::*ramp;
};
constexpr LfoFields kLfo1{&A::lfo1Frequency, &A::lfo1Delay, &A::lfo1Ramp};
constexpr LfoFields kLfo2{&A::lfo2Frequency, &A::lfo2Delay, &A::lfo2Ramp};

void addLfo(Lines& lines, std::string_view prefix, const LfoFields& fields, const Articulation& from) {
    const auto name = [&](std::string_view part) { return fmt::format("{}_{}", prefix, part); };
    const auto add = [&](std::string_view part, f32 value, f64 most) {
        if (value > 0) lines.real(name(part), std::min(static_cast<f64>(value), most));
    };
    add("freq", from.*fields.frequency, 20);
    add("delay", from.*fields.delay, 100);
    add("fade", from.*fields.ramp, 100);
    for (const std::string_view part : {"depth", "depthcc1", "depthchanaft"}) lines.field(name(part), from);
    lines.endLine();
}

void addRanges(Lines& lines, const Region& region) {
    if (region.keyLow != 0 || region.keyHigh != 127) {
        lines.whole("lokey", region.keyLow);
        lines.whole("hikey", region.keyHigh);
    }
    if (region.velLow != 0 || region.velHigh != 127) {
        lines.whole("lovel", region.velLow);
        lines.whole("hivel", region.velHigh);
    }
    lines.endLine();
}

void addSelection(Lines& lines, const Region& region, const SfzRegionContext& context) {
    if (context.sequenceLength > 0) {
        lines.whole("seq_length", context.sequenceLength);
        lines.whole("seq_position", context.sequencePosition);
    }
    if ((region.trigger & 15) == 1) lines.text("trigger", "release");
    lines.endLine();
    if (region.keyGroup != 0) {
        lines.whole("group", region.keyGroup);
        lines.whole("off_by", region.keyGroup);
    }
    lines.endLine();
    if (region.pedalUp != region.pedalDown) {
        lines.whole("locc64", region.pedalDown != 0 ? 64 : 0);
        lines.whole("hicc64", region.pedalDown != 0 ? 127 : 63);
    }
    lines.endLine();
}

void addPlaying(Lines& lines, const SampleParams& params, const SfzRegionContext& context) {
    if (params.startOffset > 0) lines.whole("offset", params.startOffset);
    if (params.endOffset < 0)
        lines.whole("end", std::max<i64>(i64{context.wave.frames} + params.endOffset, 1));
    lines.endLine();
    if (params.looped()) {
        const auto frame = [](f64 at) { return saturate<i64>(std::floor(at + 0.5)); };
        const bool untilRelease = (params.loopFlags & kLoopUntilRelease) != 0;
        lines.text("loop_mode", untilRelease ? "loop_sustain" : "loop_continuous");
        lines.whole("loop_start", frame(params.loopStart));
        lines.whole("loop_end", frame(params.loopEnd));
    } else {
        const A& a = context.articulation;
        const bool ringsOn = a.eg1Release >= kEndlessRelease && a.eg1Sustain == 1;
        lines.text("loop_mode", ringsOn ? "one_shot" : "no_loop");
    }
    lines.endLine();
}

void addPitch(Lines& lines, const SampleParams& params, const SfzRegionContext& context) {
    const A& a = context.articulation;
    if (params.rootKey != 60 || !context.alone) lines.whole("pitch_keycenter", params.rootKey);
    lines.field("pitch_keytrack", a);
    lines.endLine();
    const f64 semitones = params.fineTune * 0.01 + static_cast<f64>(a.masterTune);
    // A half stays with the cents, as in the model.
    const i32 whole = std::clamp(roundHalf(semitones, 0.499), -127, 127);
    const i32 cents = std::clamp(roundHalf((semitones - whole) * 100), -100, 100);
    if (whole != 0) lines.whole("transpose", whole);
    if (cents != 0) lines.whole("tune", cents);
    lines.endLine();
    if (a.pitchBendRange != 2) {
        const i32 range = roundHalf(opcodeValue(findSfzLink("bend_up"), a));
        lines.whole("bend_up", range);
        lines.whole("bend_down", -range);
    }
    lines.endLine();
    if (a.eg2ToPitch != 0) {
        addEg(lines, "pitcheg", kSfzEg2, a);
        lines.field("pitcheg_depth", a);
    }
    lines.endLine();
    if (any(a, {&A::lfo2ToPitch, &A::modToLfo2Pitch, &A::aftertouchToLfo2Pitch}))
        addLfo(lines, "pitchlfo", kLfo2, a);
}

void addFilter(Lines& lines, const Articulation& a) {
    if (a.filterEnable) {
        const auto type = static_cast<std::size_t>(std::clamp(a.filterType, 0, 9));
        lines.text("fil_type", sfzFilterTypes()[type]);
        lines.real("cutoff", static_cast<f64>(a.filterCutoff));
        lines.field("resonance", a);
        if (a.keyToCutoff > 0) {
            lines.field("fil_keytrack", a);
            lines.whole("fil_keycenter", 0);
        }
        lines.fields({"fil_veltrack", "cutoff_cc1", "cutoff_chanaft"}, a);
    }
    lines.endLine();
    if (a.eg2ToCutoff != 0) {
        addEg(lines, "fileg", kSfzEg2, a);
        lines.field("fileg_depth", a);
    }
    lines.endLine();
    if (any(a, {&A::lfo1ToCutoff, &A::modToLfo1Cutoff, &A::aftertouchToLfo1Cutoff}))
        addLfo(lines, "fillfo", kLfo1, a);
}

void addLevel(Lines& lines, const SampleParams& params, const Articulation& a) {
    if (params.gainDb != 0) lines.real("volume", std::max(static_cast<f64>(params.gainDb), -144.0));
    lines.fields({"pan", "amp_keytrack", "amp_veltrack", "gain_cc129"}, a);
    lines.endLine();
    addEg(lines, "ampeg", kSfzEg1, a);
    lines.endLine();
    if (any(a, {&A::lfo1ToVolume, &A::modToLfo1Volume, &A::aftertouchToLfo1Volume}))
        addLfo(lines, "amplfo", kLfo1, a);
    lines.fields({"effect1", "effect2"}, a);
    lines.endLine();
}

} // namespace

std::string sfzRegionText(const Region& region, const SfzRegionContext& context) {
    const SampleParams params = effectiveParams(region);
    Lines lines;
    lines.text("sample", context.path);
    lines.endLine();
    addRanges(lines, region);
    addSelection(lines, region, context);
    addPlaying(lines, params, context);
    addPitch(lines, params, context);
    addFilter(lines, context.articulation);
    addLevel(lines, params, context.articulation);
    return lines.take();
}

} // namespace kv
