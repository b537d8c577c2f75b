#include "batch/batch_job.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>

#include "base/run_context.h"
#include "base/text.h"
#include "formats/framework/format_table.h"
#include "formats/framework/row_choice.h"
#include "model/item_id.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "wizards/algorithm_table.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "batch";

constexpr BatchModeInfo kModes[] = {
    {"waves", kWaveClass, "The file doesn't contain any waveform data"},
    {"instruments", kInstrumentClass, "This file doesn't contain any instrument or waveforms"},
    {"collections", kCollectionClass, "This file doesn't contain any instruments"},
    {"songs", kSongClass, "This file doesn't appear to contain any MIDI-like data."},
};

constexpr i64 kMostLevels = 1000;
constexpr BatchOption kOptions[] = {
    {"separate-subdirs", "Each of several outputs in a folder named by format and data format",
     &BatchJob::separateSubdirs},
    {"overwrite-all", "Replace files that exist", &BatchJob::overwriteAll},
    {"same-dir-as-source", "Save in the folder of the source file", &BatchJob::sameDirAsSource},
    {"keep-subdirs", "Keep folders of the source path, by path-levels", &BatchJob::keepSubdirs},
    {"path-levels", "Keep the lowest N folders of the source path; -N: drop the upper N",
     &BatchJob::pathLevels, -kMostLevels, kMostLevels},
    {"keep-tree", "Keep the folders below an input folder", &BatchJob::keepTree},
    {"split-stereo", "Split stereo waves to dual mono (not for waves)", &BatchJob::splitStereo},
    {"merge-stereo", "Merge dual mono waves to stereo (not for waves)", &BatchJob::mergeStereo},
    {"normalize", "Raise the peak to full scale", &BatchJob::normalize},
    {"trim-start", "Remove silence at the beginning", &BatchJob::trimStart},
    {"trim-end", "Remove silence at the end", &BatchJob::trimEnd},
    {"resample", "Resample all waveforms, by resample-rate", &BatchJob::resample},
    {"resample-rate", "New sample rate, in Hz", &BatchJob::resampleRate, 1, 0xFFFFFFFF},
    {"only-downsample", "Leave lower rates alone", &BatchJob::onlyDownsample},
    {"resample-quality", "0 nearest, 1 linear, 2 cubic, 3 to 7 longer filters, 8 by bit depth",
     &BatchJob::resampleQuality, 0, 8},
    {"auto-merge-songs", "Give a song without instruments those of a DLS or SF2 file of its name beside it",
     &BatchJob::autoMergeSongs},
};

struct ChannelName {
    std::string_view name;
    u32 bits;
};
constexpr ChannelName kChannels[] = {
    {"auto", kMonoBit | kStereoBit}, {"mono", kMonoBit}, {"stereo", kStereoBit}};

bool readNumber(std::string_view text, f32& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && std::isfinite(number);
}

bool chooseOutputRow(std::string_view name, u32 classBit, int& row) {
    const FormatTable& formats = *workspace().formats;
    // Of the rows with an extension the first that holds what the batch takes out of its files.
    row = formats.RowByDescription(name);
    const int chosen = row >= 0 ? row : chooseRow(name, RowUse::Write);
    if (chosen < 0) return Fail(kContext, "\"{}\" is no format that can be written", name);
    if (row < 0 && !formats.RowCanExport(chosen, classBit)) row = formats.RowByExtension(name, classBit);
    if (row < 0) row = chosen;
    if (!formats.row(row)->exportFn) {
        return Fail(kContext, "\"{}\" files are known, but this version can't write them yet",
                    formats.RowDescription(row));
    }
    return formats.RowCanExport(row, classBit) ||
           Fail(kContext, "\"{}\" files can't hold what this batch saves", formats.RowDescription(row));
}

bool readPart(std::string_view key, std::string_view value, BatchOutput& output) {
    if (key == "bit-rate") {
        return (readNumber(value, output.bitRate) && output.bitRate > 0) ||
               Fail(kContext, "\"{}\" is no bit rate", value);
    }
    if (key == "channels") {
        for (const ChannelName& row : kChannels) {
            if (row.name == value) {
                output.format = (output.format & ~(kMonoBit | kStereoBit)) | row.bits;
                return true;
            }
        }
        return Fail(kContext, "\"{}\" is not auto, mono or stereo", value);
    }
    if (value == "auto") return true;
    const u32 code = FormatCodeByName(value);
    if (code == 0) return Fail(kContext, "\"{}\" is no data format", value);
    output.format = (output.format & ~kCodeMask) | code;
    return true;
}

bool fitsRow(BatchOutput& output) {
    const FormatRow& row = *workspace().formats->row(output.row);
    if (output.bitRate > 0 && (output.format & kCodeMask) == kCodeMask && row.optionsFn)
        output.format = (output.format & ~kCodeMask) | kCompressed; // nothing else has a bit rate
    constexpr u32 kChannelBits = kMonoBit | kStereoBit;
    if ((row.dataMask & kCodeMask) != 0 && (row.dataMask & output.format & kCodeMask) == 0)
        return Fail(kContext, "\"{}\" files can't hold that data format", row.description);
    if ((row.dataMask & kChannelBits) != 0 && (row.dataMask & output.format & kChannelBits) == 0)
        return Fail(kContext, "\"{}\" files can't have these channels", row.description);
    return true;
}

} // namespace

std::span<const BatchModeInfo> batchModes() {
    return kModes;
}
const BatchModeInfo& infoOf(BatchMode mode) {
    return kModes[static_cast<std::size_t>(mode)];
}
std::span<const BatchOption> batchOptions() {
    return kOptions;
}

bool readLevel(std::string_view text, f32& level) {
    f32 number = 0;
    std::string_view digits = text;
    const bool percent = digits.ends_with('%');
    const bool decibels = digits.size() > 2 && equalIgnoringCase(digits.substr(digits.size() - 2), "dB");
    digits.remove_suffix(percent ? 1 : decibels ? 2 : 0);
    while (digits.ends_with(' ')) digits.remove_suffix(1);
    if (!readNumber(digits, number)) return Fail(kContext, "\"{}\" is no level as 1%, -40dB or 0.01", text);
    level = percent ? number / 100 : decibels ? std::pow(10.0F, number / 20) : number;
    return (level >= 0 && level <= 1) || Fail(kContext, "\"{}\" is no level from 0 to full scale", text);
}

std::string levelText(f32 level, bool inDb) {
    if (inDb && level > 0) return fmt::format("{:.6g}dB", 20 * std::log10(static_cast<f64>(level)));
    return fmt::format("{:.6g}%", static_cast<f64>(level) * 100);
}

bool readOutput(std::string_view text, BatchMode mode, BatchOutput& output) {
    output = {};
    std::string_view name = text;
    // A description may hold commas, so the parts are taken off from the end.
    for (std::size_t comma = name.rfind(','); comma != std::string_view::npos; comma = name.rfind(',')) {
        const std::string_view part = name.substr(comma + 1);
        const std::size_t equals = part.find('=');
        const std::string_view key = part.substr(0, equals);
        if (equals == std::string_view::npos || (key != "data" && key != "channels" && key != "bit-rate"))
            break;
        if (!readPart(key, part.substr(equals + 1), output)) return false;
        name = name.substr(0, comma);
    }
    if (!chooseOutputRow(name, infoOf(mode).classBit, output.row)) return false;
    const FormatRow& row = *workspace().formats->row(output.row);
    const bool anyCode = (output.format & kCodeMask) == kCodeMask;
    if (anyCode && output.bitRate > 0 && row.optionsFn) // nothing else has a bit rate
        output.format = (output.format & ~kCodeMask) | kCompressed;
    return fitsRow(output);
}

std::string outputText(const BatchOutput& output) {
    // A few rows share a description.
    const FormatTable& formats = *workspace().formats;
    std::string text(formats.RowDescription(output.row));
    if (formats.RowByDescription(text) != output.row) text = std::to_string(output.row);
    std::string_view data;
    if (FormatCodeInfo(output.format & kCodeMask, &data, nullptr)) text += fmt::format(",data={}", data);
    for (const ChannelName& row : kChannels) {
        if (row.bits == (output.format & (kMonoBit | kStereoBit)) && row.name != "auto")
            text += fmt::format(",channels={}", row.name);
    }
    if (output.bitRate > 0) text += fmt::format(",bit-rate={}", output.bitRate);
    return text;
}

BatchEffect readEffect(std::string_view text) {
    const std::size_t comma = text.rfind(',');
    if (comma == std::string_view::npos || text.find('=', comma) == std::string_view::npos)
        return {std::string(text), {}};
    return {std::string(text.substr(0, comma)), std::string(text.substr(comma + 1))};
}

bool usesEffects(const BatchJob& job) {
    const auto hosts = [](const std::string& call) {
        return call.find("plug-in-effects") != std::string::npos;
    };
    return !job.plugins.empty() || std::any_of(job.algorithms.begin(), job.algorithms.end(), hosts);
}

bool checkJob(const BatchJob& job) {
    if (job.outputs.empty()) return Fail(kContext, "No output format was given");
    if (job.outputs.size() > kMostOutputs)
        return Fail(kContext, "More than {} output formats were given", kMostOutputs);
    if (job.plugins.size() > kMostEffects)
        return Fail(kContext, "More than {} effects were given", kMostEffects);
    for (const BatchOutput& output : job.outputs) {
        if (!workspace().formats->RowCanExport(output.row, infoOf(job.mode).classBit))
            return Fail(kContext, "Invalid export format selected");
    }
    if (!job.sameDirAsSource && job.outputDir.empty())
        return Fail(kContext, "Please select an output directory first!");
    if (job.splitStereo && job.mergeStereo)
        return Fail(kContext, "Stereo waves can't be both split and merged");
    for (const std::string& call : job.algorithms) {
        if (!parseAlgorithmCall(call, algorithms())) return false;
    }
    return true;
}

u64 fingerprint(const BatchJob& job) {
    BatchJobFile file{job, {}};
    file.job.overwriteAll = false;
    u64 hash = 0xCBF29CE484222325; // FNV-1a
    for (const char c : jobFileText(file)) hash = (hash ^ static_cast<u8>(c)) * 0x100000001B3;
    return hash;
}

} // namespace kv
