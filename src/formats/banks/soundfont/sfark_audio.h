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

    /// Decodes the next block, of `count` words (0..blockWords), and brings the file check up to date. False
    /// when the stream is damaged or ends.
    bool decode(SfarkBits& bits, std::size_t count, u32& check);
    /// The words of the last block.
    std::span<const i16> words() const { return words_; }

private:
    enum class Pass : u8 { Sum, Average, Bd4 };

    bool decodePlain(SfarkBits& bits, u32& check);
    bool decodeFull(SfarkBits& bits);
    bool readShifts(SfarkBits& bits);
    bool readPasses(SfarkBits& bits);
    bool readValues(SfarkBits& bits);
    void predict(u32 resets);
    void undoPass(std::size_t pass);
    void applyShifts();

    const SfarkMethod& method_;
    std::vector<i16> block_;
    std::span<i16> words_;         ///< what is used of `block_`
    std::vector<Pass> passes_;     ///< of the current block; undone from the last
    std::vector<i32> shifts_;      ///< bits, by part of the current block; empty: none
    std::array<i16, 20> states_{}; ///< by pass; all kinds share them
    std::optional<SfarkPredictor> predictor_;
    i32 passCount_ = 0; ///< of the previous block of the kind
    i32 bd4PassCount_ = 0;
    i32 scale_ = 8;
    i32 shift_ = 0;
    i32 usedShift_ = 0; ///< the last one that took over from 0
};

} // namespace kv
