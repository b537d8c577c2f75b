// Any bytes as text of any encoding: the result is valid UTF-8 and stays so on the way through UTF-16.
#include "base/text.h"

#include "require.h"
#include "samples/text_codec.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kv;
    const ByteSpan bytes = std::as_bytes(std::span(data, size));
    const std::string text = textFromBytes(bytes);
    const std::string_view cut = cutToCharacters(text, size / 2);
    fuzz::require(cut.size() <= text.size(), "cutting never adds");
    fuzz::require(AnsiToUtf8(textOf(bytes)).size() >= size, "each byte is a character");
    const std::string once = WideToUtf8(Utf8ToWide(text));
    fuzz::require(WideToUtf8(Utf8ToWide(once)) == once, "the way through UTF-16 settles");
    fuzz::require(Utf8ToAnsi(text).size() <= text.size(), "a character is one byte at most");
    (void)FileExtension(text);
    return 0;
}
