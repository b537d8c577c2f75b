#include "formats/audio/raw_coded.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/run_context.h"
#include "formats/framework/losses.h"
#include "model/resampled_blocks.h"
#include "model/sample_blocks.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

/// Layout of the private area of such a wave.
enum Private : std::size_t { kCoding, kBits };

/// What is known of an encoding without a header.
struct CodingRow {
    u32 rateHz;
    u32 leastBits, mostBits, bitStep, safeBits; ///< of a code
    bool writesAtRate;                          ///< at no other
    std::string_view question;                  ///< for the bits
    std::string_view context;                   ///< of a failure to write
};
constexpr std::string_view kAskG726 = "Is it 2, 3, 4, or 5-bit (16, 24, 32, 40 or 64 kbps) ADPCM data?";
constexpr std::string_view kAskG723 = "Is it 3-bit (24 kpbs) or 5-bit (40 kpbs) ADPCM data?";
constexpr std::string_view kAskG722 = "Is it 6, 7 or 8-bit codeword (48, 56 or 64 kbps) ADPCM data?";
constexpr std::string_view kAskRockwell = "Is it 2, 3 or 4-bit ADPCM data?";
constexpr CodingRow kCodings[] = {
    {8000, 4, 4, 1, 4, false, kAskG726, "g721_Exp"},
    {16000, 6, 8, 1, 8, false, kAskG722, "g722_Exp"},
    {8000, 3, 5, 2, 3, false, kAskG723, "g723_Exp"},
    {8000, 2, 5, 1, 4, false, kAskG726, "g726_Exp"},
    {8000, 4, 4, 1, 4, true, {}, "vox_Exp"},
    {22050, 4, 4, 1, 4, false, {}, "yadpcm_Exp"},
    {7200, 2, 4, 1, 4, true, kAskRockwell, "rockwell_Exp"},
    {8000, 2, 2, 1, 2, false, {}, "gsm_Exp"},
    {8000, 2, 2, 1, 2, false, {}, "gsm_Exp"},
    {8000, 2, 2, 1, 2, false, {}, "gsm_Exp"},
    {8000, 2, 2, 1, 2, false, {}, "gsm_Exp"},
};
const CodingRow& rowOf(RawCoding coding) {
    return kCodings[static_cast<std::size_t>(coding)];
}
bool hasWidth(const CodingRow& row, u32 bits) {
    return bits >= row.leastBits && bits <= row.mostBits && (bits - row.leastBits) % row.bitStep == 0;
}

CodedForm formOf(RawCoding coding, u32 bits, bool bigEndian) {
    switch (coding) {
        case RawCoding::G721:
        case RawCoding::G723:
        case RawCoding::G726:
            return g726Form(bits, bigEndian);
        case RawCoding::G722:
            return g722Form(bits, bigEndian);
        case RawCoding::Dialogic:
            return dialogicForm();
        case RawCoding::Yamaha:
            return yamahaForm(false);
        case RawCoding::Rockwell:
            return rockwellForm(bits);
        case RawCoding::GsmDouble:
            return gsmForm(false);
        case RawCoding::GsmPlain:
            return gsmForm(true);
        case RawCoding::UsrGsm:
        case RawCoding::UsrGsmB:
            return usrGsmForm();
    }
    return {};
}

CodedWriter writerOf(RawCoding coding, u32 bits, bool bigEndian) {
    switch (coding) {
        case RawCoding::G722:
            return g722Writer(bits, bigEndian);
        case RawCoding::Dialogic:
            return dialogicWriter();
        case RawCoding::Yamaha:
            return yamahaWriter(false);
        case RawCoding::Rockwell:
            return rockwellWriter(bits);
        case RawCoding::GsmDouble:
            return gsmWriter(false);
        case RawCoding::GsmPlain:
            return gsmWriter(true);
        case RawCoding::UsrGsm:
            return usrGsmWriter(0xFE);
        case RawCoding::UsrGsmB:
            return usrGsmWriter(0xB6);
        default:
            return g726Writer(bits, bigEndian);
    }
}

CodedForm formOf(const Wave& wave) {
    return formOf(static_cast<RawCoding>(wave.sourcePrivate[kCoding]), wave.sourcePrivate[kBits],
                  (wave.dataFormat & kByteswap) != 0);
}

std::unique_ptr<SampleBlocks> openRawCoded(const Wave& wave, FileContext& file) {
    return openCoded(file.source, file.position, file.size(), wave.frames, formOf(wave));
}

const WaveReader codedReader{"coded_ImpWave", loadThroughBlocks, openRawCoded};
const WaveReader yamahaReader{"yadpcm_ImpWave", loadThroughBlocks, openRawCoded};

void setFrames(Wave& wave, u64 fileSize) {
    wave.frames = saturate<u32>(static_cast<f64>(formOf(wave).framesIn(fileSize - wave.sourceOffset)));
}

/// The bits of a code: of the row, of the options, or of the user.
u32 chooseBits(const CodingRow& row, u32 fromRow) {
    if (fromRow != 0) return fromRow;
    if (row.leastBits == row.mostBits) return row.leastBits;
    const u32 given = workspace().rawSource.codeBits;
    if (hasWidth(row, given)) return given;
    std::vector<std::string> labels;
    for (u32 bits = row.leastBits; bits <= row.mostBits; bits += row.bitStep)
        labels.push_back(fmt::format("{}-bit", bits));
    const std::vector<std::string_view> buttons(labels.begin(), labels.end());
    const u32 answer = static_cast<u32>(
        Ask("ADPCM", row.question, buttons, static_cast<int>((row.safeBits - row.leastBits) / row.bitStep)));
    const u32 bits = row.leastBits + answer * row.bitStep;
    return hasWidth(row, bits) ? bits : row.safeBits;
}

u32 codeOf(RawCoding coding, u32 bits) {
    constexpr u32 kOfBits[] = {0,       0,           kAdpcm2,     kAdpcm3,    kAdpcm4,
                               kAdpcm5, kCompressed, kCompressed, kCompressed};
    return coding >= RawCoding::GsmDouble ? kGsm : kOfBits[bits];
}

/// The bits that a format word or a bit rate asks for; 0 for a code that the encoding doesn't have.
u32 bitsFor(RawCoding coding, const CodingRow& row, u32 formatWord, u32 subType, f32 bitRate) {
    u32 bits = subType & 0xFF;
    const u32 code = formatWord & kCodeMask;
    if (coding == RawCoding::Dialogic || (bits == 0 && code == 0)) bits = row.safeBits;
    if (bits == 0 && coding == RawCoding::G722)
        bits = bitRate <= 0 ? 8 : bitRate <= 48 ? 6 : bitRate <= 56 ? 7 : 8;
    for (u32 width = row.leastBits; width <= row.mostBits && bits == 0; width += row.bitStep) {
        if (codeOf(coding, width) == code) bits = width;
    }
    const bool agrees = code == 0 || codeOf(coding, bits) == code;
    return hasWidth(row, bits) && agrees ? bits : 0;
}

u32 dialogicRate(u32 subType, f32 setting) {
    if (subType != 0) return subType;
    return setting == 6 ? 6000 : setting == 11 ? 11025 : 8000;
}

/// Every record of the file's beginning, of which there are enough not to look so by chance, passes.
template <class Passes>
bool hasRecords(FileContext& file, std::size_t size, Passes passes) {
    constexpr std::size_t kLeast = 4, kMost = 500;
    if (file.size() < kLeast * size || file.size() % size != 0) return false;
    Bytes bytes(static_cast<std::size_t>(std::min<u64>(file.size(), kMost * size)));
    if (file.source->readAt(0, bytes) != bytes.size()) return false;
    for (std::size_t at = 0; at < bytes.size(); at += size) {
        if (!passes(ByteSpan(bytes).subspan(at, size))) return false;
    }
    return true;
}

/// GSM files of all kinds share an extension, so that the first row is asked for all of them.
RawCoding gsmCoding(FileContext& file) {
    const auto marked = [](ByteSpan frame) { return (frame[0] & std::byte{0xF0}) == std::byte{0xD0}; };
    const auto modem = [](ByteSpan record) {
        return (record[0] == std::byte{0xFE} || record[0] == std::byte{0xB6}) && record[1] == record[0];
    };
    if (hasRecords(file, kGsmPlainBytes, marked)) return RawCoding::GsmPlain;
    return hasRecords(file, kUsrGsmBytes, modem) ? RawCoding::UsrGsm : RawCoding::GsmDouble;
}

} // namespace

bool importCoded(FileContext& file, RawCoding coding, u32 subType) {
    if (coding == RawCoding::GsmDouble) coding = gsmCoding(file);
    const CodingRow& row = rowOf(coding);
    const u32 bits = chooseBits(row, coding == RawCoding::Dialogic ? 0 : subType & 0xFF);
    Wave* wave =
        store().Create<Wave>(kNextFreeNumber, coding == RawCoding::Yamaha ? &yamahaReader : &codedReader);
    wave->sourcePrivate[kCoding] = static_cast<u32>(coding);
    wave->sourcePrivate[kBits] = bits;
    const bool bigEndian = coding != RawCoding::Dialogic && (subType & kCodedBigEndian) != 0;
    wave->dataFormat = codeOf(coding, bits) | (bigEndian ? kByteswap : 0);
    if (coding != RawCoding::G722) wave->preferredFormat = codeOf(coding, bits); // a bit rate is no code
    wave->bits = bits;
    wave->sampleRate = coding == RawCoding::Dialogic ? dialogicRate(subType, 0) : row.rateHz;
    setFrames(*wave, file.size());
    return true;
}

bool reinterpretCoded(Wave& wave, const RawSource& source, u64 fileSize) {
    if (wave.reader != &codedReader && wave.reader != &yamahaReader) return false;
    wave.sampleRate = source.sampleRate;
    wave.sourceOffset = source.offset > fileSize ? 0 : source.offset;
    wave.dataFormat = (wave.dataFormat & ~kByteswap) | (source.dataFormat & kByteswap);
    setFrames(wave, fileSize);
    return true;
}

bool exportCoded(Item& item, FileContext& file, RawCoding coding, u32 formatWord, u32 subType, f32 bitRate) {
    const CodingRow& row = rowOf(coding);
    if (classOf(item.id()) != kWaveClass) return Fail(row.context, "The file format can not save this item");
    const auto& wave = static_cast<const Wave&>(item);
    const u32 code = formatWord & kCodeMask;
    const bool plain = coding == RawCoding::Dialogic && code != 0 && code != kAdpcm4;
    const u32 bits = plain ? 4 : bitsFor(coding, row, formatWord, subType, bitRate);
    if (bits == 0) return Fail(row.context, "Invalid data format");

    const u32 rate = !row.writesAtRate               ? wave.sampleRate
                     : coding == RawCoding::Dialogic ? dialogicRate(subType, bitRate)
                                                     : row.rateHz;
    const std::unique_ptr<SampleBlocks> blocks =
        resampled(openSamples(wave, plain && encodesFromFloat(formatWord)), wave.sampleRate, rate, 4);
    if (!blocks) return false;
    const bool usualRate = rate == row.rateHz || subType == rate;
    reportLosses(wave, usualRate ? u32{kKeepsRate} : 0);
    if (plain) return writeSamples(*blocks, formatWord | kMonoBit, *file.sink);
    return writeCoded(*blocks, writerOf(coding, bits, (subType & kCodedBigEndian) != 0), *file.sink);
}

f32 g722_Options(int index, u32 subType, std::string* label) {
    const u32 fixed = subType & 0xFF;
    const int count = fixed != 0 ? 1 : 3;
    if (index < 0 || index >= count) return 0;
    const u32 rate = 8 * (fixed != 0 ? fixed : static_cast<u32>(8 - index));
    if (label) *label = fmt::format("{} kbit/s", rate);
    return static_cast<f32>(rate);
}

} // namespace kv
