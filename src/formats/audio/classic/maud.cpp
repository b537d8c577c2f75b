// FORM MAUD, of the Toccata sound card (MacroSystem, 1993): IFF with interleaved samples.
#include "base/run_context.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/classic/classic_kit.h"
#include "formats/framework/chunks.h"
#include "formats/framework/sample_file.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "maud_Imp";
constexpr std::size_t kHeaderBytes = 20, kTextBytes = 4096;

struct Coding {
    u16 compression, bits;
    u32 word;
};
constexpr Coding kCodings[] = {
    {0, 8, kPcm8 | kUnsigned}, {0, 16, kPcm16 | kByteswap}, {2, 8, kALaw}, {3, 8, kMuLaw}};

/// The MHDR chunk.
bool readHeader(ByteSpan bytes, SampleLayout& layout) {
    ByteCursor in(bytes);
    const u32 samples = in.u32be(); // of all channels
    const u16 bits = in.u16be();
    in.skip(2); // bits when decompressed
    const u32 rate = in.u32be();
    const u16 divisor = in.u16be();
    in.skip(2); // kind of channels
    layout.channels = in.u16be();
    const u16 compression = in.u16be();
    if (!in.ok()) return Fail(kContext, "Couldn't find MHDR chunk!");
    if (layout.channels == 0) return Fail(kContext, "No channels");
    layout.rate = divisor == 0 ? rate : static_cast<u32>((u64{rate} + divisor / 2) / divisor);
    layout.frames = samples / layout.channels;
    for (const Coding& coding : kCodings) {
        if (coding.compression == compression && coding.bits == bits) layout.word = coding.word;
    }
    return layout.word != 0 || Fail(kContext, "Unsupported subformat");
}

} // namespace

bool maud_Imp(Collection&, FileContext& file, u32) {
    const Bytes head = headOf(file, 12);
    if (!textOf(head).starts_with("FORM") || !textOf(head).ends_with("MAUD"))
        return Fail(kContext, "Not a MAUD file");
    SampleLayout layout;
    std::string comments, name, author;
    ChunkWalker walker(*file.source, head.size(), file.size(), std::endian::big, ChunkPadding::Doubtful);
    for (Chunk chunk; walker.next(chunk);) {
        const auto text = [&] { return fieldText(readContents(*file.source, chunk, kTextBytes)); };
        if (chunk.id == fourcc("MHDR")) {
            if (!readHeader(readContents(*file.source, chunk, kHeaderBytes), layout)) return false;
        } else if (chunk.id == fourcc("MDAT") && layout.offset == 0) {
            layout.offset = chunk.start;
            layout.bytes = chunk.size;
        } else if (chunk.id == fourcc("ANNO")) {
            comments = text();
        } else if (chunk.id == fourcc("NAME")) {
            name = text();
        } else if (chunk.id == fourcc("AUTH")) {
            author = text();
        }
    }
    if (layout.word == 0) return Fail(kContext, "Couldn't find MHDR chunk!");
    if (layout.offset == 0) return Fail(kContext, "Couldn't find MDAT chunk!");
    Wave* wave = importSamples(file, layout, kContext);
    if (!wave) return false;
    if (!name.empty()) wave->SetName(name);
    wave->comments = comments;
    wave->artist = author;
    return true;
}

} // namespace kv
