// Waves of the Yamaha SY85 and SY99. Document: "SY80 WAVE1 - Format" (T. Gruen, D. Loebner, K. Hemberger,
// 1993-1997), found out from files. A header of 1024 bytes that ends in the fields of a MIDI sample dump
// (three times seven bits, the lowest first), and 16-bit samples.
#include "base/run_context.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/classic/classic_kit.h"
#include "formats/framework/sample_file.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::size_t kHeaderBytes = 1024, kKeyAt = 0x12, kLoopTypeAt = 0x18, kDumpAt = 0x2D;

/// Of the types without a loop there are one forward and one backward. What plays backward does so as a
/// whole, for which we have no place.
u16 loopFlags(u8 type) {
    constexpr u8 kForward = 2, kAlternate = 3, kBackward = 6, kBackwardAlternate = 7;
    switch (type) {
        case kForward:
            return kLooped;
        case kBackward:
            return kLooped | kLoopReverse;
        case kAlternate:
        case kBackwardAlternate:
            return kLooped | kLoopBidirectional;
        default:
            return 0;
    }
}

u32 dumpValue(ByteCursor& in) {
    const u32 low = in.u8le() & 0x7FU;
    const u32 middle = in.u8le() & 0x7FU;
    return low | middle << 7 | (in.u8le() & 0x7FU) << 14;
}

} // namespace

bool sy_Imp(Collection&, FileContext& file, u32) {
    constexpr std::string_view kContext = "sy_Imp";
    const Bytes head = headOf(file, kHeaderBytes);
    if (head.size() < kHeaderBytes || !textOf(head).starts_with("SY80 WAVE1"))
        return Fail(kContext, "Not an SY85 wave");
    ByteCursor in(ByteSpan(head).subspan(kDumpAt));
    const u32 period = dumpValue(in); // ns
    const u32 frames = dumpValue(in);
    const u32 loopStart = dumpValue(in);
    const u32 loopEnd = dumpValue(in);

    SampleLayout layout;
    layout.word = kPcm16 | kByteswap;
    if (period != 0) layout.rate = static_cast<u32>(roundHalf(1e9 / period));
    layout.offset = kHeaderBytes;
    layout.bytes = file.size() - kHeaderBytes;
    layout.frames = frames;
    Wave* wave = importSamples(file, layout, kContext);
    if (!wave) return false;
    setRootKey(*wave, std::to_integer<u32>(head[kKeyAt]));
    if (const u16 flags = loopFlags(std::to_integer<u8>(head[kLoopTypeAt])); flags != 0)
        setLoop(*wave, loopStart, loopEnd, flags);
    return true;
}

} // namespace kv
