// The pitch of a wave, and bringing its key, fine tune or rate in line with it.
#pragma once

#include <string>

#include "base/integers.h"

namespace kv {

class Wave;

struct Tuning {
    int key = 60;  ///< nearest MIDI key, by whole octaves within 0..108
    int cents = 0; ///< root key fine tune: the negative of the deviation from the key
    f64 hertz = 0;
};
/// Measures the dominant frequency. False with the error pair set when there is none or the samples can't be
/// had.
bool FindTuning(Wave& wave, Tuning& to);

enum class TuneMode : u8 { KeyAndFine, FineOnly, SampleRate };

/// Cents by which a wave sounds sharp (above 0) or flat when its root key is played.
int detuning(const Wave& wave, const Tuning& tuning);
/// Changes what the mode names, so that the wave is in tune.
void applyTuning(Wave& wave, const Tuning& tuning, TuneMode mode);

/// "Tuning is 0 semitones and 12 cents sharp".
std::string detuningText(int cents);
/// What the page "Calculate tuning" says.
std::string tuningText(const Wave& wave, const Tuning& tuning);

} // namespace kv
