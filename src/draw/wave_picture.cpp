#include "draw/wave_picture.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/run_context.h"
#include "draw/picture_parts.h"
#include "model/wave.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "draw";

struct Kind {
    PictureKind kind;
    f64 rightMargin; ///< in units
    bool (*draw)(Plot& plot, const Wave& wave, FrameSpan span);
};
constexpr Kind kKinds[] = {
    {PictureKind::Waveform, 60, drawWaveform},
    {PictureKind::Spectrum, 30, drawSpectrum},
    {PictureKind::Spectrogram, 88, drawSpectrogram},
    {PictureKind::Loop, 30, drawLoopSeam},
};

bool check(const Wave& wave, const PictureOptions& options) {
    const auto name = wave.name().view();
    if (options.width < kLeastPictureWidth || options.height < kLeastPictureHeight ||
        std::max(options.width, options.height) > kMostPictureSide)
        return Fail(kContext, "Pictures are from {}x{} to {}x{} pixels large, not {}x{}", kLeastPictureWidth,
                    kLeastPictureHeight, kMostPictureSide, kMostPictureSide, options.width, options.height);
    if (wave.frames == 0) return Fail(kContext, "\"{}\" is empty", name);
    if (wave.channels < 1 || wave.channels > 2)
        return Fail(kContext, "\"{}\" has {} channels", name, wave.channels);
    if (wave.sampleRate == 0) return Fail(kContext, "\"{}\" has no sample rate", name);
    if (options.span.from >= std::min(options.span.to, wave.frames))
        return Fail(kContext, "\"{}\" has {} frames, but none from {} on that could be shown", name,
                    wave.frames, options.span.from);
    return true;
}

} // namespace

bool drawPicture(const Wave& wave, const PictureOptions& options, Image& to) {
    if (!check(wave, options)) return false;
    const FrameSpan span{options.span.from, std::min(options.span.to, wave.frames)};
    to = {options.width, options.height, std::vector<u32>(std::size_t{options.width} * options.height)};
    const std::unique_ptr<Canvas> canvas = Canvas::create(to);
    if (!canvas) return false;
    const Kind& kind = *std::find_if(std::begin(kKinds), std::end(kKinds),
                                     [&](const Kind& row) { return row.kind == options.kind; });
    Plot plot(*canvas, theme(options.dark), options.width, options.height, kind.rightMargin);
    return kind.draw(plot, wave, span);
}

std::string waveDetails(const Wave& wave, FrameSpan span) {
    std::string text =
        fmt::format("{} Hz  ·  {}  ·  {:.3f} s  ·  {} frame{}", grouped(wave.sampleRate),
                    wave.channels == 1 ? "mono" : "stereo", static_cast<f64>(wave.frames) / wave.sampleRate,
                    grouped(wave.frames), plural(wave.frames));
    if (span.count() < wave.frames)
        text += fmt::format("  ·  shown: {} to {}", grouped(span.from), grouped(span.to));
    return text;
}

Scale timeScale(const Wave& wave, FrameSpan span, const Rect& lane) {
    const auto seconds = [&](u32 frame) { return static_cast<f64>(frame) / wave.sampleRate; };
    return {seconds(span.from), seconds(span.to), lane.left, lane.right};
}

f64 nameLanes(Plot& plot, std::span<const Rect> lanes) {
    constexpr std::string_view kNames[] = {"Left", "Right"};
    f64 edge = plot.area().left;
    if (lanes.size() < 2) return edge;
    for (std::size_t i = lanes.size(); i-- > 0;)
        edge = plot.tag(kNames[i], {lanes[i].left + 4 * plot.unit(), lanes[i].top + 4 * plot.unit()},
                        plot.colours().faintText);
    return edge;
}

} // namespace kv
