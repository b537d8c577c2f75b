// One row of the format table: what a format is called, what it holds, and the functions that detect,
// read and write it.
#pragma once

#include <string>
#include <string_view>

#include "base/bytes.h"

namespace kv {

class Collection;
class Item;
struct FileContext;

/// Reads a file into the store. The collection exists and is empty, with `sourceFormat` set; samples stay
/// in the file. False with the error pair set on failure; the driver removes what was made.
using ImportFn = bool (*)(Collection& collection, FileContext& file, u32 subType);

/// Writes one item to an empty file. `formatWord` is a data format word with at most one code set,
/// `bitRate` is in kbit/s for a row with options and 0 else. False with the error pair set on failure.
using ExportFn = bool (*)(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave,
                          f32 bitRate);

/// Scores the first bytes of a file (at most 32 KB, possibly none): 0 not this format, 2 can't be told
/// apart, 4 a weak signature, 6 the signature matches; 1 and 3 for doubtful cases. Reads only `start`.
using DetectFn = int (*)(ByteSpan start, u32 subType, u64 fileSize);

/// The index-th bit rate that a compressed writer offers, in kbit/s, with its label; 0 ends the list.
using OptionsFn = f32 (*)(int index, u32 subType, std::string* label);

/// What a row is for, whether or not its functions are built yet.
enum class RowUse : u8 { Read = 1, Write = 2, ReadWrite = 3 };

struct FormatRow {
    std::string_view extension;   ///< lower case, without the point; "?" is any one character
    std::string_view description; ///< the format's name
    RowUse use = RowUse::Read;
    u32 typeFlags = 0; ///< class bits of the items that the format holds
    u32 dataMask = 0;  ///< data formats and channel counts that the writer accepts; 0 for a read-only row
    u32 subType = 0;   ///< passed to the functions; its meaning is the format's own
    DetectFn detectFn = nullptr;
    ImportFn importFn = nullptr; ///< none: the row doesn't read, or its reader isn't built
    ExportFn exportFn = nullptr; ///< none: the row doesn't write, or its writer isn't built
    bool streams = false; ///< the writer takes samples block by block and needn't patch: works on a pipe
    OptionsFn optionsFn = nullptr;
    bool perWaveFormats = false; ///< every wave is stored in that wave's own preferred format
    bool writesBeside = false;   ///< the writer puts samples into files of their own beside its own

    constexpr bool reads() const { return (static_cast<u8>(use) & 1) != 0; }
    constexpr bool writes() const { return (static_cast<u8>(use) & 2) != 0; }
};

/// For files without any signature.
inline int detectAlways2(ByteSpan, u32, u64) {
    return 2;
}

} // namespace kv
