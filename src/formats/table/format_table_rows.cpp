#include "formats/table/format_table_rows.h"

#include "formats/audio/raw.h"
#include "formats/audio/wav_reader.h"
#include "formats/audio/wav_writer.h"
#include "formats/audio/wave64.h"
namespace kv {
namespace {
int wavDetect(ByteSpan b, u32, u64) {
    return b.size() >= 12 && textOf(b).starts_with("RIFF") && textOf(b).substr(8, 4) == "WAVE" ? 6 : 0;
}
int w64Detect(ByteSpan b, u32, u64) {
    return isWave64Header(b) ? 6 : 0;
}
constexpr FormatRow kRows[] = {
    {"*", "Unrecognized", RowUse::Read, 0x01000000, 0, 0, detectAlways2, unrecognized_Imp},
    {"sw", "Signed words (16-bit) - Little Endian", RowUse::ReadWrite, 0x01000000, 0xC010004, 4,
     detectAlways2, raw_Imp, raw_Exp, nullptr, false, true},
    {"w64", "Wave-64", RowUse::ReadWrite, 0x01000000, 0xC000375, 0, w64Detect, w64_Imp, w64_Exp, nullptr,
     false, true},
    {"wav", "Microsoft wave", RowUse::ReadWrite, 0x01000000, 0xD007F75, 0, wavDetect, wav_Imp, wav_Exp,
     nullptr, false, true},
};
} // namespace
std::span<const FormatRow> formatRows() {
    return kRows;
}
} // namespace kv
