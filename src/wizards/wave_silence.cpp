#include "wizards/wave_silence.h"

#include <algorithm>
#include <cmath>

#include "model/sample_edit.h"
#include "model/wave_data.h"
#include "model/workspace.h"
#include "wizards/wave_edit.h"

namespace kv {
namespace {

constexpr u32 kJoint = 3; // samples that are blended on each side of a cut

/// Whether frames are at or above a level.
class Gate {
public:
    Gate(Wave& wave, f64 threshold)
        : wave_(wave),
          level_(static_cast<f32>(threshold)),
          level16_(static_cast<int>(std::min(threshold, 2.0) * 32767.5)) {}

    bool sounds(u32 frame) const {
        const std::size_t at = std::size_t{frame} * wave_.channels;
        if (wave_.samplesFloat) return std::abs(wave_.samplesFloat.data()[at]) >= level_;
        return std::abs(static_cast<int>(wave_.samples16.data()[at])) >= level16_;
    }

private:
    Wave& wave_;
    f32 level_;
    int level16_;
};

/// Parts [from, to) of [begin, end) between silences of at least `minimum` frames. A part begins at a frame
/// that `opens` lets through and goes on as long as `holds` does.
std::vector<FrameRange> partsBetween(const Gate& opens, const Gate& holds, u32 begin, u32 end, u32 minimum) {
    std::vector<FrameRange> parts;
    for (u32 i = begin; i < end;) {
        while (i < end && !opens.sounds(i)) ++i;
        if (i == end) break;
        FrameRange part{i, i};
        u32 silent = 0;
        for (; i < end && silent < minimum; ++i) {
            silent = holds.sounds(i) ? 0 : silent + 1;
            if (silent == 0) part.to = i + 1;
        }
        if (silent < minimum) part.to = end;
        parts.push_back(part);
    }
    return parts;
}

/// Blends both sides of a joint ahead of `frame` toward each other; weaker with the distance.
template <class T>
void blend(SampleBuffer<T>& buffer, u32 channels, u32 frames, u32 frame) {
    if (frame < kJoint || frame + kJoint > frames) return;
    for (u32 distance = 0; distance < kJoint; ++distance) {
        const f64 share = 0.2 * (kJoint - distance) / kJoint;
        for (u32 c = 0; c < channels; ++c) {
            T& left = buffer.data()[std::size_t{frame - 1 - distance} * channels + c];
            T& right = buffer.data()[std::size_t{frame + distance} * channels + c];
            const auto l = static_cast<f64>(left), r = static_cast<f64>(right);
            left = static_cast<T>((1 - share) * l + share * r);
            right = static_cast<T>((1 - share) * r + share * l);
        }
    }
}

} // namespace

bool RemoveSilence(Wave& wave, const SilenceRemoval& how) {
    if (!wave.LoadData()) return false;
    const Gate gate(wave, how.threshold);
    u32 begin = 0, end = wave.frames;
    if (how.fromStart) {
        while (begin < end && !gate.sounds(begin)) ++begin;
    }
    if (how.fromEnd) {
        while (end > begin && !gate.sounds(end - 1)) --end;
    }
    constexpr u32 kLeast = 4;
    if (end - begin <= kLeast) return true;
    std::vector<FrameRange> parts{{begin, end}};
    if (how.anywhere) {
        parts = partsBetween(gate, gate, begin, end, std::max(how.minimum, 1U));
        std::erase_if(parts, [](const FrameRange& part) { return part.to - part.from < 2; });
        if (parts.empty()) return true;
    }
    // What is removed, from the end on, so that the frames ahead keep their numbers.
    std::vector<FrameRange> gaps;
    u32 last = 0;
    for (const FrameRange& part : parts) {
        if (part.from > last) gaps.push_back({last, part.from});
        last = part.to;
    }
    if (last < wave.frames) gaps.push_back({last, wave.frames});
    if (gaps.empty()) return true;
    const bool done = editSamples(wave, [&](auto& buffer) {
        u32 to = 0;
        std::vector<u32> joints;
        for (const FrameRange& part : parts) {
            if (to > 0) joints.push_back(to);
            const auto first = buffer.data() + std::size_t{part.from} * wave.channels;
            std::copy(first, first + std::size_t{part.to - part.from} * wave.channels,
                      buffer.data() + std::size_t{to} * wave.channels);
            to += part.to - part.from;
        }
        if (!replaceFrames(wave, buffer, to, wave.frames - to, 0)) return false;
        for (const u32 joint : joints) {
            if (how.smooth) blend(buffer, wave.channels, wave.frames, joint);
        }
        return true;
    });
    if (!done) return false;
    for (auto gap = gaps.rbegin(); gap != gaps.rend(); ++gap)
        movePointsAfterRemoval(wave, gap->from, gap->to - gap->from);
    wave.FixUp();
    return true;
}

bool SplitAtSilence(Wave& wave, const SilenceSplit& how, std::vector<Wave*>& made) {
    if (!wave.LoadData()) return false;
    std::vector<FrameRange> parts =
        partsBetween(Gate(wave, how.detect), Gate(wave, std::min(how.clip, how.detect)), 0, wave.frames,
                     std::max(how.minimumSilence, 1U));
    std::erase_if(parts, [&](const FrameRange& part) { return part.to - part.from < how.minimumSound; });
    const auto fadeEnds = [&](Wave& part) {
        if (!how.smooth) return true;
        return FadeRange(part, {0, kJoint}, Fade::LinearIn) &&
               FadeRange(part, {part.frames - std::min(part.frames, kJoint), part.frames}, Fade::LinearOut);
    };
    for (std::size_t i = 1; i < parts.size(); ++i) {
        const FrameRange& part = parts[i];
        Wave* next =
            store().Create<Wave>(wave, kNextFreeNumber, wave.name().view(), part.from, part.to - part.from);
        made.push_back(next);
        if (!next->LoadData() || !fadeEnds(*next)) return false;
        next->FixUp();
    }
    if (parts.size() < 2) return true;
    if (!KeepRange(wave, parts[0]) || !fadeEnds(wave)) return false;
    wave.FixUp();
    return true;
}

} // namespace kv
