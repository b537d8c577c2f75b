#include "wizards/wave_tuning.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "dsp/dominant_frequency.h"
#include "model/key_name.h"
#include "wizards/wave_floats.h"

namespace kv {
namespace {

constexpr f64 kKeyZeroHz = 8.17579891565;
constexpr int kHighestKey = 108;

/// "C4 plus 12 cents".
std::string toneText(int key, int cents) {
    return fmt::format("{} {} {} cents", KeyName(key), cents < 0 ? "minus" : "plus", std::abs(cents));
}

} // namespace

bool FindTuning(Wave& wave, Tuning& to) {
    f64 hertz = 0;
    const auto find = [&](std::span<const f32> samples) {
        hertz = DominantFrequency(samples, wave.frames, wave.channels, wave.sampleRate, true);
    };
    if (!lookAtSamples<f32>(wave, find)) return false;
    if (!(hertz > 0)) return Fail("Find Tuning", "Auto-Tuning failed!");
    f64 exact = 12 * std::log2(hertz / kKeyZeroHz);
    int key = saturate<i32>(exact + 0.5);
    while (key > kHighestKey) {
        key -= 12;
        exact -= 12;
    }
    while (key < 0) {
        key += 12;
        exact += 12;
    }
    to = {key, roundHalf((key - exact) * 100, 0.499), hertz};
    return true;
}

int detuning(const Wave& wave, const Tuning& tuning) {
    const i64 cents = (i64{tuning.key} - wave.params.rootKey) * 100 - tuning.cents + wave.params.fineTune;
    return saturate<i32>(static_cast<f64>(cents));
}

void applyTuning(Wave& wave, const Tuning& tuning, TuneMode mode) {
    const int sharp = detuning(wave, tuning);
    if (sharp == 0) return;
    if (mode == TuneMode::SampleRate) {
        wave.sampleRate = std::max(saturate<u32>(wave.sampleRate * std::exp2(-sharp / 1200.0) + 0.5), 1U);
        return;
    }
    if (mode == TuneMode::KeyAndFine) wave.params.rootKey = static_cast<u8>(tuning.key);
    wave.params.fineTune = tuning.cents;
}

std::string detuningText(int cents) {
    if (cents == 0) return "Already perfectly tuned!";
    const i64 size = std::abs(i64{cents});
    return fmt::format("Tuning is {} semitones and {} cents {}", size / 100, size % 100,
                       cents > 0 ? "sharp" : "flat");
}

std::string tuningText(const Wave& wave, const Tuning& tuning) {
    return fmt::format(
        "Fourier analysis shows the dominant frequency is:\n\n\t{:.1f} HZ\n\nWhich corresponds to the "
        "tone:\n\n"
        "\t{}\n\nThe currently set root key is for the tone:\n\n\t{}\n\n"
        "NB: Root key 'fine-tune' is the negative of this.",
        tuning.hertz, toneText(tuning.key, -tuning.cents),
        toneText(wave.params.rootKey, saturate<i32>(-static_cast<f64>(wave.params.fineTune))));
}

} // namespace kv
