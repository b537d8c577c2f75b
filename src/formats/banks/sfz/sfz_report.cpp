#include "formats/banks/sfz/sfz_report.h"

#include "base/run_context.h"
#include "base/text.h"
#include "formats/banks/sfz/sfz_section.h"

namespace kv {
namespace {

/// Families of opcodes, by how their names begin; the first that fits counts.
struct Unheld {
    std::string_view start, reason;
};
constexpr Unheld kUnheld[] = {
    {"<", "the section has no counterpart"},
    {"xfin_", "regions have no crossfades"},
    {"xfout_", "regions have no crossfades"},
    {"xf_", "regions have no crossfades"},
    {"loop_crossfade", "loops have no crossfade"},
    {"loop_", "loops have a start, an end and a mode"},
    {"ampeg_dynamic", "envelopes are set when a key is struck"},
    {"ampeg_", "the envelope has no such control"},
    {"pitcheg_", "the envelope has no such control"},
    {"fileg_", "the envelope has no such control"},
    {"amplfo_", "the oscillator has no such control"},
    {"pitchlfo_", "the oscillator has no such control"},
    {"fillfo_", "the oscillator has no such control"},
    {"eg0", "there are two envelopes"},
    {"eg1", "there are two envelopes"},
    {"lfo", "there are two oscillators"},
    {"eq", "equaliser bands have a frequency, a gain and a width"},
    {"seq_position", "the order of the layers tells it"},
    {"note_offset", "dropped where the section ends"},
    {"octave_offset", "dropped where the section ends"},
    {"note_polyphony", "regions have no voice limits"},
    {"polyphony", "regions have no voice limits"},
    {"off_mode", "a key group always cuts at once"},
    {"off_time", "a key group always cuts at once"},
    {"on_locc", "regions are started by keys only"},
    {"on_hicc", "regions are started by keys only"},
    {"start_locc", "regions are started by keys only"},
    {"start_hicc", "regions are started by keys only"},
    {"locc", "of controllers only the sustain pedal selects"},
    {"hicc", "of controllers only the sustain pedal selects"},
    {"lorand", "regions are not chosen by chance"},
    {"hirand", "regions are not chosen by chance"},
    {"lobend", "regions are chosen by key and velocity only"},
    {"hibend", "regions are chosen by key and velocity only"},
    {"lochan", "regions are chosen by key and velocity only"},
    {"hichan", "regions are chosen by key and velocity only"},
    {"lobpm", "regions are chosen by key and velocity only"},
    {"hibpm", "regions are chosen by key and velocity only"},
    {"lotimer", "regions are chosen by key and velocity only"},
    {"hitimer", "regions are chosen by key and velocity only"},
    {"sw_", "there are no key switches"},
    {"rt_decay", "release samples have their own level"},
    {"amp_velcurve_", "velocity curves have one shape"},
    {"amp_random", "nothing is left to chance"},
    {"pitch_random", "nothing is left to chance"},
    {"fil_random", "nothing is left to chance"},
    {"offset_", "offsets are fixed"},
    {"delay", "regions start at once"},
    {"bend_", "the wheel's range is the same both ways, without steps"},
    {"pitch_", "the pitch has no such control"},
    {"cutoff", "there is one filter, with fewer controls"},
    {"resonance", "there is one filter, with fewer controls"},
    {"fil", "there is one filter, with fewer controls"},
    {"amplitude", "levels are in dB"},
    {"gain_", "the level has no such control"},
    {"volume", "the level has no such control"},
    {"width", "the stereo image has no such control"},
    {"position", "the stereo image has no such control"},
    {"pan", "the pan has no such control"},
    {"effect", "there are two effect sends"},
    {"label_", "controllers have no names"},
    {"set_", "controllers have no values at the start"},
    {"group_", "there is no place for it"},
    {"region_", "there is no place for it"},
    {"global_", "there is no place for it"},
    {"master_", "there is no place for it"},
    {"sample_", "there is no place for it"},
    {"direction", "samples play forwards"},
    {"count", "loops have no count"},
    {"sync_", "there is no host to be in time with"},
    {"sustain_", "the pedal is the sustain pedal"},
    {"sostenuto_", "the pedal is the sustain pedal"},
    {"output", "there is one output"},
    {"oscillator", "there are no oscillators but for modulation"},
};

} // namespace

std::string_view sfzUnheldReason(std::string_view opcode) {
    for (const Unheld& row : kUnheld) {
        if (opcode.starts_with(row.start)) return row.reason;
    }
    return {};
}

void SfzReport::ignore(std::string_view name) {
    constexpr std::size_t kMostNames = 1000, kLongestName = 100;
    name = cutToCharacters(name, kLongestName);
    if (const auto known = ignored_.find(name); known != ignored_.end())
        ++known->second;
    else if (ignored_.size() < kMostNames)
        ignored_.emplace(name, 1);
    else
        ++others_;
}

void SfzReport::tell() const {
    Diagnostics& to = runContext().diagnostics;
    for (const auto& [name, count] : ignored_) {
        const std::string_view reason = sfzUnheldReason(name);
        to.warn(
            0, name,
            fmt::format("ignored {} time{}{}{}", count, plural(count), reason.empty() ? "" : ": ", reason));
    }
    if (others_ > 0) to.warn(0, "opcodes", fmt::format("{} more of other names were ignored", others_));
    if (left_ > 0) to.warn(0, "region", fmt::format("{} too many were left out", left_));
}

} // namespace kv
