// The bytes as a coded stream: the first one picks the encoding, the next ones its parameters. A stream
// decodes alike at once and in pieces, to what its length says, and what was decoded can be encoded.
#include <algorithm>
#include <vector>

#include "formats/codecs/coded_stream.h"
#include "require.h"

namespace {

using namespace kv;
using fuzz::require;

constexpr u64 kMostFrames = 1 << 16;

CodedForm pick(ByteCursor& in) {
    const u32 kind = in.u8le() % 9, a = in.u8le(), b = in.u8le();
    const u32 word = in.u16le(), frames = in.u16le();
    switch (kind) {
        case 0:
            return imaForm({a % 4, b % 6, word, frames});
        case 1: {
            std::vector<MsCoefficients> pairs(a / 4 % 8);
            for (MsCoefficients& pair : pairs) pair = {in.s16le(), in.s16le()};
            return msForm(a % 4, word, frames, std::move(pairs));
        }
        case 2:
            return dialogicForm();
        case 3:
            return yamahaForm(a % 2 != 0);
        case 4:
            return rockwellForm(a % 6);
        case 5:
            return g726Form(a % 8, b % 2 != 0);
        case 6:
            return g722Form(a % 10, b % 2 != 0);
        case 7:
            return gsmForm(a % 2 != 0, word);
        default:
            return usrGsmForm();
    }
}

std::vector<i16> read(const std::shared_ptr<ByteSource>& source, u32 frames, const CodedForm& form,
                      std::size_t step) {
    const auto blocks = openCoded(source, 0, source->size(), frames, form);
    require(blocks != nullptr, "a form with a decoder opens");
    std::vector<i16> samples(std::size_t{form.channels} * frames);
    for (std::span<i16> left(samples); !left.empty();) {
        const std::span<i16> part = left.first(std::min(left.size(), step * form.channels));
        require(blocks->read(part), "what is there can be read");
        left = left.subspan(part.size());
    }
    return samples;
}

void encode(const std::vector<i16>& samples, CodedWriter writer) {
    Bytes out;
    writer.encode(std::span(samples).first(samples.size() / writer.channels * writer.channels), out);
    const u64 frames = samples.size() / writer.channels;
    require(out.size() >= writer.bytesFor(frames), "the bytes are as many as were announced");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteCursor in(std::as_bytes(std::span(data, size)));
    const CodedForm form = pick(in);
    if (!form.decode || !in.ok()) return 0;
    const ByteSpan rest = in.bytes(in.left());
    const auto source = std::make_shared<MemorySource>(rest);
    const u64 held = form.framesIn(rest.size());
    require(held <= (rest.size() + 1) * 16, "no form has more than 16 frames to a byte");
    const auto frames = static_cast<u32>(std::min(held + 3, kMostFrames));
    const std::vector<i16> whole = read(source, frames, form, frames);
    require(whole == read(source, frames, form, 77), "pieces are the same as the whole");

    const std::vector<i16> some(
        whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(whole.size(), 600)));
    const u32 channels = form.channels;
    encode(some, imaWriter({channels, 4, 256 * channels, 0xFFFFFFFF}));
    encode(some, msWriter(channels, 256 * channels));
    encode(some, dialogicWriter());
    encode(some, yamahaWriter(channels == 2));
    for (u32 bits = 2; bits <= 4; ++bits) encode(some, rockwellWriter(bits));
    for (u32 bits = 2; bits <= 5; ++bits) encode(some, g726Writer(bits, bits % 2 == 0));
    for (u32 bits = 6; bits <= 8; ++bits) encode(some, g722Writer(bits, bits % 2 == 0));
    encode(some, gsmWriter(some.size() % 2 == 0));
    encode(some, usrGsmWriter(0xB6));
    return 0;
}
