#include <algorithm>
#include <array>
#include <cstring>

#include "base/run_context.h"
#include "formats/audio/various/various_files.h"
#include "formats/framework/sample_file.h"
#include "model/wave.h"
#include "samples/data_format.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

/// A number in a header; 0 bytes: none there.
struct Field {
    std::size_t at = 0, bytes = 0;
    std::endian order = std::endian::little;

    u32 read(ByteSpan header) const {
        if (bytes == 0 || at + bytes > header.size()) return 0;
        ByteCursor in(header.subspan(at, bytes));
        return bytes == 2 ? in.integer<u16>(order) : in.integer<u32>(order);
    }
};

struct LayoutRow {
    std::string_view context;
    std::string_view magic;
    u32 word, channels, rateHz; ///< the rate where the header has none
    std::size_t headerBytes;
    Field rate, frames;
    std::size_t commentAt; ///< up to the end of the header; 0: none
};
constexpr LayoutRow kLayouts[] = {
    {"psion_Imp", "ALawSoundFile**", kALaw, 1, 8000, 32, {}, {18, 4, std::endian::big}, 0},
    {"sndr_Imp", {}, kPcm8 | kUnsigned, 1, 11025, 8, {2, 2}, {}, 0},
    {"sndt_Imp", "SOUND\x1A", kPcm8 | kUnsigned, 1, 11025, 124, {20, 2}, {8, 4}, 28},
    {"cdr_Imp", {}, kPcm16 | kByteswap, 2, 44100, 0, {}, {}, 0},
};

// Linear samples of 24 bits on a DVD come two frames at a time: the upper words of all, then the low bytes
// of all (DVD-Video, LPCM audio).
constexpr std::size_t kGroupSamples = 4;
constexpr std::size_t kGroupBytes = 3 * kGroupSamples;

/// Such groups as plain samples of three bytes, most significant first.
class RegroupedSource final : public ByteSource {
public:
    explicit RegroupedSource(std::shared_ptr<ByteSource> groups) : groups_(std::move(groups)) {}
    u64 size() const override { return groups_->size() / kGroupBytes * kGroupBytes; }

    std::size_t readAt(u64 offset, std::span<std::byte> to) override {
        if (offset >= size()) return 0;
        to = to.first(static_cast<std::size_t>(std::min<u64>(to.size(), size() - offset)));
        std::size_t done = 0;
        while (done < to.size()) {
            const u64 group = (offset + done) / kGroupBytes;
            const auto within = static_cast<std::size_t>((offset + done) % kGroupBytes);
            const std::size_t wanted =
                std::min(kMostGroups, (within + to.size() - done + kGroupBytes - 1) / kGroupBytes);
            block_.resize(wanted * kGroupBytes);
            const std::size_t got = groups_->readAt(group * kGroupBytes, block_) / kGroupBytes;
            if (got == 0) break;
            for (std::size_t i = 0; i < got; ++i)
                regroup(std::span(block_).subspan(i * kGroupBytes).first<kGroupBytes>());
            const std::size_t count = std::min(got * kGroupBytes - within, to.size() - done);
            std::memcpy(to.data() + done, block_.data() + within, count);
            done += count;
        }
        return done;
    }

private:
    static constexpr std::size_t kMostGroups = 4096;

    static void regroup(std::span<std::byte, kGroupBytes> group) {
        std::array<std::byte, kGroupBytes> samples{};
        for (std::size_t i = 0; i < kGroupSamples; ++i) {
            samples[3 * i] = group[2 * i];
            samples[3 * i + 1] = group[2 * i + 1];
            samples[3 * i + 2] = group[2 * kGroupSamples + i];
        }
        std::copy(samples.begin(), samples.end(), group.begin());
    }

    std::shared_ptr<ByteSource> groups_;
    Bytes block_;
};

std::unique_ptr<SampleBlocks> openDvd24(const Wave& wave, FileContext& file) {
    if (!file.source) {
        Fail("dvd_ImpWave", "Reading from file failed");
        return nullptr;
    }
    FileContext plain = file;
    plain.source = std::make_shared<RegroupedSource>(file.source);
    return genericReader.open(wave, plain);
}

const WaveReader dvd24Reader{"dvd_ImpWave", loadThroughBlocks, openDvd24};

} // namespace

bool importFixed(FileContext& file, FixedLayout layout) {
    const LayoutRow& row = kLayouts[static_cast<std::size_t>(layout)];
    Bytes header(row.headerBytes);
    if (file.source->readAt(0, header) != header.size() || !textOf(header).starts_with(row.magic))
        return Fail(row.context, "The file has no header of this format");
    const u32 rate = row.rate.read(header);
    SampleLayout samples;
    samples.word = row.word;
    samples.channels = row.channels;
    samples.rate = rate == 0 ? row.rateHz : rate;
    samples.offset = row.headerBytes;
    samples.bytes = file.size() - row.headerBytes;
    samples.frames = row.frames.read(header);
    Wave* wave = importSamples(file, samples, row.context);
    if (!wave) return false;
    if (row.commentAt > 0)
        wave->comments = AnsiToUtf8(
            ByteCursor(ByteSpan(header).subspan(row.commentAt)).text(header.size() - row.commentAt));
    return true;
}

bool importDvd(FileContext& file, u32 bits, u32 rateHz) {
    const u32 code = bits == 16 ? kPcm16 : kPcm24;
    const u64 whole = file.size() / kGroupBytes * kGroupBytes;
    Wave* wave =
        importSamples(file, {code | kByteswap, 2, rateHz, 0, bits == 16 ? file.size() : whole, 0}, "dvd_Imp");
    if (!wave) return false;
    if (bits == 24) {
        wave->reader = &dvd24Reader;
        wave->preferredFormat = kPcm24;
    }
    return true;
}

} // namespace kv
