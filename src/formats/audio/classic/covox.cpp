// Sounds for the sound devices of Covox. Document: "Covox ADPCM" (MultimediaWiki); Snd reads the plain kind
// alike. A mark that doesn't come in samples, the kind, the divisor of the PC's timer, and six bytes that
// aren't relied on. Only plain 8-bit samples are read here, not the coded kinds.
#include "base/run_context.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/classic/classic_kit.h"
#include "formats/framework/sample_file.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::size_t kHeaderBytes = 16;
constexpr std::string_view kMark("\xFF\x55\xFF\xAA\xFF\x55\xFF\xAA", 8);
constexpr std::string_view kEnd("\xFF\xAA\xAA\xAA", 4); ///< behind the samples, where there is one
constexpr u8 kPlain = 8;
constexpr f64 kTimerHz = 1193182; // 14.31818 MHz by twelve
constexpr u32 kUsualRate = 8000;

} // namespace

bool v8_Imp(Collection&, FileContext& file, u32) {
    constexpr std::string_view kContext = "v8_Imp";
    const Bytes head = headOf(file, kHeaderBytes);
    if (head.size() < kHeaderBytes || !textOf(head).starts_with(kMark))
        return Fail(kContext, "Not a Covox file");
    ByteCursor in(ByteSpan(head).subspan(kMark.size()));
    if (in.u8le() != kPlain) return Fail(kContext, "Unsupported subformat");
    const u8 divisor = in.u8le();

    SampleLayout layout;
    layout.word = kPcm8 | kUnsigned;
    layout.rate = divisor != 0 ? static_cast<u32>(roundHalf(kTimerHz / divisor)) : kUsualRate;
    layout.offset = kHeaderBytes;
    layout.bytes = file.size() - kHeaderBytes;
    Bytes tail(kEnd.size());
    if (layout.bytes >= kEnd.size() && file.source->readAt(file.size() - kEnd.size(), tail) == tail.size() &&
        textOf(tail) == kEnd)
        layout.bytes -= kEnd.size();
    return importSamples(file, layout, kContext) != nullptr;
}

} // namespace kv
