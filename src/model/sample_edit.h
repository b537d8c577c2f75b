// Changing a wave's samples in memory, in whichever form they are.
#pragma once

#include <algorithm>

#include "base/run_context.h"
#include "model/wave.h"

namespace kv {

/// Loads the wave and calls `edit` with its float buffer if there is one, else with the 16-bit one; the other
/// form is dropped. After an edit that succeeded the file can't bring the samples back.
template <class Edit>
bool editSamples(Wave& wave, Edit edit) {
    if (!wave.LoadData()) return false;
    bool done = false;
    if (wave.samplesFloat) {
        wave.samples16.reset();
        done = edit(wave.samplesFloat);
    } else {
        done = edit(wave.samples16);
    }
    if (done) wave.reloadable = false;
    return done;
}

/// Replaces the frames [first, first + removed) by `added` frames with any contents.
template <class T>
bool replaceFrames(Wave& wave, SampleBuffer<T>& buffer, u32 first, u32 removed, u32 added) {
    const u64 frames = u64{wave.frames} - removed + added;
    SampleBuffer<T> changed;
    if (frames > UINT32_MAX || !changed.allocate(static_cast<std::size_t>(frames * wave.channels)))
        return Fail("Wave data", "Out of memory");
    const std::size_t head = std::size_t{first} * wave.channels;
    const std::span<const T> old = static_cast<const SampleBuffer<T>&>(buffer).span();
    const std::span<const T> tail = old.subspan(head + std::size_t{removed} * wave.channels);
    std::copy_n(old.begin(), head, changed.data());
    std::copy(tail.begin(), tail.end(), changed.data() + changed.size() - tail.size());
    buffer = std::move(changed);
    wave.frames = static_cast<u32>(frames);
    return true;
}

/// Copies one frame over another.
template <class T>
void copyFrame(SampleBuffer<T>& buffer, u32 channels, u64 from, u64 to) {
    std::copy_n(buffer.data() + from * channels, channels, buffer.data() + to * channels);
}

} // namespace kv
