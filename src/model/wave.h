// A sampled waveform: where its samples are stored, how they come in, and what is known of them.
#pragma once

#include <filesystem>
#include <memory>

#include "base/file_context.h"
#include "model/item.h"
#include "model/sample_buffer.h"
#include "model/sample_params.h"

namespace kv {

class SampleBlocks;
class Wave;

/// Brings a wave's samples in, all at once or block by block. Named by the function that does it.
struct WaveReader {
    std::string_view name;
    /// Fills one of the wave's buffers from the file, which stands at the wave's `sourceOffset`. False
    /// with the error pair set on failure.
    bool (*load)(Wave& wave, FileContext& file);
    /// Opens the samples for reading in blocks; null in place of the function: only `load` can.
    std::unique_ptr<SampleBlocks> (*open)(const Wave& wave, FileContext& file) = nullptr;
};

/// A named place in a wave, or a named range when it has a length.
struct CuePoint {
    u32 position = 0; ///< frames
    u32 length = 0;   ///< frames
    Text<255> label;
    Text<1500> note;

    friend bool operator==(const CuePoint&, const CuePoint&) = default;
};

class Wave final : public Item {
public:
    static constexpr u32 kClass = kWaveClass;

    Wave(Store& store, ItemId request, const WaveReader* reader, std::string_view name = {},
         bool unique = true);
    /// A copy, without samples. With no new name the source's is taken as it stands.
    Wave(Store& store, const Wave& source, ItemId request, std::string_view newName = {});
    /// A copy of a part of the source with its samples in memory. A first frame beyond the end becomes the
    /// last one, a count of 0 means up to the end.
    Wave(Store& store, const Wave& source, ItemId request, std::string_view newName, u32 firstFrame,
         u32 frameCount);
    ~Wave() override;

    Text<128> artist, album, engineer, copyright;
    Text<1500> comments;
    u32 bits = 0; ///< per sample in the source; 0 until derived
    u32 channels = 1;
    u32 frames = 0;
    u32 sampleRate = 22050; ///< Hz
    SampleParams params;
    std::vector<CuePoint> cuePoints;  ///< besides the loop
    u32 preferredFormat = 0;          ///< data format code for saving; 0 until derived
    f32 compressedKbps = 0;           ///< bit rate when `preferredFormat` is "Compressed"
    std::filesystem::path sourceFile; ///< beginning with "<": no file; "<->": exists in memory only
    u64 sourceOffset = 0;             ///< where the data starts in `sourceFile`
    const WaveReader* reader = nullptr;
    i64 selStart = -1, selEnd = -1; ///< editor selection in frames; both -1: none
    bool reloadable = true;         ///< the memory copy equals what `reader` would bring in again
    SampleBuffer<i16> samples16;    ///< interleaved
    SampleBuffer<f32> samplesFloat; ///< interleaved, full scale -1..1

    void FixUp() override;
    bool LoadData() override;
    std::string Describe() const override;
    bool HasWave() const override { return true; }

    bool resident() const { return samples16 || samplesFloat; }
    u64 sampleCount() const { return u64{channels} * frames; }
    bool hasFile() const { return !sourceFile.empty() && sourceFile.native()[0] != '<'; }

private:
    void deriveFormats();
};

/// Source of a wave that exists in memory only.
inline constexpr std::string_view kMemoryOnly = "<->";

} // namespace kv
