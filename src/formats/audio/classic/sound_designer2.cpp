// Sound Designer II. Document: "Sound Designer II File Format" (Digidesign, 1990). The data fork holds the
// samples alone, big-endian and interleaved; strings in the resource fork tell how to take them.
#include <algorithm>
#include <charconv>

#include "base/run_context.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/classic/classic_kit.h"
#include "formats/audio/classic/mac_forks.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr std::string_view kType = "Sd2f", kCreator = "Sd2a";
constexpr i16 kSampleSizeId = 1000, kSampleRateId = 1001, kChannelsId = 1002;
constexpr u32 kWords[] = {0, kPcm8, kPcm16 | kByteswap, kPcm24 | kByteswap, kPcm32 | kByteswap};

u32 numberIn(std::string_view text) {
    f64 number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return saturate<u32>(number + 0.5);
}

/// What the settings assume of a data fork without its resource fork.
SampleLayout assumedLayout() {
    const auto& assumed = settings().fmt.sd2;
    SampleLayout layout;
    layout.rate = static_cast<u32>(std::max(assumed.dwSampleRate, 0));
    layout.channels = static_cast<u32>(std::max(assumed.iChannels, 0));
    layout.word = kWords[std::clamp((assumed.iBits + 7) / 8, 0, 4)];
    return layout;
}

void applyStrings(SampleLayout& layout, const std::vector<StringResource>& strings) {
    for (const StringResource& resource : strings) {
        const u32 number = numberIn(resource.text);
        if (resource.id == kSampleSizeId)
            layout.word = number <= 4 ? kWords[number] : 0;
        else if (resource.id == kSampleRateId)
            layout.rate = number;
        else if (resource.id == kChannelsId)
            layout.channels = number;
    }
}

/// A name for a Macintosh file: 7-bit characters alone, and no colon, which separates folders there.
std::string macName(std::string_view name) {
    std::string out = Utf8ToAnsi(name).substr(0, 31);
    for (char& c : out) {
        if (static_cast<u8>(c) < 0x20 || static_cast<u8>(c) > 0x7E || c == ':') c = '_';
    }
    return out.empty() ? "sound" : out;
}

Bytes buildFork(const SampleExport& out) {
    const StringResource strings[] = {
        {kSampleSizeId, "sample-size", fmt::format("{}", out.sampleBytes)},
        {kSampleRateId, "sample-rate", fmt::format("{}.0000", out.wave->sampleRate)},
        {kChannelsId, "channels", fmt::format("{}", out.channels)},
    };
    return stringsFork(strings);
}

Bytes fillUp(u64 bytes) {
    return Bytes(static_cast<std::size_t>((kMacBinaryBlock - bytes % kMacBinaryBlock) % kMacBinaryBlock));
}

} // namespace

bool sd2_Imp(Collection&, FileContext& file, u32 subType) {
    constexpr std::string_view kContext = "sd2_Imp";
    SampleLayout layout = assumedLayout();
    layout.bytes = file.size();
    Bytes fork;
    std::string name;
    if (subType == kSd2Flat) {
        const std::optional<MacBinary> flat = readMacBinary(*file.source);
        if (!flat) return Fail(kContext, "Not a flat Sound Designer II file");
        RangeSource resources(file.source, flat->resourceStart, flat->resourceBytes);
        fork = resourceForkIn(resources);
        layout.offset = flat->dataStart;
        layout.bytes = flat->dataBytes;
        name = fieldText(bytesOf(flat->name));
    } else {
        fork = findResourceFork(file.path);
    }
    applyStrings(layout, readStrings(fork));
    Wave* wave = importSamples(file, layout, kContext);
    if (wave && !name.empty()) wave->SetName(name);
    return wave != nullptr;
}

bool sd2_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32) {
    constexpr std::string_view kContext = "sd2_Exp";
    const SampleExport out = openExport(kContext, item, formatWord, perWave);
    if (!out) return false;
    const u32 word = out.word | ((out.word & kPcm8) != 0 ? 0 : kByteswap);
    if (subType != kSd2Flat) {
        const bool hasPlace = !file.path.empty() && file.path != "-"; // for a file beside it
        reportLosses(*out.wave, hasPlace ? u32{kKeepsRate} : 0);
        return writeSamples(*out.blocks, word, *file.sink) &&
               (!hasPlace || writeForkBeside(file.path, kType, kCreator, buildFork(out)) ||
                Fail(kContext, "Writing to file failed"));
    }
    const u64 bytes = out.dataBytes();
    if (!sizeFits(kContext, bytes)) return false;
    reportLosses(*out.wave, kKeepsRate);
    const Bytes fork = buildFork(out);
    const Bytes head = macBinaryHeader(macName(out.wave->name()), kType, kCreator, static_cast<u32>(bytes),
                                       static_cast<u32>(fork.size()));
    if (!file.write(head)) return Fail(kContext, "Writing to file failed");
    if (!writeSamples(*out.blocks, word, *file.sink)) return false;
    return (file.write(fillUp(bytes)) && file.write(fork) && file.write(fillUp(fork.size()))) ||
           Fail(kContext, "Writing to file failed");
}

} // namespace kv
