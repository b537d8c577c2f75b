// The audio blocks of sfArk version 2: difference passes over coded 16-bit values.
#pragma once

#include <optional>
#include <vector>

#include "formats/banks/soundfont/sfark_bits.h"
#include "formats/banks/soundfont/sfark_predictor.h"

namespace kv {

/// What sets the coding methods apart.
struct SfarkMethod {
    u8 number;
    u16 blockWords;
    u16 windowWords; ///< words under one scale
    u8 mostPasses;   ///< running sums and averages
    u8 mostBd4Passes;
    u8 coefficients; ///< of the linear prediction; 0: none
};

/// The method of an archive's compression byte; null for one that isn't decoded.
const SfarkMethod* sfarkMethod(u8 number);

/// Decodes the audio blocks of one archive, in their order.
class SfarkAudio {
public:
    explicit SfarkAudio(const SfarkMethod& method);

    /// The next block, of `count` words (1..blockWords), which live until the next call, and brings the file
    /// check up to date. Empty when the stream is damaged or ends.
    std::span<const i16> decode(SfarkBits& bits, std::size_t count, u32& check);

private:
    enum class Pass : u8 { Sum, Average, Bd4 };
    struct Shift {
        std::size_t from; ///< word
        i32 by;           ///< bits
    };

    bool decodePlain(SfarkBits& bits, std::span<i16> words, u32& check);
    bool decodeFull(SfarkBits& bits, std::span<i16> words);
    bool readShifts(SfarkBits& bits, std::size_t count);
    bool readPasses(SfarkBits& bits);
    bool readValues(SfarkBits& bits, std::span<i16> words);
    void predict(std::size_t count, u32 resets);
    void applyShifts(std::span<i16> words) const;

    const SfarkMethod& method_;
    std::vector<i16> block_;
    std::vector<Pass> passes_; ///< of the current block; undone from the last
    std::vector<Shift> shifts_;
    std::array<i16, 20> states_{}; ///< by pass; all kinds share them
    std::optional<SfarkPredictor> predictor_;
    i32 passCount_ = 0; ///< of the previous block of the kind
    i32 bd4PassCount_ = 0;
    i32 scale_ = 8;
    i32 shift_ = 0;
    i32 usedShift_ = 0; ///< the last one that took over from 0
};

} // namespace kv
