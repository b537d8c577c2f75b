#include "draw/wave_columns.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "model/wave.h"

namespace kv {
namespace {

/// A column while its frames come in.
struct Sums {
    f32 least = std::numeric_limits<f32>::max(), most = std::numeric_limits<f32>::lowest();
    f64 squares = 0;

    void add(const f32* samples, std::size_t frames, std::size_t stride) {
        for (std::size_t i = 0; i < frames; ++i) {
            const f32 x = samples[i * stride];
            least = std::min(least, x);
            most = std::max(most, x);
            squares += static_cast<f64>(x) * static_cast<f64>(x);
        }
    }
    WaveColumn column(u32 frames) const {
        return {least, most, static_cast<f32>(std::sqrt(squares / frames))};
    }
};

/// Gives each column the mean square of so many columns around it.
void smoothLevels(std::vector<WaveColumn>& columns, std::size_t reach) {
    std::vector<f64> sums{0}; // of squares up to each column
    for (const WaveColumn& c : columns)
        sums.push_back(sums.back() + static_cast<f64>(c.rms) * static_cast<f64>(c.rms));
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const std::size_t from = i - std::min(i, reach), to = std::min(i + reach + 1, columns.size());
        const f64 mean = std::max(sums[to] - sums[from], 0.0) / static_cast<f64>(to - from);
        columns[i].rms = static_cast<f32>(std::sqrt(mean));
    }
}

} // namespace

bool measureColumns(const Wave& wave, FrameSpan span, u32 columns, WaveColumns& to) {
    const std::size_t channels = wave.channels;
    to.peak = 0;
    to.channels.assign(channels, {});
    for (auto& channel : to.channels) channel.reserve(columns);
    const auto startOf = [&](u32 column) { return static_cast<u32>(u64{column} * span.count() / columns); };

    std::vector<Sums> sums(channels);
    u32 column = 0, start = 0, end = startOf(1);
    const bool read = streamFrames(wave, span, [&](std::span<const f32> samples, u32 first) {
        u32 at = first - span.from;
        while (!samples.empty()) {
            const std::size_t frames = std::min<std::size_t>(end - at, samples.size() / channels);
            for (std::size_t c = 0; c < channels; ++c) sums[c].add(samples.data() + c, frames, channels);
            samples = samples.subspan(frames * channels);
            at += static_cast<u32>(frames);
            if (at < end) continue;
            for (std::size_t c = 0; c < channels; ++c) {
                const WaveColumn made = sums[c].column(end - start);
                to.channels[c].push_back(made);
                to.peak = std::max({to.peak, -made.least, made.most});
                sums[c] = {};
            }
            start = end;
            end = startOf(++column + 1);
        }
    });
    constexpr u32 kPerSecond = 100; // reaches of 10 ms
    const u64 reach = u64{wave.sampleRate} * columns / kPerSecond / span.count();
    for (auto& channel : to.channels) smoothLevels(channel, static_cast<std::size_t>(reach));
    return read;
}

bool readPieces(const Wave& wave, std::span<WavePiece> pieces) {
    FrameSpan all{UINT32_MAX, 0};
    for (WavePiece& piece : pieces) {
        piece.channels.assign(wave.channels, std::vector<f32>(piece.span.count()));
        all = {std::min(all.from, piece.span.from), std::max(all.to, piece.span.to)};
    }
    return streamFrames(wave, all, [&](std::span<const f32> samples, u32 first) {
        const u32 last = first + static_cast<u32>(samples.size() / wave.channels);
        for (WavePiece& piece : pieces) {
            for (u32 at = std::max(first, piece.span.from); at < std::min(last, piece.span.to); ++at) {
                for (u32 c = 0; c < wave.channels; ++c)
                    piece.channels[c][at - piece.span.from] =
                        samples[std::size_t{at - first} * wave.channels + c];
            }
        }
    });
}

} // namespace kv
