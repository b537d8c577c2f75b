#include "dsp/ebu_loudness.h"

#include <ebur128.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "base/run_context.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "Loudness";
constexpr u32 kMomentarySteps = 4, kShortTermSteps = 30; ///< windows, in tenths of a second
constexpr f64 kSilence = -std::numeric_limits<f64>::infinity();
constexpr f64 kNotMeasured = std::numeric_limits<f64>::quiet_NaN();
/// Far beyond any sound and far from the ends of the number range, so that powers stay finite.
constexpr f32 kLoudest = 1e15F;

} // namespace

struct EbuMeter::State {
    struct Destroy {
        void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
    };
    std::unique_ptr<ebur128_state, Destroy> meter;
    u32 channels;
    std::size_t stepFrames;  ///< a tenth of a second, rounded as the library does
    std::vector<f32> step{}; ///< up to that much, until it is whole
    u64 steps = 0;
    f64 momentary = kSilence, shortTerm = kSilence;

    bool addStep();
};

/// Windows that move on by a tenth of a second are what EBU Tech 3341 asks for.
bool EbuMeter::State::addStep() {
    const std::size_t frames = step.size() / channels;
    if (frames == 0) return true;
    if (ebur128_add_frames_float(meter.get(), step.data(), frames) != EBUR128_SUCCESS)
        return Fail(kContext, "Out of memory");
    step.clear();
    if (frames < stepFrames) return true;
    ++steps;
    const auto raise = [&](f64& highest, u32 needed, auto measure) {
        f64 level = kSilence;
        if (steps >= needed && measure(meter.get(), &level) == EBUR128_SUCCESS)
            highest = std::max(highest, level);
    };
    raise(momentary, kMomentarySteps, ebur128_loudness_momentary);
    raise(shortTerm, kShortTermSteps, ebur128_loudness_shortterm);
    return true;
}

EbuMeter::EbuMeter(std::unique_ptr<State> state) : state_(std::move(state)) {}
EbuMeter::~EbuMeter() = default;

std::unique_ptr<EbuMeter> EbuMeter::create(u32 channels, u32 rate) {
    if (channels < 1 || channels > 2) {
        Fail(kContext, "Only mono and stereo can be measured");
        return nullptr;
    }
    if (rate < kLeastEbuRate || rate > kMostEbuRate) {
        Fail(kContext, "Sample rates from {} to {} Hz can be measured, but not {}", kLeastEbuRate,
             kMostEbuRate, rate);
        return nullptr;
    }
    constexpr int kMode = EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK;
    auto state = std::make_unique<State>(State{{}, channels, (rate + 5) / 10});
    state->meter.reset(ebur128_init(channels, rate, kMode));
    if (!state->meter) {
        Fail(kContext, "Out of memory");
        return nullptr;
    }
    state->step.reserve(state->stepFrames * channels);
    return std::unique_ptr<EbuMeter>(new EbuMeter(std::move(state)));
}

bool EbuMeter::add(std::span<const f32> samples) {
    State& s = *state_;
    while (!samples.empty()) {
        const std::size_t room = s.stepFrames * s.channels - s.step.size();
        const std::span<const f32> part = samples.first(std::min(room, samples.size()));
        for (const f32 x : part) s.step.push_back(std::isfinite(x) ? std::clamp(x, -kLoudest, kLoudest) : 0);
        if (part.size() == room && !s.addStep()) return false;
        samples = samples.subspan(part.size());
    }
    return true;
}

EbuLoudness EbuMeter::finish() {
    State& s = *state_;
    EbuLoudness result{kNotMeasured, kNotMeasured, kSilence, kNotMeasured, kNotMeasured};
    if (!s.addStep()) return result;
    if (s.steps >= kMomentarySteps) {
        ebur128_loudness_global(s.meter.get(), &result.integrated);
        result.momentary = s.momentary;
    }
    if (s.steps >= kShortTermSteps) {
        ebur128_loudness_range(s.meter.get(), &result.range);
        result.shortTerm = s.shortTerm;
    }
    f64 peak = 0;
    for (u32 channel = 0; channel < s.channels; ++channel) {
        f64 own = 0;
        ebur128_true_peak(s.meter.get(), channel, &own);
        peak = std::max(peak, own);
    }
    result.truePeak = 20 * std::log10(peak);
    return result;
}

} // namespace kv
