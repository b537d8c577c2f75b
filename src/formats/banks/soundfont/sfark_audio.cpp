#include "formats/banks/soundfont/sfark_audio.h"

#include <algorithm>
#include <array>

namespace kv {
namespace {

constexpr std::array<SfarkMethod, 4> kMethods{{
    // number, block, window, passes, BD4 passes, coefficients
    {4, 4096, 256, 3, 0, 0},
    {5, 1024, 32, 20, 20, 0},
    {6, 4096, 32, 3, 3, 8},
    {7, 4096, 32, 3, 5, 128},
}};

/// Words that are shifted alike.
constexpr std::size_t kShiftPart = 64;

constexpr i32 kZeroScale = -2, kSignScale = -1, kRawScale = 14;

/// 16-bit arithmetic wraps.
constexpr i16 wrapped(i32 value) {
    return static_cast<i16>(value);
}

/// What a block adds to the file check: of negative words the complement.
u32 magnitudes(std::span<const i16> words) {
    u32 sum = 0;
    for (const i16 word : words) sum += static_cast<u32>(word < 0 ? ~word : word);
    return sum;
}

i16 decodeValue(SfarkBits& bits, i32 scale) {
    if (scale == kZeroScale) return 0;
    if (scale == kSignScale) return bits.flag() ? -1 : 0;
    if (scale == kRawScale) return static_cast<i16>(bits.bits(16));
    const u32 low = bits.bits(static_cast<unsigned>(scale) + 1);
    const u32 value = bits.zeros() << scale | low >> 1;
    return static_cast<i16>(low % 2 == 0 ? value : ~value);
}

void runningSum(std::span<i16> words, i16& state) {
    for (i16& word : words) state = word = wrapped(word + state);
}

/// Each word is half the sum of its neighbours plus what is stored; restored from the end.
void runningAverage(std::span<i16> words, i16& state) {
    if (words.empty()) return;
    state = words.back();
    for (std::size_t i = words.size() - 1; i-- > 0;) {
        const i32 before = i > 0 ? words[i - 1] : 0;
        words[i] = wrapped(words[i] + ((before + words[i + 1]) >> 1));
    }
}

/// A sum of which the past weighs half.
void halfSum(std::span<i16> words, i16& state) {
    for (i16& word : words) {
        const i16 stored = word;
        word = wrapped(stored + state);
        state = wrapped(state + stored / 2);
    }
}

} // namespace

const SfarkMethod* sfarkMethod(u8 number) {
    const auto found = std::ranges::find(kMethods, number, &SfarkMethod::number);
    return found == kMethods.end() ? nullptr : &*found;
}

SfarkAudio::SfarkAudio(const SfarkMethod& method) : method_(method), block_(method.blockWords) {
    if (method.coefficients != 0) predictor_.emplace(method.coefficients);
}

bool SfarkAudio::decode(SfarkBits& bits, std::size_t count, u32& check) {
    words_ = std::span(block_).first(count);
    if (method_.number == 4) return decodePlain(bits, check);
    if (!decodeFull(bits)) return false;
    check = 2 * check + magnitudes(words_);
    return true;
}

/// Method 4. The check covers the words before the last pass, and only if there is one.
bool SfarkAudio::decodePlain(SfarkBits& bits, u32& check) {
    passCount_ = bits.near(passCount_);
    if (passCount_ < 0 || passCount_ > method_.mostPasses || !readValues(bits)) return false;
    for (auto j = static_cast<std::size_t>(passCount_); j-- > 0;) {
        if (j == 0) check = 2 * check + magnitudes(words_);
        runningSum(words_, states_[j]);
    }
    return true;
}

bool SfarkAudio::decodeFull(SfarkBits& bits) {
    if (!readShifts(bits) || !readPasses(bits)) return false;
    u32 resets = 0;
    if (predictor_ && bits.flag()) {
        resets = bits.bits(16);
        resets |= bits.bits(16) << 16;
    }
    if (!readValues(bits)) return false;
    if (predictor_) predict(resets);
    for (std::size_t j = passes_.size(); j-- > 0;) undoPass(j);
    applyShifts();
    return true;
}

void SfarkAudio::undoPass(std::size_t pass) {
    switch (passes_[pass]) {
        case Pass::Sum:
            return runningSum(words_, states_[pass]);
        case Pass::Average:
            return runningAverage(words_, states_[pass]);
        case Pass::Bd4:
            return halfSum(words_, states_[pass]);
    }
}

/// The shift stays from block to block, but a block can be left out.
bool SfarkAudio::readShifts(SfarkBits& bits) {
    const bool shifted = bits.flag();
    shifts_.assign(shifted ? (words_.size() + kShiftPart - 1) / kShiftPart : 0, shift_);
    std::size_t part = 0;
    while (shifted && bits.flag()) {
        if (part >= shifts_.size()) return false;
        part += bits.bits(static_cast<unsigned>(std::bit_width(shifts_.size() - part - 1)));
        const bool takesOver = shift_ == 0;
        shift_ = bits.near(takesOver ? usedShift_ : 0);
        if (takesOver) usedShift_ = shift_;
        if (part >= shifts_.size() || shift_ < 0 || shift_ > 15 || !bits.ok()) return false;
        std::fill(shifts_.begin() + static_cast<std::ptrdiff_t>(part), shifts_.end(), shift_);
    }
    return bits.ok();
}

bool SfarkAudio::readPasses(SfarkBits& bits) {
    const bool bd4 = bits.flag();
    i32& count = bd4 ? bd4PassCount_ : passCount_;
    count = bits.near(count);
    if (count < 0 || count > (bd4 ? method_.mostBd4Passes : method_.mostPasses)) return false;
    passes_.assign(static_cast<std::size_t>(count), Pass::Bd4);
    if (bd4) return bits.ok();
    for (Pass& pass : passes_) pass = bits.flag() ? Pass::Average : Pass::Sum;
    return bits.ok();
}

bool SfarkAudio::readValues(SfarkBits& bits) {
    for (std::span<i16> left = words_; !left.empty() && bits.ok();) {
        const std::span<i16> window = left.first(std::min<std::size_t>(method_.windowWords, left.size()));
        left = left.subspan(window.size());
        scale_ = bits.near(scale_);
        if (scale_ < kZeroScale || scale_ > kRawScale) return false;
        for (i16& word : window) word = decodeValue(bits, scale_);
    }
    return bits.ok();
}

/// The last window is decoded in full: what stands behind the words doesn't reach them. Blocks that are
/// shorter than a window aren't predicted.
void SfarkAudio::predict(u32 resets) {
    constexpr std::size_t kWindow = SfarkPredictor::kWindow;
    const std::size_t count = words_.size();
    if (count < kWindow) return;
    std::fill(block_.begin() + static_cast<std::ptrdiff_t>(count), block_.end(), i16{0});
    for (std::size_t at = 0; at < count; at += kWindow, resets >>= 1) {
        predictor_->decode(std::span(block_).subspan(at).first<kWindow>(), resets % 2 != 0);
    }
}

void SfarkAudio::applyShifts() {
    if (shifts_.empty()) return;
    for (std::size_t i = 0; i < words_.size(); ++i) {
        words_[i] = static_cast<i16>(static_cast<u32>(words_[i]) << shifts_[i / kShiftPart]);
    }
}

} // namespace kv
