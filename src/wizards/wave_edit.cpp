#include "wizards/wave_edit.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <span>
#include <vector>

#include "model/instrument.h"
#include "model/sample_edit.h"
#include "model/wave_data.h"
#include "model/workspace.h"

namespace kv {
namespace {

/// To -1..1; what is no number becomes -1.
f32 limited(f32 x) {
    x = x > -1 ? x : -1;
    return x < 1 ? x : 1;
}

FrameRange within(const Wave& wave, FrameRange range) {
    range.to = std::min(range.to, wave.frames);
    range.from = std::min(range.from, range.to);
    return range;
}

template <class T>
std::span<T> samplesOf(const Wave& wave, std::span<T> all, FrameRange range) {
    return all.subspan(std::size_t{range.from} * wave.channels,
                       std::size_t{range.to - range.from} * wave.channels);
}

/// Calls `edit` with the float samples of a range, and drops the other form.
template <class Edit>
bool editFloats(Wave& wave, FrameRange range, Edit edit) {
    if (!wave.LoadData()) return false;
    range = within(wave, range);
    if (wave.frames == 0) return true;
    const std::span<f32> all = GetFloatData(wave);
    if (all.empty()) return Fail("Wave data", "Out of memory");
    edit(samplesOf(wave, all, range), range);
    DropInt16Data(wave, true);
    wave.reloadable = false;
    return true;
}

/// The same in the form that the wave has.
template <class Edit>
bool editRange(Wave& wave, FrameRange range, Edit edit) {
    if (!wave.LoadData()) return false;
    if (wave.frames == 0) return true;
    return editSamples(wave, [&](auto& buffer) {
        edit(samplesOf(wave, buffer.span(), within(wave, range)));
        return true;
    });
}

/// x * s + o.
struct Linear {
    f64 scale = 1, offset = 0;
};

Linear maximized(std::span<const f32> samples, MaximizeMode mode) {
    f64 lo = 1, hi = -1, sum = 0;
    for (const f32 x : samples) {
        lo = std::min<f64>(lo, x);
        hi = std::max<f64>(hi, x);
        sum += x;
    }
    const f64 mean = samples.empty() ? 0 : sum / static_cast<f64>(samples.size());
    if (mode == MaximizeMode::FullRange) {
        if (!(hi > lo)) return {};
        const f64 scale = 2 / (hi - lo);
        return {scale, 1 - scale * hi};
    }
    const f64 zero = mode == MaximizeMode::MeanZero ? mean : 0;
    const f64 peak = std::max(std::abs(lo - zero), std::abs(hi - zero));
    if (!(peak > 0)) return {};
    return {1 / peak, -zero / peak};
}

/// The gains of a fade from the frame `first` of `frames` on.
void fadeGains(Fade kind, u32 first, u32 frames, std::span<f32> gains) {
    const f64 step = 1.0 / frames;
    const auto fill = [&](auto gainOf) { // a loop for each kind
        for (int i = 0; i < static_cast<int>(gains.size()); ++i) {
            const f64 done = (first + 1.0 + i) * step, rest = (static_cast<f64>(frames - first) - i) * step;
            gains[static_cast<std::size_t>(i)] = static_cast<f32>(gainOf(done, rest));
        }
    };
    switch (kind) {
        case Fade::LinearIn:
            return fill([](f64 done, f64) { return done; });
        case Fade::LinearOut:
            return fill([](f64, f64 rest) { return rest; });
        case Fade::ExponentialIn:
            return fill([](f64, f64 rest) { return 1 - std::log10(rest * 9 + 1); });
        case Fade::LogarithmicOut:
            return fill([](f64 done, f64) { return 1 - std::log10(done * 9 + 1); });
    }
}

} // namespace

FrameRange rangeOf(const Wave& wave, i64 from, i64 to) {
    if (from < 0) return {0, wave.frames};
    const i64 frames = wave.frames;
    return within(
        wave, {static_cast<u32>(std::min(from, frames)), static_cast<u32>(std::clamp<i64>(to, 0, frames))});
}

bool AdjustVolume(Wave& wave, f64 decibels, i64 from, i64 to) {
    if (decibels == 0) return true;
    const auto gain = static_cast<f32>(std::pow(10.0, decibels / 20));
    if (!wave.LoadData()) return false;
    return editFloats(wave, rangeOf(wave, from, to), [&](std::span<f32> samples, FrameRange) {
        for (f32& x : samples) x = limited(x * gain);
    });
}

bool MaximizeAmplitude(Wave& wave, MaximizeMode mode) {
    if (!wave.LoadData()) return false;
    const bool hadFloats = static_cast<bool>(wave.samplesFloat);
    const Linear change = maximized(GetFloatData(wave), mode);
    if (change.scale == 1 && change.offset == 0) {
        if (!hadFloats) DropFloatData(wave, true);
        return true;
    }
    return editFloats(wave, {}, [&](std::span<f32> samples, FrameRange) {
        for (f32& x : samples)
            x = limited(static_cast<f32>(change.scale * static_cast<f64>(x) + change.offset));
    });
}

bool RemoveDcOffset(Wave& wave) {
    if (!wave.LoadData()) return false;
    const auto meanOf = [](const auto& buffer) {
        f64 sum = 0;
        for (const auto x : buffer.span()) sum += static_cast<f64>(x);
        return buffer.size() == 0 ? 0 : sum / static_cast<f64>(buffer.size());
    };
    if (wave.samplesFloat) {
        const auto mean = static_cast<f32>(meanOf(wave.samplesFloat));
        if (mean == 0 || !std::isfinite(mean)) return true;
        return editRange(wave, {}, [&](auto samples) {
            for (auto& x : samples) {
                if constexpr (std::is_same_v<decltype(x), f32&>) x = limited(x - mean);
            }
        });
    }
    const int mean = static_cast<int>(meanOf(wave.samples16));
    if (mean == 0) return true;
    return editRange(wave, {}, [&](auto samples) {
        for (auto& x : samples) {
            if constexpr (std::is_same_v<decltype(x), i16&>)
                x = static_cast<i16>(std::clamp(x - mean, -32768, 32767));
        }
    });
}

bool FadeRange(Wave& wave, FrameRange range, Fade kind) {
    return editFloats(wave, range, [&](std::span<f32> samples, FrameRange cut) {
        const u32 frames = cut.to - cut.from;
        const u32 channels = wave.channels;
        f32* sample = samples.data();
        std::array<f32, 1024> gains{};
        for (u32 first = 0; first < frames; first += static_cast<u32>(gains.size())) {
            const auto part = std::span(gains).first(std::min<std::size_t>(frames - first, gains.size()));
            fadeGains(kind, first, frames, part);
            for (const f32 gain : part) {
                for (u32 c = 0; c < channels; ++c) *sample++ *= gain;
            }
        }
    });
}

bool SmoothRange(Wave& wave, FrameRange range, Smoothing filter) {
    return editFloats(wave, range, [&](std::span<f32> samples, FrameRange cut) {
        const std::size_t step = wave.channels;
        const std::span<const f32> all = static_cast<const SampleBuffer<f32>&>(wave.samplesFloat).span();
        const std::size_t first = std::size_t{cut.from} * step;
        const std::size_t count = samples.size();
        if (count == 0) return;
        if (filter == Smoothing::RightBlock) {
            for (std::size_t i = 0; i < count && first + i + step < all.size(); ++i)
                samples[i] = (samples[i] + all[first + i + step]) * 0.5F;
            return;
        }
        if (filter == Smoothing::LeftBlock) {
            for (std::size_t i = count; i-- > 0;) {
                if (first + i >= step) samples[i] = (samples[i] + all[first + i - step]) * 0.5F;
            }
            return;
        }
        std::vector<f32> left(samples.begin(),
                              samples.begin() + static_cast<std::ptrdiff_t>(std::min(step, count)));
        for (std::size_t i = step; i + step < count; ++i) {
            const f32 own = samples[i], right = samples[i + step];
            f32& before = left[i % step];
            samples[i] = filter == Smoothing::Triangular ? (before + 2 * own + right) * 0.25F
                                                         : (before + right) * 0.5F;
            before = own;
        }
    });
}

bool InvertRange(Wave& wave, FrameRange range) {
    return editRange(wave, range, [](auto samples) {
        for (auto& x : samples) {
            if constexpr (std::is_same_v<decltype(x), i16&>)
                x = static_cast<i16>(std::min(-x, 32767));
            else
                x = -x;
        }
    });
}

bool ReverseRange(Wave& wave, FrameRange range) {
    return editRange(wave, range, [&](auto samples) {
        std::reverse(samples.begin(), samples.end());
        if (wave.channels < 2) return;
        for (auto frame = samples.begin(); frame != samples.end(); frame += wave.channels)
            std::reverse(frame, frame + wave.channels);
    });
}

bool SwapChannels(Wave& wave) {
    if (wave.channels != 2) return true;
    return editRange(wave, {}, [](auto samples) {
        for (std::size_t i = 0; i + 1 < samples.size(); i += 2) std::swap(samples[i], samples[i + 1]);
    });
}

bool CutRange(Wave& wave, FrameRange range) {
    if (!wave.LoadData()) return false;
    range = within(wave, range);
    const u32 removed = range.to - range.from;
    if (removed == 0) return true;
    const bool done =
        editSamples(wave, [&](auto& buffer) { return replaceFrames(wave, buffer, range.from, removed, 0); });
    if (done) movePointsAfterRemoval(wave, range.from, removed);
    return done;
}

bool KeepRange(Wave& wave, FrameRange range) {
    if (!wave.LoadData()) return false;
    range = within(wave, range);
    return CutRange(wave, {range.to, wave.frames}) && CutRange(wave, {0, range.from});
}

// ---- Points

namespace {

/// Calls `move` with the loop of the wave and of each region that has its own for it.
template <class Move>
void forEachLoop(Wave& wave, Move move) {
    move(wave.params);
    for (Region& region : store().all<Region>()) {
        if (region.params.override && RegionWave(region) == &wave) move(region.params);
    }
}

/// `start` and `end` move the points at which something starts, and those at which something ends.
template <class Start, class End>
void movePoints(Wave& wave, Start start, End end) {
    forEachLoop(wave, [&](SampleParams& params) {
        params.loopStart = start(params.loopStart);
        params.loopEnd = end(params.loopEnd);
        if (params.looped() && params.loopStart >= params.loopEnd) params.loopFlags = 0;
    });
    if (wave.selStart >= 0) {
        wave.selStart = static_cast<i64>(start(static_cast<f64>(wave.selStart)));
        wave.selEnd = static_cast<i64>(end(static_cast<f64>(wave.selEnd)));
    }
    for (CuePoint& cue : wave.cuePoints) {
        const f64 last = end(static_cast<f64>(u64{cue.position} + cue.length));
        cue.position = static_cast<u32>(start(cue.position));
        if (cue.length > 0)
            cue.length = static_cast<u32>(std::clamp<f64>(last - cue.position, 0, UINT32_MAX));
    }
}

} // namespace

void movePointsAfterRemoval(Wave& wave, u32 position, u32 removed) {
    const f64 end = static_cast<f64>(position) + removed;
    const auto move = [&](f64 point) {
        return point >= end ? point - removed : std::min<f64>(point, position);
    };
    movePoints(wave, move, move);
}

void movePointsAfterInsertion(Wave& wave, u32 position, u32 added) {
    movePoints(
        wave, [&](f64 point) { return point >= position ? point + added : point; },
        [&](f64 point) { return point > position ? point + added : point; });
}

void scalePoints(Wave& wave, f64 factor) {
    const auto nearest = [&](auto point) { return std::floor(static_cast<f64>(point) * factor + 0.5); };
    forEachLoop(wave, [&](SampleParams& params) {
        params.loopStart *= factor;
        params.loopEnd *= factor;
        params.startOffset = saturate<i32>(nearest(params.startOffset));
        params.endOffset = saturate<i32>(nearest(params.endOffset));
    });
    if (wave.selStart >= 0) {
        wave.selStart = saturate<u32>(nearest(wave.selStart));
        wave.selEnd = saturate<u32>(nearest(wave.selEnd));
    }
    for (CuePoint& cue : wave.cuePoints) {
        cue.position = saturate<u32>(nearest(cue.position));
        cue.length = saturate<u32>(nearest(cue.length));
    }
}

} // namespace kv
