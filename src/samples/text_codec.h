// Text as files store it: Windows-1252, UTF-16 and UTF-8. All text inside the program is UTF-8.
#pragma once

#include <string>
#include <string_view>

#include "base/bytes.h"

namespace kv {

/// Windows-1252 to UTF-16 and UTF-8.
std::u16string AnsiToWide(std::string_view text);
std::string AnsiToUtf8(std::string_view text);
/// To Windows-1252 by best fit: accents are dropped, typographic quotes become plain ones, "?" for the rest.
std::string WideToAnsi(std::u16string_view text);
std::string Utf8ToAnsi(std::string_view text);
std::u16string Utf8ToWide(std::string_view text);
/// A lone surrogate at the end ends the text.
std::string WideToUtf8(std::u16string_view text);

bool isUtf8(std::string_view text);

/// Stored text of unknown encoding as UTF-8, up to its terminator: UTF-16 behind a byte order mark, UTF-8
/// where it is valid, else Windows-1252.
std::string textFromBytes(ByteSpan bytes);

/// The part of a path behind the last "/", "\\" or ":".
std::string_view FileNamePart(std::string_view path);
/// Place of the last "." of the name part, or the end. A "." that ends the path behind another doesn't count.
std::size_t FileExtension(std::string_view path);

/// The number in a text: skips to the first digit, where a "-" or "+" on the way decides the sign, and
/// stops at the next non-digit; `fallback` without any digit. Limited to the range of the type.
i32 WideToInt(std::string_view text, i32 fallback);

} // namespace kv
