// The first four bytes are a data format word, the rest samples: decoding in pieces gives what decoding
// at once gives, and what is encoded decodes to the same again.
#include <algorithm>
#include <vector>

#include "require.h"
#include "samples/stored_form.h"

namespace {

using namespace kv;
using fuzz::require;

template <class T>
std::vector<T> decoded(u32 word, ByteSpan bytes, std::size_t count, std::size_t step) {
    SampleDecoder decoder(word);
    std::vector<T> samples(count);
    const std::size_t sampleBytes = StoredForm(word).storedBits() / 8;
    for (std::size_t at = 0; at < count; at += step) {
        const std::size_t n = std::min(step, count - at);
        const ByteSpan part = step >= count ? bytes : bytes.subspan(at * sampleBytes, n * sampleBytes);
        decoder.decode(part, std::span(samples).subspan(at, n));
    }
    return samples;
}

template <class T>
void check(u32 word, ByteSpan bytes) {
    const StoredForm form(word);
    const std::size_t count = bytes.size() * 8 / form.storedBits();
    if (count == 0) return;
    const std::vector<T> whole = decoded<T>(word, bytes, count, count);
    const auto same = [](const std::vector<T>& a, const std::vector<T>& b) {
        return std::ranges::equal(std::as_bytes(std::span(a)), std::as_bytes(std::span(b)));
    };
    if (form.decodesInPieces())
        require(same(whole, decoded<T>(word, bytes, count, 1 + count / 7)), "pieces equal the whole");
    if (form.writtenBytes() == 0 || form.padded() || form.encodesFromFloat() != form.isFloat()) return;
    Bytes once(count * form.writtenBytes()), twice(once.size());
    SampleEncoder(word).encode(std::span<const T>(whole), once);
    const std::vector<T> back = decoded<T>(word, once, count, count);
    SampleEncoder(word).encode(std::span<const T>(back), twice);
    if (form.code() == kDeltaPcm16 && form.isUnsigned()) return; // read as unsigned, never written so
    // The law encoders depart from the standard and don't settle; all others do.
    const bool law = (form.code() & (kMuLaw | kALaw | kRevMuLaw | kRevALaw)) != 0;
    require(law || form.code() == kFloat64 || once == twice, "encoding settles");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteCursor in(std::as_bytes(std::span(data, size)));
    const u32 word = in.u32le();
    const ByteSpan bytes = in.bytes(in.left());
    if (!in.ok() || StoredForm(word).storedBits() == 0) return 0;
    if (StoredForm(word).isFloat())
        check<f32>(word, bytes);
    else
        check<i16>(word, bytes);
    return 0;
}
