#include "model/sample_blocks.h"

#include <algorithm>

#include "base/run_context.h"
#include "model/wave_data.h"
#include "samples/data_format.h"
#include "samples/kernels.h"
#include "samples/stored_form.h"

namespace kv {

// ---- Reading

bool SampleBlocks::read(std::span<i16> to) {
    if (!isFloat_) return readNative(to);
    floats_.resize(to.size());
    if (!readNative(std::span<f32>(floats_))) return false;
    floatToInt16(floats_, to);
    return true;
}

bool SampleBlocks::read(std::span<f32> to) {
    if (isFloat_) return readNative(to);
    integers_.resize(to.size());
    if (!readNative(std::span<i16>(integers_))) return false;
    int16ToFloat(integers_, to);
    return true;
}

namespace {

constexpr std::string_view kReadContext = "gen_ImpWave";
constexpr std::size_t kStoredBlockBytes = 65536; // stays in the cache until it is decoded

/// Samples that are in memory already.
template <class T>
class MemoryBlocks final : public SampleBlocks {
public:
    MemoryBlocks(u32 channels, u32 frames, std::span<const T> samples)
        : SampleBlocks(channels, frames, std::is_same_v<T, f32>), left_(samples) {}

protected:
    bool readNative(std::span<T> to) override {
        if (to.size() > left_.size()) return Fail("Wave data", "Could not lock wave data");
        std::copy_n(left_.begin(), to.size(), to.begin());
        left_ = left_.subspan(to.size());
        return true;
    }

private:
    std::span<const T> left_;
};

/// Samples in a file, decoded as they come.
class StoredBlocks final : public SampleBlocks {
public:
    StoredBlocks(const Wave& wave, std::shared_ptr<ByteSource> source, u64 start)
        : SampleBlocks(wave.channels, wave.frames, StoredForm(wave.dataFormat).isFloat()),
          form_(wave.dataFormat),
          decoder_(wave.dataFormat),
          source_(std::move(source)),
          at_(start) {}

    std::optional<StoredRun> storedAs(u32 word) const override {
        if (!form_.sameAs(StoredForm(word))) return {};
        return StoredRun{source_.get(), at_, form_.storedBytes(u64{channels()} * frames())};
    }

protected:
    bool readNative(std::span<i16> to) override { return readInto(to); }
    bool readNative(std::span<f32> to) override { return readInto(to); }

private:
    template <class T>
    bool readInto(std::span<T> to) {
        if (form_.isWorkingForm()) return readBytes(std::as_writable_bytes(to));
        const std::size_t step = kStoredBlockBytes * 8 / form_.storedBits();
        while (!to.empty()) {
            const std::span<T> part = to.first(std::min(step, to.size()));
            stored_.resize(static_cast<std::size_t>(form_.storedBytes(part.size())));
            if (!readBytes(stored_)) return false;
            decoder_.decode(stored_, part);
            to = to.subspan(part.size());
        }
        return true;
    }

    bool readBytes(std::span<std::byte> to) {
        if (source_->readAt(at_, to) != to.size()) return Fail(kReadContext, "Reading from file failed");
        at_ += to.size();
        return true;
    }

    StoredForm form_;
    SampleDecoder decoder_;
    std::shared_ptr<ByteSource> source_;
    u64 at_;
    Bytes stored_;
};

/// Samples of a form that only decodes as a whole, or that stand in two planes: kept in memory.
template <class T>
class WholeBlocks final : public SampleBlocks {
public:
    WholeBlocks(const Wave& wave, SampleBuffer<T> samples)
        : SampleBlocks(wave.channels, wave.frames, std::is_same_v<T, f32>),
          samples_(std::move(samples)),
          left_(samples_.span()) {}

protected:
    bool readNative(std::span<T> to) override {
        if (to.size() > left_.size()) return Fail(kReadContext, "Reading from file failed");
        std::copy_n(left_.begin(), to.size(), to.begin());
        left_ = left_.subspan(to.size());
        return true;
    }

private:
    SampleBuffer<T> samples_;
    std::span<const T> left_;
};

template <class T>
std::unique_ptr<SampleBlocks> openWhole(const Wave& wave, ByteSource& source, u64 start) {
    const StoredForm form(wave.dataFormat);
    const auto count = static_cast<std::size_t>(wave.sampleCount());
    SampleBuffer<T> samples;
    SampleBuffer<std::byte> stored;
    if (!samples.allocate(count) || !stored.allocate(static_cast<std::size_t>(form.storedBytes(count)))) {
        Fail(kReadContext, "Out of memory");
        return nullptr;
    }
    if (source.readAt(start, stored.span()) != stored.size()) {
        Fail(kReadContext, "Reading from file failed");
        return nullptr;
    }
    SampleDecoder(wave.dataFormat).decode(stored.span(), samples.span());
    if (form.sequential() && wave.channels == 2) {
        const std::vector<T> left(samples.span().begin(), samples.span().begin() + wave.frames);
        const std::span<T> all = samples.span();
        for (std::size_t i = 0; i < wave.frames; ++i) {
            const T right = all[wave.frames + i];
            all[2 * i] = left[i]; // never ahead of what is still to be read
            all[2 * i + 1] = right;
        }
    }
    return std::make_unique<WholeBlocks<T>>(wave, std::move(samples));
}

std::unique_ptr<SampleBlocks> openStored(const Wave& wave, FileContext& file) {
    const StoredForm form(wave.dataFormat);
    std::string_view refusal;
    if (wave.frames == 0)
        refusal = "Zero length";
    else if (wave.channels < 1)
        refusal = "No channels";
    else if (wave.channels > 2)
        refusal = "Too many channels";
    else if (form.storedBits() == 0)
        refusal = "Invalid format for generic import function!";
    // What the file can't hold is not worth any memory.
    else if (!file.source || file.position > file.size() ||
             form.storedBytes(wave.sampleCount()) > file.size() - file.position)
        refusal = "Reading from file failed";
    if (!refusal.empty()) {
        Fail(kReadContext, refusal);
        return nullptr;
    }
    const bool planes = form.sequential() && wave.channels == 2;
    if (form.decodesInPieces() && !planes)
        return std::make_unique<StoredBlocks>(wave, file.source, file.position);
    return form.isFloat() ? openWhole<f32>(wave, *file.source, file.position)
                          : openWhole<i16>(wave, *file.source, file.position);
}

template <class T>
bool readAllBlocks(SampleBlocks& blocks, SampleBuffer<T>& buffer) {
    constexpr std::size_t kStep = 1 << 20;
    const u64 count = u64{blocks.channels()} * blocks.frames();
    if (!buffer.allocate(static_cast<std::size_t>(count))) return Fail(kReadContext, "Out of memory");
    for (std::span<T> left = buffer.span(); !left.empty();) {
        if (CancelRequested()) {
            buffer.reset();
            return Fail(kReadContext, "Cancelled");
        }
        const std::span<T> part = left.first(std::min(kStep, left.size()));
        if (!blocks.read(part)) {
            std::fill(left.begin(), left.end(), T{0}); // what came in stays, the rest is silence
            return false;
        }
        left = left.subspan(part.size());
    }
    return true;
}

bool loadBlocks(Wave& wave, std::unique_ptr<SampleBlocks> blocks) {
    if (!blocks) return false;
    wave.frames = blocks->frames();
    wave.samples16.reset();
    wave.samplesFloat.reset();
    return blocks->isFloat() ? readAll(*blocks, wave.samplesFloat) : readAll(*blocks, wave.samples16);
}

} // namespace

bool readAll(SampleBlocks& blocks, SampleBuffer<i16>& to) {
    return readAllBlocks(blocks, to);
}
bool readAll(SampleBlocks& blocks, SampleBuffer<f32>& to) {
    return readAllBlocks(blocks, to);
}

const WaveReader genericReader{"gen_ImpWave", gen_ImpWave, openStored};

bool gen_ImpWave(Wave& wave, FileContext& file) {
    return loadBlocks(wave, openStored(wave, file));
}

bool loadThroughBlocks(Wave& wave, FileContext& file) {
    return loadBlocks(wave, wave.reader->open(wave, file));
}

std::unique_ptr<SampleBlocks> openSamples(const Wave& wave, bool preferFloat) {
    if (wave.samplesFloat && (preferFloat || !wave.samples16)) {
        return std::make_unique<MemoryBlocks<f32>>(wave.channels, wave.frames, wave.samplesFloat.span());
    }
    if (wave.samples16) {
        return std::make_unique<MemoryBlocks<i16>>(wave.channels, wave.frames, wave.samples16.span());
    }
    if (wave.frames == 0)
        return std::make_unique<MemoryBlocks<i16>>(wave.channels, 0, std::span<const i16>());
    if (wave.reader && wave.reader->open) {
        FileContext file;
        file.path = wave.sourceFile;
        file.source = openFileSource(wave.sourceFile);
        file.position = wave.sourceOffset;
        if (file.source || !wave.hasFile()) return wave.reader->open(wave, file);
    }
    Fail("Read wave-data from disk", "Could not open file");
    return nullptr;
}

// ---- Writing

namespace {

constexpr std::string_view kWriteContext = "gen_ExpWave";
constexpr std::size_t kBlockFrames = 16384;  // what passes through the cache at once
constexpr std::size_t kWriteBytes = 1 << 20; // few large writes cost the system less than many small ones

/// Reads blocks in the form that an encoder takes, in the channels that are written.
template <class T>
class ChannelAdapter {
public:
    ChannelAdapter(SampleBlocks& blocks, u32 channels) : blocks_(blocks), channels_(channels) {}

    /// The next frames, or nothing on failure. `direct` is where they go in the end, if they can stand there
    /// as they are.
    std::span<const T> next(std::size_t frames, std::span<T> direct) {
        source_.resize(direct.empty() ? frames * blocks_.channels() : 0);
        const std::span<T> target = direct.empty() ? std::span<T>(source_) : direct;
        if (!blocks_.read(target)) return {};
        if (channels_ == blocks_.channels()) return target;
        adapted_.resize(frames * channels_);
        if (channels_ == 2)
            monoToStereo(source_, adapted_);
        else
            stereoToMono(source_, adapted_);
        return adapted_;
    }
    bool changes() const { return channels_ != blocks_.channels(); }

private:
    SampleBlocks& blocks_;
    u32 channels_;
    std::vector<T> source_, adapted_;
};

/// Puts interleaved stereo into two planes: all left samples, then all right ones.
Bytes splitPlanes(ByteSpan interleaved, std::size_t sampleBytes) {
    Bytes planes(interleaved.size());
    const std::size_t frames = interleaved.size() / (2 * sampleBytes);
    for (std::size_t i = 0; i < frames; ++i) {
        const std::byte* at = interleaved.data() + 2 * i * sampleBytes;
        std::copy_n(at, sampleBytes, planes.data() + i * sampleBytes);
        std::copy_n(at + sampleBytes, sampleBytes, planes.data() + (frames + i) * sampleBytes);
    }
    return planes;
}

/// Copies stored samples; the bytes of each turned around if a size other than 0 is given.
bool copyRun(const SampleBlocks::StoredRun& run, std::size_t swappedBytes, ByteSink& sink) {
    SampleBuffer<std::byte> buffer;
    const std::size_t step = swappedBytes == 0 ? kWriteBytes : kWriteBytes / swappedBytes * swappedBytes;
    const auto size = static_cast<std::size_t>(std::min<u64>(step, run.bytes));
    if (!buffer.allocate(size)) return Fail(kWriteContext, "Out of memory");
    for (u64 done = 0; done < run.bytes;) {
        if (CancelRequested()) return Fail(kWriteContext, "Cancelled");
        const std::span<std::byte> part =
            buffer.span().first(static_cast<std::size_t>(std::min<u64>(size, run.bytes - done)));
        if (run.source->readAt(run.start + done, part) != part.size()) {
            return Fail(kReadContext, "Reading from file failed");
        }
        if (swappedBytes != 0) ByteSwap(part, swappedBytes);
        if (!sink.write(part)) return Fail(kWriteContext, "Writing to file failed");
        done += part.size();
        ShowProgress(done, run.bytes);
    }
    ShowProgress(0, 0);
    return true;
}

template <class T>
bool writeEncoded(SampleBlocks& blocks, u32 word, u32 channels, ByteSink& sink) {
    const StoredForm form(word);
    const std::size_t frameBytes = std::size_t{form.writtenBytes()} * channels;
    const bool planes = form.sequential() && channels == 2;
    // Planes are split at the end, so all of them must be at hand.
    const u64 gathered =
        planes ? u64{blocks.frames()} : std::max<u64>(kWriteBytes / frameBytes, kBlockFrames);
    ChannelAdapter<T> adapter(blocks, channels);
    SampleEncoder encoder(word);
    const bool sameForm =
        form.isWorkingForm() && form.isFloat() == std::is_same_v<T, f32> && !adapter.changes();
    SampleBuffer<std::byte> buffer;
    if (!buffer.allocate(static_cast<std::size_t>(std::min<u64>(gathered, blocks.frames())) * frameBytes)) {
        return Fail(kWriteContext, "Out of memory");
    }
    std::size_t filled = 0;
    for (u32 done = 0; done < blocks.frames();) {
        if (CancelRequested()) return Fail(kWriteContext, "Cancelled");
        const std::size_t room = (buffer.size() - filled) / frameBytes;
        const std::size_t frames = std::min({kBlockFrames, room, std::size_t{blocks.frames() - done}});
        const std::span<std::byte> encoded = buffer.span().subspan(filled, frames * frameBytes);
        std::span<T> direct;
        if (sameForm) direct = {reinterpret_cast<T*>(encoded.data()), frames * channels};
        const std::span<const T> samples = adapter.next(frames, direct);
        if (samples.empty()) return false;
        if (!sameForm) encoder.encode(samples, encoded);
        filled += frames * frameBytes;
        done += static_cast<u32>(frames);
        if (filled + frameBytes <= buffer.size() && done < blocks.frames()) continue;
        const ByteSpan ready = buffer.span().first(filled);
        const bool written = planes ? sink.write(splitPlanes(ready, form.writtenBytes())) : sink.write(ready);
        if (!written) return Fail(kWriteContext, planes ? "File Write Error" : "Writing to file failed");
        filled = 0;
        ShowProgress(done, blocks.frames());
    }
    ShowProgress(0, 0);
    return true;
}

} // namespace

u32 writableSampleBytes(u32 formatWord) {
    const u32 bytes = StoredForm(formatWord).writtenBytes();
    if (bytes == 0) Fail(kWriteContext, "Invalid data format");
    return bytes;
}

u32 writableChannels(u32 waveChannels, u32 formatWord) {
    if (waveChannels == 1) return (formatWord & kMonoBit) != 0 ? 1 : 2;
    if (waveChannels == 2) return (formatWord & kStereoBit) != 0 ? 2 : 1;
    Fail(kWriteContext, "Invalid channel count");
    return 0;
}

bool encodesFromFloat(u32 formatWord) {
    return StoredForm(formatWord).encodesFromFloat();
}

bool writeSamples(SampleBlocks& blocks, u32 formatWord, ByteSink& sink) {
    if (writableSampleBytes(formatWord) == 0) return false;
    const u32 channels = writableChannels(blocks.channels(), formatWord);
    if (channels == 0) return false;
    if (channels == blocks.channels()) {
        if (const auto run = blocks.storedAs(formatWord)) return copyRun(*run, 0, sink);
        // Samples in the other byte order need no decoding either, which could cost long ones their low bits.
        const StoredForm form(formatWord);
        const bool whole = form.writtenBytes() > 1 && form.writtenBytes() * 8 == form.storedBits();
        const auto swapped = whole ? blocks.storedAs(formatWord ^ kByteswap) : std::nullopt;
        if (swapped) return copyRun(*swapped, form.writtenBytes(), sink);
    }
    // Mixing two channels down rounds in 16 bits, so what is to be mixed as float must be float by then.
    const bool mixes = channels < blocks.channels();
    const bool straight = !blocks.isFloat() && !mixes && StoredForm(formatWord).encodesFromEither();
    return encodesFromFloat(formatWord) && !straight ? writeEncoded<f32>(blocks, formatWord, channels, sink)
                                                     : writeEncoded<i16>(blocks, formatWord, channels, sink);
}

bool gen_ExpWave(ByteSink& sink, const Wave& wave, u32 formatWord) {
    const std::unique_ptr<SampleBlocks> blocks = openSamples(wave, encodesFromFloat(formatWord));
    return blocks && writeSamples(*blocks, formatWord, sink);
}

} // namespace kv
