#include "wizards/wave_statistics.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <span>

#include "base/run_context.h"
#include "model/sample_blocks.h"
#include "model/wave.h"
#include "model/wave_data.h"

namespace kv {
namespace {

constexpr f64 kFullScale16 = 32768;

template <class T>
void measureSamples(std::span<const T> samples, u32 channels, f64 fullScale, WaveStatistics& to) {
    f64 sum = 0, squares = 0;
    to.least = 1e30;
    to.most = -1e30;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const f64 x = static_cast<f64>(samples[i]) / fullScale;
        sum += x;
        squares += x * x;
        to.least = std::min(to.least, x);
        to.most = std::max(to.most, x);
        if (i < channels) continue;
        const f64 before = static_cast<f64>(samples[i - channels]) / fullScale;
        to.maximumDelta = std::max(to.maximumDelta, std::abs(x - before));
        if ((x < 0) != (before < 0)) ++to.zeroCrossings;
    }
    const auto count = static_cast<f64>(samples.size());
    to.mean = sum / count;
    to.rms = std::sqrt(squares / count);
}

std::string levelText(f64 level, std::string_view unit) {
    return std::isnan(level) ? "too short" : fmt::format("{:.1f} {}", level, unit);
}

} // namespace

f64 decibels(f64 level) {
    return level > 0 ? 20 * std::log10(level) : -96;
}

f64 WaveStatistics::level() const {
    return std::max(std::abs(least), std::abs(most));
}

bool measure(Wave& wave, FrameRange range, WaveStatistics& to) {
    to = {};
    if (!wave.LoadData()) return false;
    range.to = std::min(range.to, wave.frames);
    range.from = std::min(range.from, range.to);
    to.frames = range.to - range.from;
    to.seconds = wave.sampleRate == 0 ? 0 : static_cast<f64>(to.frames) / wave.sampleRate;
    to.floats = static_cast<bool>(wave.samplesFloat);
    if (to.frames == 0) return true;
    const std::size_t first = std::size_t{range.from} * wave.channels,
                      count = std::size_t{to.frames} * wave.channels;
    if (to.floats)
        measureSamples<f32>(wave.samplesFloat.span().subspan(first, count), wave.channels, 1, to);
    else
        measureSamples<i16>(wave.samples16.span().subspan(first, count), wave.channels, kFullScale16, to);
    return true;
}

bool measureLoudness(const Wave& wave, FrameRange range, EbuLoudness& to) {
    constexpr u32 kStep = 16384;
    const std::unique_ptr<EbuMeter> meter = EbuMeter::create(wave.channels, wave.sampleRate);
    const std::unique_ptr<SampleBlocks> blocks = meter ? openSamples(wave, true) : nullptr;
    if (!blocks) return false;
    const u32 end = std::min(range.to, blocks->frames());
    std::vector<f32> samples;
    for (u32 at = 0; at < end;) {
        if (CancelRequested()) return Fail("Loudness", "Cancelled");
        // What stands ahead of the range is read, too: blocks come one after the other.
        const u32 step = std::min(kStep, (at < range.from ? std::min(range.from, end) : end) - at);
        samples.resize(std::size_t{step} * blocks->channels());
        if (!blocks->read(std::span(samples))) return false;
        if (at >= range.from && !meter->add(samples)) return false;
        at += step;
    }
    to = meter->finish();
    return true;
}

std::string loudnessText(const EbuLoudness& loudness) {
    return fmt::format("Integrated loudness: {}\nLoudness range: {}\nTrue peak: {}",
                       levelText(loudness.integrated, "LUFS"), levelText(loudness.range, "LU"),
                       levelText(loudness.truePeak, "dBTP"));
}

std::string statisticsText(const WaveStatistics& s) {
    const auto whole = [](f64 x) { return static_cast<int>(std::lround(x * kFullScale16)); };
    std::string text = fmt::format("Wavesamples: {} / {:.2f} s\n", s.frames, s.seconds);
    text += fmt::format("Mean value: {:.3f}\n", s.mean);
    text += fmt::format("RMS: {:.3f} / {:.2f} dB\n", s.rms, decibels(s.rms));
    text += s.floats ? fmt::format("Min..Max value: {:f}..{:f}\n", s.least, s.most)
                     : fmt::format("Min..Max value: {:.3f}..{:.3f} / {}..{}\n", s.least, s.most,
                                   whole(s.least), whole(s.most));
    text +=
        fmt::format("Max level: {:.3f} / {:.2f} dB / {}\n", s.level(), decibels(s.level()), whole(s.level()));
    text += fmt::format("Maximum delta: {:.3f} / {}\n", s.maximumDelta, whole(s.maximumDelta));
    text += fmt::format("Zero crossings: {}", s.zeroCrossings);
    return text;
}

} // namespace kv
