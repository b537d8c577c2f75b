#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <iterator>
#include <string>

#include "base/run_context.h"
#include "base/text.h"
#include "formats/audio/various/various_files.h"
#include "formats/codecs/sample_pieces.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

/// Layout of the private area of such a wave.
enum Private : std::size_t { kFirstColumn, kScaleBits };

constexpr std::size_t kMostColumns = 3; ///< that count: a time and two channels
constexpr std::size_t kMostLineBytes = 4096;

/// The numbers of a line.
struct Row {
    std::array<f64, kMostColumns> values{};
    std::size_t columns = 0; ///< also of those that don't count
    bool fractions = false;  ///< one of them has a point or an exponent
};

/// Walks the lines of a text that have numbers; takes notice of what comments say on the way.
class TextRows {
public:
    explicit TextRows(std::shared_ptr<ByteSource> source) : source_(std::move(source)) {}

    bool next(Row& row) {
        while (readLine()) {
            if (line_.empty()) continue;
            if (line_[0] == ';' || line_[0] == '#')
                comment();
            else if (parse(row))
                return true;
        }
        return false;
    }
    u32 rate() const { return rate_; }         ///< Hz; 0: not told
    u32 channels() const { return channels_; } ///< 0: not told

private:
    /// False at the end. What is too long for a line of numbers is cut.
    bool readLine() {
        line_.clear();
        while (true) {
            if (at_ == buffer_.size() && !fetch()) return !line_.empty();
            const char c = static_cast<char>(buffer_[at_++]);
            if (c == '\n' || c == '\r') return true;
            if (line_.size() < kMostLineBytes) line_ += c;
        }
    }
    bool fetch() {
        buffer_.resize(65536);
        buffer_.resize(source_->readAt(next_, buffer_));
        next_ += buffer_.size();
        at_ = 0;
        return !buffer_.empty();
    }

    void comment() {
        takeNumber("sample rate", rate_);
        takeNumber("channels", channels_);
    }
    void takeNumber(std::string_view label, u32& number) const {
        const std::string_view text =
            std::string_view(line_).substr(std::min(line_.size(), line_.find_first_not_of(";# \t")));
        if (text.size() <= label.size() || !equalIgnoringCase(text.substr(0, label.size()), label)) return;
        const std::string_view rest =
            text.substr(std::min(text.size(), text.find_first_not_of(" \t:=", label.size())));
        u32 found = 0;
        if (std::from_chars(rest.data(), rest.data() + rest.size(), found).ec == std::errc() && found > 0)
            number = found;
    }

    bool parse(Row& row) const {
        constexpr std::string_view kBetween = " \t,;";
        row = {};
        for (std::size_t at = line_.find_first_not_of(kBetween); at != line_.npos;
             at = line_.find_first_not_of(kBetween, at)) {
            const std::size_t end = std::min(line_.size(), line_.find_first_of(kBetween, at));
            std::string_view word = std::string_view(line_).substr(at, end - at);
            if (word.size() > 1 && word[0] == '+') word.remove_prefix(1);
            f64 value = 0;
            const auto [stop, error] = std::from_chars(word.data(), word.data() + word.size(), value);
            // What is too small or too large for a number still is one.
            if (stop != word.data() + word.size() || error == std::errc::invalid_argument) break;
            if (row.columns < kMostColumns) {
                row.values[row.columns] = std::isfinite(value) ? value : 0;
                row.fractions |= word.find_first_of(".eEnN") != word.npos;
            }
            ++row.columns;
            at = end;
        }
        return row.columns > 0;
    }

    std::shared_ptr<ByteSource> source_;
    Bytes buffer_;
    u64 next_ = 0;
    std::size_t at_ = 0;
    std::string line_;
    u32 rate_ = 0, channels_ = 0;
};

class TextBlocks final : public SampleBlocks {
public:
    TextBlocks(const Wave& wave, std::shared_ptr<ByteSource> source)
        : SampleBlocks(wave.channels, wave.frames, wave.sourcePrivate[kScaleBits] != 16),
          rows_(std::move(source)),
          firstColumn_(std::min<std::size_t>(wave.sourcePrivate[kFirstColumn], 1)),
          scale_(std::ldexp(1.0, wave.sourcePrivate[kScaleBits] == 0
                                     ? 0
                                     : 1 - static_cast<int>(wave.sourcePrivate[kScaleBits]))) {}

protected:
    bool readNative(std::span<i16> to) override {
        return fill(to, [](f64 v) { return saturate<i16>(v); });
    }
    bool readNative(std::span<f32> to) override {
        return fill(to, [scale = scale_](f64 v) { return static_cast<f32>(v * scale); });
    }

private:
    template <class T, class Convert>
    bool fill(std::span<T> to, Convert convert) {
        Row row;
        for (std::size_t i = 0; i + channels() <= to.size(); i += channels()) {
            if (!rows_.next(row)) return Fail("txt_ImpWave", "Reading from file failed");
            for (u32 c = 0; c < channels(); ++c) to[i + c] = convert(row.values[firstColumn_ + c]);
        }
        return true;
    }

    TextRows rows_;
    std::size_t firstColumn_;
    f64 scale_;
};

std::unique_ptr<SampleBlocks> openText(const Wave& wave, FileContext& file) {
    if (!file.source) {
        Fail("txt_ImpWave", "Reading from file failed");
        return nullptr;
    }
    return std::make_unique<TextBlocks>(wave, file.source);
}

const WaveReader textReader{"txt_ImpWave", loadThroughBlocks, openText};

/// Bits of the integers that hold all values between two.
u32 bitsFor(f64 least, f64 most) {
    for (const u32 bits : {16U, 24U}) {
        const f64 half = std::ldexp(1.0, static_cast<int>(bits) - 1);
        if (least >= -half && most < half) return bits;
    }
    return 32;
}

} // namespace

bool asciiAudio_Imp(Collection&, FileContext& file, u32) {
    TextRows rows(file.source);
    Row row;
    u64 frames = 0;
    std::size_t columns = 0, firstColumn = 0;
    bool fractions = false;
    f64 least = 0, most = 0;
    while (rows.next(row)) {
        if (frames++ == 0) {
            columns = row.columns;
            const bool timed =
                rows.rate() != 0 && (rows.channels() == 0 ? columns > 1 : columns == rows.channels() + 1U);
            firstColumn = timed ? 1 : 0;
            fractions = timed; // such texts have a full scale of 1
        }
        fractions |= row.fractions;
        for (std::size_t i = firstColumn; i < kMostColumns; ++i) {
            least = std::min(least, row.values[i]);
            most = std::max(most, row.values[i]);
        }
        if (frames % 65536 == 0 && CancelRequested()) return Fail("txt_Imp", "Cancelled");
    }
    if (frames == 0) return Fail("txt_Imp", "No numbers in the text");
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &textReader);
    const u32 bits = fractions ? 0 : bitsFor(least, most);
    wave->sourcePrivate[kFirstColumn] = static_cast<u32>(firstColumn);
    wave->sourcePrivate[kScaleBits] = bits;
    wave->dataFormat = kAsciiText;
    wave->preferredFormat = bits == 0 ? kFloat32 : bits == 16 ? kPcm16 : bits == 24 ? kPcm24 : kPcm32;
    wave->bits = bits == 0 ? 32 : bits;
    wave->channels = columns - firstColumn > 1 ? 2 : 1;
    wave->frames = saturate<u32>(static_cast<f64>(frames));
    if (rows.rate() != 0) wave->sampleRate = rows.rate();
    return true;
}

bool asciiAudio_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool perWave, f32) {
    const SampleExport out = openExport("txt_Exp", item, formatWord, perWave);
    if (!out) return false;
    reportLosses(*out.wave, kKeepsRate);
    std::string text = fmt::format("; Sample Rate {}\n; Channels {}\n", out.wave->sampleRate, out.channels);
    const auto write = [&](auto from) {
        for (std::size_t i = 0; i < from.size(); ++i) {
            const char end = (i + 1) % out.channels == 0 ? '\n' : ' ';
            // A point tells floats from integers; 9 digits are enough to find each float again.
            if constexpr (std::is_floating_point_v<typename decltype(from)::value_type>)
                fmt::format_to(std::back_inserter(text), "{:#.9g}{}", from[i], end);
            else
                fmt::format_to(std::back_inserter(text), "{}{}", from[i], end);
        }
        const bool written = file.write(bytesOf(text));
        text.clear();
        return written || Fail("txt_Exp", "Writing to file failed");
    };
    constexpr std::size_t kPieceFrames = 8192;
    const bool done = out.blocks->isFloat()
                          ? writePieces<f32>(*out.blocks, out.channels, kPieceFrames, "txt_Exp", write)
                          : writePieces<i16>(*out.blocks, out.channels, kPieceFrames, "txt_Exp", write);
    return done && (text.empty() || file.write(bytesOf(text)) || Fail("txt_Exp", "Writing to file failed"));
}

} // namespace kv
