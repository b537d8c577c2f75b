#include "samples/data_format.h"

#include <array>

#include "base/text.h"

namespace kv {
namespace {

constexpr std::array<FormatCode, 23> kCodes{{
    {kPcm8, "PCM 8-bit", 8},
    {kPcm12, "PCM 12-bit", 12},
    {kPcm16, "PCM 16-bit", 16},
    {kPcm20, "PCM 20-bit", 20},
    {kPcm24, "PCM 24-bit", 24},
    {kPcm32, "PCM 32-bit", 32},
    {kFloat32, "Float 32-bit", 32},
    {kFloat64, "Float 64-bit", 64},
    {kMuLaw, "Mu-law 8-bit", 8},
    {kALaw, "A-law 8-bit", 8},
    {kGsm, "GSM 2-bit", 2},
    {kAdpcm2, "ADPCM 2-bit", 2},
    {kAdpcm3, "ADPCM 3-bit", 3},
    {kAdpcm4, "ADPCM 4-bit", 4},
    {kAdpcm5, "ADPCM 5-bit", 5},
    {kDeltaPcm8, "Delta PCM 8-bit", 8},
    {kDeltaPcm16, "Delta PCM 16-bit", 16},
    {kByteDeltaPcm16, "Byte-Delta PCM16", 16},
    {kAsciiText, "Ascii text", 8},
    {kRevMuLaw, "Rev Mu-law 8-bit", 8},
    {kRevALaw, "Rev A-law 8-bit", 8},
    {kCompressed, "Compressed", 0},
    {kMidiData, "MIDI", 1},
}};

constexpr u32 kRates[] = {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};

} // namespace

std::span<const FormatCode> formatCodes() {
    return kCodes;
}

bool FormatCodeInfo(u32 code, std::string_view* name, u32* bits) {
    for (const FormatCode& row : kCodes) {
        if (row.code != code) continue;
        if (name) *name = row.name;
        if (bits) *bits = row.bits;
        return true;
    }
    return false;
}

u32 FormatCodeByName(std::string_view name) {
    for (const FormatCode& row : kCodes) {
        if (equalIgnoringCase(row.name, name)) return row.code;
    }
    return 0;
}

std::span<const u32> compressedRates() {
    return kRates;
}

u32 nearestCompressedRate(f32 kbps) {
    for (std::size_t i = 0; i + 1 < std::size(kRates); ++i) {
        if (static_cast<f32>((kRates[i] + kRates[i + 1]) / 2) >= kbps) return kRates[i];
    }
    return kRates[std::size(kRates) - 1];
}

} // namespace kv
