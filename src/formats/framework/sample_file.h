// What the readers and writers of files with one wave of plain samples have in common.
#pragma once

#include <memory>

#include "base/file_context.h"
#include "model/sample_blocks.h"

namespace kv {

class Item;
class Wave;

/// Where plain samples stand in a file, and how.
struct SampleLayout {
    u32 word = 0;     ///< data format code and flags; big-endian samples have `kByteswap`
    u32 channels = 1; ///< interleaved in the file, any number above 0
    u32 rate = 22050; ///< Hz
    u64 offset = 0;   ///< of the first sample; what lies beyond the file's end is cut off
    u64 bytes = 0;    ///< of samples
    u64 frames = 0;   ///< as the file states; 0: as many as the bytes hold, and never more
};

/// Makes a wave of such samples: the first two channels of many. Null with the error pair set, under
/// `context`, for a layout without channels or rate, or a code without a size.
Wave* importSamples(FileContext& file, const SampleLayout& layout, std::string_view context);

/// A wave about to be written as plain or coded samples.
struct SampleExport {
    const Wave* wave = nullptr;
    std::unique_ptr<SampleBlocks> blocks; ///< null: it can't be written, and the error pair is set
    u32 word = 0;                         ///< data format code, and the bit of the channels
    u32 channels = 0;                     ///< that are written
    u32 sampleBytes = 0;                  ///< of one sample; 0 for coded samples

    explicit operator bool() const { return blocks != nullptr; }
    u64 dataBytes() const { return u64{blocks->frames()} * channels * sampleBytes; }
};

/// Opens the wave that an export function got. With `perWave` a word without a code takes the wave's own.
SampleExport openExport(std::string_view context, Item& item, u32 formatWord, bool perWave);

} // namespace kv
