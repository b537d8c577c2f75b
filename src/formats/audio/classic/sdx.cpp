// Files of the program "Sample Dump eXchange": what a MIDI Sample Dump says, and plain samples. Layout: as
// FFmpeg reads it, and Snd after M. Lakata's sdx2tx. A line of text up to a Ctrl-Z, the version, a name
// behind its length, and the fields of a dump as whole integers; samples are unsigned, little-endian.
#include <algorithm>

#include "base/run_context.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/classic/classic_kit.h"
#include "formats/framework/sample_file.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::size_t kMostHeadBytes = 1024;
constexpr u8 kTextEnd = 0x1A, kVersion = 1, kNotPacked = 0;
enum LoopType : u8 { kForward = 0, kAlternating = 1 }; // as in a dump; anything else is none

struct SdxHeader {
    std::string name;
    u32 bits = 0, rate = 0, frames = 0, loopStart = 0, loopEnd = 0; ///< the end's frame belongs to the loop
    u8 packing = 0, loopType = 0;
    std::size_t end = 0; ///< behind what is known of it
};

bool readHeader(ByteSpan head, SdxHeader& header) {
    if (!textOf(head).starts_with("SDX:")) return false;
    const auto text = std::find(head.begin(), head.end(), std::byte{kTextEnd});
    if (text == head.end()) return false;
    const std::size_t start = static_cast<std::size_t>(text - head.begin()) + 1;
    ByteCursor in(head.subspan(start), start);
    if (in.u8le() != kVersion) return false;
    const u8 length = in.u8le();
    header.name = fieldText(in.bytes(length));
    header.packing = in.u8le();
    in.skip(3); // MIDI channel, number of the sample
    header.bits = in.u8le();
    header.rate = in.u32le();
    header.frames = in.u32le();
    header.loopStart = in.u32le();
    header.loopEnd = in.u32le();
    header.loopType = in.u8le();
    header.end = static_cast<std::size_t>(in.offset());
    return in.ok();
}

u32 codeOf(u32 bits) {
    switch (bits) {
        case 8:
            return kPcm8;
        case 16:
            return kPcm16;
        case 24:
            return kPcm24;
        case 32:
            return kPcm32;
        default:
            return 0;
    }
}

/// The first sample's place. One byte is left of the header by one of its readers, and three by the other:
/// the file's length decides, and where it doesn't, what can't take in a part of the header.
u64 dataStart(const SdxHeader& header, u64 fileSize) {
    const u64 shorter = header.end + 1, longer = header.end + 3;
    const u64 bytes = u64{header.frames} * (header.bits / 8);
    return header.frames != 0 && shorter + bytes == fileSize ? shorter : std::min(longer, fileSize);
}

} // namespace

bool sdx_Imp(Collection&, FileContext& file, u32) {
    constexpr std::string_view kContext = "sdx_Imp";
    const Bytes head = headOf(file, kMostHeadBytes);
    SdxHeader header;
    if (!readHeader(head, header)) return Fail(kContext, "Not an SDX file");
    const u32 code = codeOf(header.bits);
    if (code == 0 || header.packing != kNotPacked) return Fail(kContext, "Unsupported subformat");

    SampleLayout layout;
    layout.word = code | kUnsigned;
    layout.rate = header.rate;
    layout.offset = dataStart(header, file.size());
    layout.bytes = file.size() - layout.offset;
    layout.frames = header.frames;
    Wave* wave = importSamples(file, layout, kContext);
    if (!wave) return false;
    if (!header.name.empty()) wave->SetName(header.name);
    if (header.loopType <= kAlternating && header.loopEnd > header.loopStart)
        setLoop(*wave, header.loopStart, std::min<u64>(u64{header.loopEnd} + 1, wave->frames),
                static_cast<u16>(kLooped | (header.loopType == kAlternating ? kLoopBidirectional : 0)));
    return true;
}

} // namespace kv
