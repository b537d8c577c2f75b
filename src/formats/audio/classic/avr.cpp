// Audio Visual Research samples of the Atari ST. Document: appendix of the "Stereo Master" manual (2-Bit
// Systems, 1991). All fields are big-endian.
#include "base/run_context.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/classic/classic_kit.h"
#include "formats/framework/sample_file.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "avr_Imp";
constexpr std::size_t kHeaderBytes = 128;
constexpr std::size_t kNameBytes = 8;

u32 wordOf(u32 bits, bool isSigned) {
    return (bits <= 8 ? kPcm8 : kPcm16 | kByteswap) | (isSigned ? 0 : kUnsigned);
}

} // namespace

bool avr_Imp(Collection&, FileContext& file, u32) {
    const Bytes head = headOf(file, kHeaderBytes);
    ByteCursor in(head);
    const std::string_view magic = textOf(in.bytes(4));
    const ByteSpan name = in.bytes(kNameBytes);
    const bool stereo = in.u16be() != 0;
    const u32 bits = in.u16be();
    const bool isSigned = in.u16be() != 0;
    const bool looped = in.u16be() != 0;
    const u32 key = in.u16be();
    const u32 rate = in.u32be() & 0xFFFFFF; // the top byte is the replay program's own number for it
    const u32 frames = in.u32be();
    const u32 loopStart = in.u32be();
    const u32 loopEnd = in.u32be();
    in.skip(6);
    const ByteSpan nameRest = in.bytes(20);
    const ByteSpan user = in.bytes(64);
    if (!in.ok() || magic != "2BIT") return Fail(kContext, "Not an AVR file");
    if (bits == 0 || bits > 16) return Fail(kContext, "Unsupported subformat");

    SampleLayout layout;
    layout.word = wordOf(bits, isSigned);
    layout.channels = stereo ? 2 : 1;
    layout.rate = rate;
    layout.offset = kHeaderBytes;
    layout.bytes = file.size() - kHeaderBytes;
    layout.frames = frames;
    Wave* wave = importSamples(file, layout, kContext);
    if (!wave) return false;
    const bool fullName = name.back() != std::byte{0};
    wave->SetName(fieldText(name) + (fullName ? fieldText(nameRest) : std::string()));
    wave->comments = fieldText(user);
    if (looped) setLoop(*wave, loopStart, loopEnd, kLooped);
    if (key >> 8 == 0xFF) setRootKey(*wave, key & 0xFF); // else it is a range of keys
    return true;
}

} // namespace kv
