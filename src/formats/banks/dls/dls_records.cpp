#include "formats/banks/dls/dls_records.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "base/run_context.h"
#include "model/instrument.h"

namespace kv {
namespace {

constexpr f64 kGainUnit = 655360; // of a dB
constexpr u32 kWsmpBytes = 20, kLoopBytes = 16;

/// Both ends of a stored range within 0..127 and in order.
void setRange(u8& low, u8& high, u16 storedLow, u16 storedHigh) {
    const u16 first = std::min<u16>(storedLow, 127), last = std::min<u16>(storedHigh, 127);
    low = static_cast<u8>(std::min(first, last));
    high = static_cast<u8>(std::max(first, last));
}

f64 rounded(f64 frames) {
    return std::floor(frames + 0.499);
}

} // namespace

// ---- Regions

bool readDlsRegionHeader(ByteSpan record, Region& region, u32& layer) {
    ByteCursor in(record);
    const u16 keyLow = in.u16le(), keyHigh = in.u16le(), velLow = in.u16le(), velHigh = in.u16le();
    const u16 options = in.u16le(), keyGroup = in.u16le();
    if (!in.ok()) return false;
    setRange(region.keyLow, region.keyHigh, keyLow, keyHigh);
    setRange(region.velLow, region.velHigh, velLow, velHigh);
    region.selfNonExclusive = options & 1;
    region.keyGroup = keyGroup & 15;
    layer = in.u16le();
    return true;
}

void writeDlsRegionHeader(ByteWriter& to, const Region& region, u32 layer, int level) {
    const bool layered = level >= kDlsLevel2;
    to.text("rgnh").u32le(layered ? 14 : 12).u16le(region.keyLow).u16le(region.keyHigh);
    to.u16le(layered ? region.velLow : u16{0}).u16le(layered ? region.velHigh : u16{127});
    to.u16le(region.selfNonExclusive != 0 ? 1 : 0).u16le(region.keyGroup);
    if (layered) to.u16le(static_cast<u16>(std::min<u32>(layer, 0xFFFF)));
}

bool readDlsWaveLink(ByteSpan record, Region& region, u32& cue) {
    ByteCursor in(record);
    const u16 options = in.u16le(), group = in.u16le();
    in.skip(4); // the wave knows its channels
    const u32 index = in.u32le();
    if (!in.ok()) return false;
    region.phaseMaster = options & 1;
    region.phaseGroup = group == 0 ? u8{0} : static_cast<u8>((group - 1) % 255 + 1);
    cue = index;
    return true;
}

void writeDlsWaveLink(ByteWriter& to, const Region& region, u32 cue, bool stereo) {
    to.text("wlnk").u32le(12).u16le(region.phaseMaster != 0 ? 1 : 0).u16le(region.phaseGroup);
    to.u32le(stereo ? 2 : 1).u32le(cue);
}

void readDlsRegionMore(ByteSpan record, Region& region) {
    ByteCursor in(record);
    const u8 trigger = in.u8le(), flags = in.u8le();
    if (!in.ok()) return;
    if (std::ranges::count(triggerTypes(), trigger, &TriggerType::value) != 0) region.trigger = trigger;
    region.pedalUp = (flags & 1) == 0;
    region.pedalDown = (flags & 2) == 0;
}

void writeDlsRegionMore(ByteWriter& to, const Region& region) {
    const int flags = (region.pedalUp != 0 ? 0 : 1) | (region.pedalDown != 0 ? 0 : 2);
    to.text("LKF1").u32le(10).text("rgnx").u32le(2).u8le(region.trigger).u8le(static_cast<u8>(flags));
}

// ---- Playing of samples

bool readDlsWaveSample(ByteSource& source, const Chunk& chunk, SampleParams& params) {
    const Bytes bytes = readContents(source, chunk, kWsmpBytes);
    ByteCursor in(bytes);
    const u32 headerBytes = std::max(in.u32le(), kWsmpBytes);
    SampleParams read;
    read.override = true;
    read.rootKey = static_cast<u8>(std::min<u16>(in.u16le(), 127));
    read.fineTune = in.s16le();
    read.gainDb = static_cast<f32>(in.s32le() / kGainUnit);
    const u32 options = in.u32le(), loops = in.u32le();
    if (!in.ok()) return false;
    read.dontTruncate = (options & 1) != 0;
    read.dontCompress = (options & 2) != 0;
    params = read;
    if (loops == 0) return true;

    auto& diagnostics = runContext().diagnostics;
    if (u64{headerBytes} + kLoopBytes > chunk.size) {
        diagnostics.warn(chunk.start, "wsmp", "its loop is missing");
        return true;
    }
    if (loops > 1) {
        diagnostics.add({Severity::Loss,
                         chunk.start,
                         {},
                         "wsmp",
                         fmt::format("{} loops: only the first is kept", loops)});
    }
    const Bytes loop =
        readContents(source, {0, chunk.start + headerBytes, kLoopBytes, kLoopBytes}, kLoopBytes);
    ByteCursor at(loop);
    at.skip(4); // its size
    params.loopFlags = at.u32le() == 1 ? kLooped | kLoopUntilRelease : kLooped;
    params.loopStart = at.u32le();
    params.loopEnd = params.loopStart + at.u32le();
    return true;
}

void readDlsWaveSampleMore(ByteSpan record, SampleParams& params) {
    ByteCursor in(record);
    const f32 start = std::bit_cast<f32>(in.u32le()), length = std::bit_cast<f32>(in.u32le());
    const u16 flags = in.u16le();
    if (!in.ok()) return;
    const auto fraction = [](f32 value) { return std::abs(value) <= 1 ? f64{value} : 0.0; };
    params.loopStart += fraction(start);
    params.loopEnd += fraction(start) + fraction(length);
    constexpr u16 kKnown = kLooped | kLoopBidirectional | kLoopReverse | kLoopUntilRelease;
    if (params.looped()) params.loopFlags = flags & kKnown;
}

f32 dlsLfoGain(const Articulation& sounding) {
    return isLfoUnipolar(sounding.lfo1Shape) ? sounding.lfo1ToVolume * 0.5F : 0;
}

void writeDlsWaveSample(ByteWriter& to, const SampleParams& params, const Articulation* sounding, int level) {
    const bool full = level >= kDlsLevel2Full;
    constexpr int kMostCents = 100;
    i64 cents = params.fineTune, key = params.rootKey;
    if (sounding && !full) cents += roundHalf(f64{sounding->masterTune} * 100);
    if (cents > kMostCents || cents < -kMostCents) {
        const i64 keys = cents > 0 ? (cents - 1) / 100 : (cents + 1) / 100;
        const i64 moved = std::clamp<i64>(key - keys, 0, 127);
        cents += (moved - key) * 100;
        key = moved;
    }
    const f64 gain = f64{params.gainDb} + (sounding ? dlsLfoGain(*sounding) : 0);
    const f64 start = rounded(params.loopStart), length = params.loopEnd - params.loopStart;
    const u32 options = (params.dontTruncate ? 1U : 0U) | (params.dontCompress ? 2U : 0U);

    to.text("wsmp").u32le(kWsmpBytes + (params.looped() ? kLoopBytes : 0));
    to.u32le(kWsmpBytes).u16le(static_cast<u16>(key));
    to.u16le(static_cast<u16>(saturate<i16>(static_cast<f64>(cents))));
    to.u32le(static_cast<u32>(roundHalf(gain * kGainUnit))).u32le(options).u32le(params.looped() ? 1 : 0);
    if (params.looped()) {
        const bool released = level >= kDlsLevel2 && (params.loopFlags & kLoopUntilRelease) != 0;
        to.u32le(kLoopBytes).u32le(released ? 1 : 0).u32le(saturate<u32>(start));
        to.u32le(saturate<u32>(rounded(length)));
    }
    if (!full) return;
    const auto fraction = [](f64 value) {
        return std::bit_cast<u32>(static_cast<f32>(value - rounded(value)));
    };
    to.text("LKF1").u32le(18).text("wsmx").u32le(10);
    to.u32le(fraction(params.loopStart)).u32le(fraction(length)).u16le(params.loopFlags);
}

} // namespace kv
