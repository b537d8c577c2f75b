// The record that the opcodes of one section fill, and the table of all opcodes.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "base/integers.h"

namespace kv {

/// An envelope: times in s, levels in percent.
struct SfzEg {
    f32 delay = 0, start = 0, attack = 0, hold = 0, decay = 0, sustain = 100, release = 0;
    f32 vel2attack = 0;
};

/// An oscillator: Hz and s; depths in cents or dB, the last three added by controllers.
struct SfzLfo {
    f32 delay = 0, fade = 0, freq = 0;
    f32 depth = 0, depthcc1 = 0, depthchanaft = 0, depthpolyaft = 0;
};

/// Members are called like their opcodes, and have their defaults.
struct SfzSection {
    std::string sample, trigger = "attack", loop_mode, fil_type = "lpf_2p";
    u8 lokey = 0, hikey = 127, lovel = 0, hivel = 127, locc64 = 0, hicc64 = 127;
    u8 pitch_keycenter = 60, fil_keycenter = 60;
    i32 group = 0, off_by = 0, seq_length = 1;
    i32 offset = 0, end = 0, loop_start = -1, loop_end = 0;
    i32 transpose = 0, tune = 0, pitch_keytrack = 100, bend_up = 200, bend_down = -200;
    i32 pitcheg_depth = 0, fileg_depth = 0, amp_keycenter = 60;
    SfzEg pitcheg, fileg, ampeg;
    SfzLfo pitchlfo, fillfo, amplfo;
    f32 cutoff = -1, resonance = 0; ///< Hz, below 0: no filter; dB
    f32 cutoff_cc1 = 0, cutoff_chanaft = 0, cutoff_polyaft = 0, fil_keytrack = 0, fil_veltrack = 0;
    f32 eq1_freq = 50, eq2_freq = 500, eq3_freq = 5000;
    f32 eq1_bw = 0, eq2_bw = 0, eq3_bw = 0, eq1_gain = 0, eq2_gain = 0, eq3_gain = 0;
    f32 eq1_vel2freq = 0, eq2_vel2freq = 0, eq3_vel2freq = 0;
    f32 eq1_vel2gain = 0, eq2_vel2gain = 0, eq3_vel2gain = 0;
    f32 volume = 0, pan = 0, amp_keytrack = 0, amp_veltrack = 100;
    f32 gain_cc129 = 0, gain_cc130 = 0, effect1 = 0, effect2 = 0;
};

/// A key, given as a number or a name.
struct SfzKey {
    u8 SfzSection::*member;
};
/// A member of one of the groups.
struct SfzEgPlace {
    SfzEg SfzSection::*group;
    f32 SfzEg::*member;
};
struct SfzLfoPlace {
    SfzLfo SfzSection::*group;
    f32 SfzLfo::*member;
};

struct SfzOpcode {
    using Place = std::variant<std::string SfzSection::*, SfzKey, u8 SfzSection::*, i32 SfzSection::*,
                               f32 SfzSection::*, SfzEgPlace, SfzLfoPlace>;
    std::string_view name;
    Place place;
    std::string_view alias{}; ///< other spelling
    bool kept = true;         ///< the model has a place for it

    /// Takes a value over; one that can't be read changes nothing. Numbers are limited to the member's range,
    /// keys and other bytes to 0..127, texts to 4096 bytes.
    void set(SfzSection& section, std::string_view value) const;
    /// The number in a section; 0 for a text.
    f64 get(const SfzSection& section) const;
    bool isWhole() const; ///< written without a fraction
};

std::span<const SfzOpcode> sfzOpcodes();
/// By either spelling; null when unknown.
const SfzOpcode* findSfzOpcode(std::string_view name);

/// A key number, or a name as "c#4" or "Bb-1": limited to 0..127. C4 is 60; a name without an octave stands
/// for the one of C4, an unknown letter is 60. `fallback` for a text that is neither.
u8 sfzKey(std::string_view text, u8 fallback);
/// The number that a text begins with; false when there is none. Saturates at +-1e30.
bool sfzNumber(std::string_view text, f64& value);

} // namespace kv
