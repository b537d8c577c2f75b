// A wave's samples as a stream of blocks in working form, whether they stand in memory or in a file. What
// is longer than memory is converted through these.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "base/byte_sink.h"
#include "base/file_context.h"
#include "model/wave.h"

namespace kv {

/// Interleaved samples, one block after the other. Comes in one of the two working forms and is converted
/// to the other where that is asked for.
class SampleBlocks {
public:
    virtual ~SampleBlocks() = default;

    u32 channels() const { return channels_; }
    u32 frames() const { return frames_; }
    /// The samples come as float, else as 16-bit integers.
    bool isFloat() const { return isFloat_; }

    /// Fills `to` with the next samples, whole frames and no more than are left. False with the error pair
    /// set on failure.
    bool read(std::span<i16> to);
    bool read(std::span<f32> to);

    /// Bytes in a file that are the samples in a stored form, from the first one on.
    struct StoredRun {
        ByteSource* source;
        u64 start;
        u64 bytes;
    };
    /// The samples as they are stored, if that is in the form of `word`: to be copied without decoding,
    /// which loses bits of what is longer than a float's fraction or coded by other rules than ours.
    virtual std::optional<StoredRun> storedAs(u32 /*word*/) const { return {}; }

protected:
    SampleBlocks(u32 channels, u32 frames, bool isFloat)
        : channels_(channels), frames_(frames), isFloat_(isFloat) {}
    /// Only the one of the form that comes is called.
    virtual bool readNative(std::span<i16>) { return false; }
    virtual bool readNative(std::span<f32>) { return false; }

private:
    u32 channels_;
    u32 frames_;
    bool isFloat_;
    std::vector<f32> floats_;
    std::vector<i16> integers_;
};

/// Uncompressed samples in a file, by data format word, channels and frames of the wave; the file stands
/// at the data.
extern const WaveReader genericReader;

/// Brings a whole wave in through a reader's blocks. The buffer of the other form is freed; `frames` is
/// lowered when the source holds fewer.
bool loadThroughBlocks(Wave& wave, FileContext& file);
/// The same for uncompressed samples, whatever the wave's reader is.
bool gen_ImpWave(Wave& wave, FileContext& file);

/// Opens a wave's samples for reading in blocks: from memory when they are there, in the form that is
/// preferred if both are; else from its file. The wave must outlive the blocks and not change. Null with
/// the error pair set on failure.
std::unique_ptr<SampleBlocks> openSamples(const Wave& wave, bool preferFloat);

/// Reads all frames, in steps between which the user may stop. False with the error pair set on failure: the
/// buffer is empty after a stop, else what came in stays and the rest is silence.
bool readAll(SampleBlocks& blocks, SampleBuffer<i16>& to);
bool readAll(SampleBlocks& blocks, SampleBuffer<f32>& to);

/// The word's samples can be written, and how: bytes per sample; 0 sets the error pair.
u32 writableSampleBytes(u32 formatWord);
/// Channels that a wave of 1 or 2 channels is written with; 0 sets the error pair.
u32 writableChannels(u32 waveChannels, u32 formatWord);
/// The samples of this word are encoded from float, else from 16-bit integers.
bool encodesFromFloat(u32 formatWord);

/// Writes samples in the form of the word.
bool writeSamples(SampleBlocks& blocks, u32 formatWord, ByteSink& sink);
/// Writes a wave's samples in the form of the word.
bool gen_ExpWave(ByteSink& sink, const Wave& wave, u32 formatWord);

} // namespace kv
