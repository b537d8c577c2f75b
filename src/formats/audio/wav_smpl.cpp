#include "formats/audio/wav_smpl.h"

#include <algorithm>

#include "model/wave.h"

namespace kv {

SmplHeader readSmplHeader(ByteCursor& in, std::endian order) {
    SmplHeader h;
    for (u32* field : {&h.manufacturer, &h.product, &h.samplePeriod, &h.unityNote, &h.pitchFraction,
                       &h.smpteFormat, &h.smpteOffset, &h.loopCount, &h.samplerDataSize}) {
        *field = in.integer<u32>(order);
    }
    return h;
}

SmplLoop readSmplLoop(ByteCursor& in, std::endian order) {
    SmplLoop loop;
    for (u32* field : {&loop.id, &loop.type, &loop.start, &loop.end, &loop.fraction, &loop.playCount}) {
        *field = in.integer<u32>(order);
    }
    return loop;
}

void writeSmplHeader(ByteWriter& out, const SmplHeader& h) {
    for (const u32 field : {h.manufacturer, h.product, h.samplePeriod, h.unityNote, h.pitchFraction,
                            h.smpteFormat, h.smpteOffset, h.loopCount, h.samplerDataSize}) {
        out.u32le(field);
    }
}

void writeSmplLoop(ByteWriter& out, const SmplLoop& loop) {
    for (const u32 field : {loop.id, loop.type, loop.start, loop.end, loop.fraction, loop.playCount}) {
        out.u32le(field);
    }
}

void wav_ParseSmpl(SampleParams& params, const SmplHeader& header, const SmplLoop* loop) {
    params.override = true;
    if (header.unityNote < 128) params.rootKey = static_cast<u8>(header.unityNote);
    if (params.rootKey == 0) {
        // Some programs store the note most significant byte first.
        const u32 note = __builtin_bswap32(header.unityNote);
        params.rootKey = note >= 1 && note <= 127 ? static_cast<u8>(note) : u8{60};
    }
    params.fineTune = static_cast<i32>(header.pitchFraction / 42949672);
    if (!loop) return;
    params.loopStart = loop->start;
    params.loopEnd = static_cast<f64>(loop->end) + 1 + static_cast<f64>(loop->fraction) * 0x1p-32;
    switch (loop->type) {
        case 1:
            params.loopFlags = kLooped | kLoopBidirectional;
            break;
        case 2:
            params.loopFlags = kLooped | kLoopReverse;
            break;
        case 255:
            break;
        default:
            params.loopFlags = kLooped;
    }
}

void wav_BuildSmpl(SmplHeader& header, SmplLoop& loop, const Wave& wave, u32 frames) {
    const SampleParams& params = wave.params;
    header = {};
    header.samplePeriod = saturate<u32>(1e9 / std::max(wave.sampleRate, 1U) + 0.499);
    header.unityNote = params.rootKey;
    i32 cents = params.fineTune;
    if (cents < 0) {
        ++header.unityNote;
        cents += 100;
    }
    header.pitchFraction = saturate<u32>(cents / 100.0 * 4294967295.0);
    if (!params.looped()) return;
    header.loopCount = 1;
    loop = {};
    loop.type = (params.loopFlags & kLoopBidirectional) != 0 ? 1
                : (params.loopFlags & kLoopReverse) != 0     ? 2
                                                             : 0;
    loop.start = saturate<u32>(params.loopStart + 0.5);
    const u32 end = saturate<u32>(params.loopEnd);
    loop.end = (end > frames ? frames : end) - 1;
}

} // namespace kv
