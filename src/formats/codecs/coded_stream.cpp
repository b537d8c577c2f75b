#include "formats/codecs/coded_stream.h"

#include <algorithm>

#include "base/run_context.h"
#include "samples/kernels.h"

namespace kv {
namespace {

constexpr std::string_view kReadContext = "Coded samples";
constexpr std::string_view kWriteContext = "Coded samples";
// What passes through the cache at once.
constexpr std::size_t kPieceFrames = 16384;
constexpr std::size_t kPieceBytes = 65536;

/// Units that are worked on at once.
std::size_t unitsAtOnce(std::size_t unitFrames, std::size_t unitBytes) {
    return std::max<std::size_t>(1, std::min(kPieceFrames / unitFrames, kPieceBytes / unitBytes));
}

class CodedBlocks final : public SampleBlocks {
public:
    CodedBlocks(std::shared_ptr<ByteSource> source, u64 start, u64 end, u32 frames, CodedForm form)
        : SampleBlocks(form.channels, frames, false),
          source_(std::move(source)),
          at_(start),
          end_(end),
          form_(std::move(form)),
          pieceBytes_(unitsAtOnce(form_.unitFrames, form_.unitBytes) * form_.unitBytes) {}

protected:
    bool readNative(std::span<i16> to) override {
        while (!to.empty()) {
            if (ready_.empty() && !fetch(to)) return false;
            const std::size_t count = std::min(ready_.size(), to.size());
            if (ready_.data() != to.data()) std::copy_n(ready_.begin(), count, to.begin());
            ready_ = ready_.subspan(count);
            to = to.subspan(count);
        }
        return true;
    }

private:
    /// Decodes the next piece, straight to where it is wanted if that has room for it.
    bool fetch(std::span<i16> wanted) {
        const auto bytes = static_cast<std::size_t>(std::min<u64>(pieceBytes_, end_ - at_));
        const auto samples = static_cast<std::size_t>(form_.framesIn(bytes)) * channels();
        if (samples == 0) {
            std::fill(wanted.begin(), wanted.end(), i16{0});
            ready_ = wanted;
            return true;
        }
        coded_.resize(bytes);
        if (source_->readAt(at_, coded_) != bytes) return Fail(kReadContext, "Reading from file failed");
        at_ += bytes;
        if (samples > wanted.size() && samples_.size() < samples) samples_.resize(samples);
        const std::span<i16> target =
            (samples <= wanted.size() ? wanted : std::span(samples_)).first(samples);
        const std::size_t got = form_.decode(coded_, target) * channels();
        if (got < samples) at_ = end_;
        std::fill(target.begin() + static_cast<std::ptrdiff_t>(got), target.end(), i16{0});
        ready_ = target;
        return true;
    }

    std::shared_ptr<ByteSource> source_;
    u64 at_, end_;
    CodedForm form_;
    std::size_t pieceBytes_;
    Bytes coded_;
    std::vector<i16> samples_;
    std::span<const i16> ready_; ///< decoded and not fetched yet
};

} // namespace

u64 CodedForm::framesIn(u64 bytes) const {
    const auto rest = static_cast<std::size_t>(bytes % unitBytes);
    return bytes / unitBytes * unitFrames + (rest > 0 && partFrames ? partFrames(rest) : 0);
}

std::unique_ptr<SampleBlocks> openCoded(std::shared_ptr<ByteSource> source, u64 start, u64 end, u32 frames,
                                        CodedForm form) {
    if (!source || !form.decode || form.unitBytes == 0 || form.unitFrames == 0) {
        Fail(kReadContext, "Reading from file failed");
        return nullptr;
    }
    end = std::min(end, source->size());
    return std::make_unique<CodedBlocks>(std::move(source), std::min(start, end), end, frames,
                                         std::move(form));
}

// ---- Writing

u64 CodedWriter::bytesFor(u64 frames) const {
    if (wholeUnits) return ceilDiv(frames, unitFrames) * unitBytes;
    return frames / unitFrames * unitBytes + ceilDiv(frames % unitFrames * unitBytes, unitFrames);
}

bool writeCoded(SampleBlocks& blocks, const CodedWriter& writer, ByteSink& sink) {
    const u32 channels = blocks.channels();
    const bool mixes = channels == 2 && writer.channels == 1;
    if (channels != writer.channels && !mixes) return Fail(kWriteContext, "Invalid channel count");
    const std::size_t step = unitsAtOnce(writer.unitFrames, writer.unitBytes) * writer.unitFrames;
    std::vector<i16> samples, mixed;
    Bytes coded;
    for (u32 done = 0; done < blocks.frames();) {
        if (CancelRequested()) return Fail(kWriteContext, "Cancelled");
        const std::size_t frames = std::min<std::size_t>(step, blocks.frames() - done);
        samples.resize(frames * channels);
        if (!blocks.read(std::span(samples))) return false;
        mixed.resize(mixes ? frames : 0);
        if (mixes) stereoToMono(samples, mixed);
        coded.clear();
        writer.encode(mixes ? mixed : samples, coded);
        if (!sink.write(coded)) return Fail(kWriteContext, "Writing to file failed");
        done += static_cast<u32>(frames);
        ShowProgress(done, blocks.frames());
    }
    ShowProgress(0, 0);
    return true;
}

} // namespace kv
