// The two forks of a Macintosh file where a file system has only one: MacBinary, AppleDouble, and what
// stands in a resource fork. Documents: "Inside Macintosh: More Macintosh Toolbox" (Apple, 1993), "MacBinary
// II" (1987), RFC 1740 (AppleSingle and AppleDouble).
#pragma once

#include <filesystem>
#include <optional>
#include <span>

#include "base/byte_source.h"

namespace kv {

inline constexpr std::size_t kMacBinaryBlock = 128; ///< of the header, and what both forks are filled up to

struct MacBinary {
    std::string name; ///< Mac Roman
    u64 dataStart = 0, dataBytes = 0;
    u64 resourceStart = 0, resourceBytes = 0;
};
/// None when the file doesn't begin with such a header.
std::optional<MacBinary> readMacBinary(ByteSource& source);
/// The header of a file of a type, by the same program: four characters each.
Bytes macBinaryHeader(std::string_view name, std::string_view type, std::string_view creator, u32 dataBytes,
                      u32 resourceBytes);

/// The resource fork that belongs to a file, wherever programs put it; empty when there is none.
Bytes findResourceFork(const std::filesystem::path& path);
/// Puts a resource fork beside a file, under the name that programs look for first ("._" ahead of the
/// file's): an AppleDouble file that tells type and creator, too, four characters each.
bool writeForkBeside(const std::filesystem::path& path, std::string_view type, std::string_view creator,
                     ByteSpan fork);
/// What of a file may be a resource fork: all of it, or the entry of an AppleDouble file.
Bytes resourceForkIn(ByteSource& source);

struct StringResource {
    i16 id;
    std::string name;
    std::string text;
};
/// The "STR " resources of a fork.
std::vector<StringResource> readStrings(ByteSpan fork);
/// A fork with these alone.
Bytes stringsFork(std::span<const StringResource> strings);

} // namespace kv
