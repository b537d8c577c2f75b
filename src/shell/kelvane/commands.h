// The commands of `kelvane`. Each answers with the exit status.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/integers.h"

namespace kv {

class TerminalUi;

enum ExitStatus : int {
    kDone = 0,
    kFailed = 1,
    kUsage = 2,
    kSomeFailed = 3,
    kSomethingLost = 4, ///< only when asked to be strict
    kInterrupted = 130,
};

struct FormatsOptions {
    bool importOnly = false, exportOnly = false, json = false;
};
int runFormats(const FormatsOptions& options);

struct DetectOptions {
    std::vector<std::string> paths;
    bool json = false;
};
int runDetect(const DetectOptions& options);

/// How an input is opened where detection can't tell.
struct InputOptions {
    std::string as; ///< row by number, extension or description
    std::optional<u32> rawRate, rawChannels;
    std::optional<std::string> rawFormat;
    bool rawBigEndian = false, rawUnsigned = false;
    std::optional<u64> rawOffset;
    u32 codecBits = 0; ///< per code, where a format has several widths; 0: to be asked for

    bool raw() const {
        return rawRate || rawChannels || rawFormat || rawBigEndian || rawUnsigned || rawOffset;
    }
};
/// Opens a file into the store. False with the error pair set on failure.
bool openInput(const std::string& path, const InputOptions& options, TerminalUi& ui);

/// Opens several files, joined to one collection in their order. False with the error pair set on failure.
bool openInputs(const std::vector<std::string>& paths, const InputOptions& options, TerminalUi& ui);

struct InfoOptions {
    std::string path;
    bool json = false, warnings = false, loudness = false;
    InputOptions input;
};
int runInfo(const InfoOptions& options, TerminalUi& ui);

struct ConvertOptions {
    std::vector<std::string> paths; ///< inputs, then the output
    std::string to, data = "auto", channels = "auto", item, nameMode, parameterSet;
    f32 bitRate = 0;
    bool subDirs = false, force = false, strict = false;
    std::optional<std::string> report; ///< file, or empty for standard output
    InputOptions input;
    std::function<bool()> change = nullptr; ///< what happens to the inputs before they are saved
};
int runConvert(const ConvertOptions& options, TerminalUi& ui);

/// How `edit` and `process` name files: the output apart from the inputs.
struct ChangeOptions {
    std::vector<std::string> inputs;
    std::string output, to, data = "auto";
    std::vector<std::string> steps; ///< what to do, in order
    bool force = false;
    InputOptions input;
};

/// The conversion that a change is a part of.
ConvertOptions conversionOf(const ChangeOptions& options, std::function<bool()> change);

/// Steps as "delete-unused" or "replace-waves=FILE".
int runEdit(const ChangeOptions& options, TerminalUi& ui);

/// Steps as "transpose-notes:semitones=3".
struct ProcessOptions : ChangeOptions {
    std::vector<std::string> items; ///< selectors; none: everything
    std::string range;              ///< frames, as "100:2000"
};
int runProcess(const ProcessOptions& options, TerminalUi& ui);

/// What `batch` takes besides the options of the job's table.
struct BatchOptions {
    std::vector<std::string> inputs;
    std::vector<std::string> to, algorithms, effects;
    std::string mode, outputDir, threshold;
    std::map<std::string, std::string> job; ///< options of the table that were given
    unsigned workers = 0;                   ///< 0: as many as there are cores
    f64 timeout = 600;                      ///< seconds for a file
    u64 memory = 0;                         ///< MB for a process
    std::string existing = "fail", shard, report, resume, mergeReports, saveJob;
    bool dryRun = false, noSandbox = false;
    InputOptions input;
};
int runBatchCommand(const BatchOptions& options, TerminalUi& ui);

struct DrawOptions {
    std::string path, output; ///< the output's number goes behind its name when there are several pictures
    bool waveform = false, spectrum = false, spectrogram = false, loop = false; ///< at most one
    bool dark = false, force = false;
    std::string size = "1200x600", range; ///< frames, as "100:2000"
    std::vector<std::string> waves;       ///< selectors or "all"; none: the first wave
    InputOptions input;
};
int runDraw(const DrawOptions& options, TerminalUi& ui);

struct AlgorithmsOptions {
    bool audio = false, midi = false, instrument = false, json = false;
};
int runAlgorithms(const AlgorithmsOptions& options);

struct PluginsOptions {
    std::string name; ///< of one effect; empty: all
    bool json = false;
};
int runPlugins(const PluginsOptions& options, TerminalUi& ui);

struct PresetOptions {
    std::string action;             ///< show, extract, apply
    std::vector<std::string> paths; ///< in the order of the command line
    std::string item, to;
    bool json = false, force = false;
    InputOptions input;
};
int runPreset(const PresetOptions& options, TerminalUi& ui);

struct MidiOptions {
    std::string action; ///< events, edit
    std::string path, output, to;
    u32 track = 0; ///< counted from 1; 0: all
    std::vector<std::string> inserts, modifications;
    std::vector<u32> deletions; ///< events, counted from 1
    bool json = false, notation = false, force = false;
    InputOptions input;
};
int runMidi(const MidiOptions& options, TerminalUi& ui);

struct SettingsOptions {
    std::string action; ///< list, get, set, reset, pset
    std::string name, value;
    bool json = false;
    std::string file; ///< of the settings
};
int runSettings(const SettingsOptions& options);

/// Prints the error pair as `context: message` and answers the exit status for it.
int reportFailure();
/// Prints what was noticed on the way.
void printDiagnostics(std::size_t most);

} // namespace kv
