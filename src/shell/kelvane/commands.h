// The commands of `kelvane`. Each answers with the exit status.
#pragma once

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
    bool json = false, warnings = false;
    InputOptions input;
};
int runInfo(const InfoOptions& options, TerminalUi& ui);

struct ConvertOptions {
    std::vector<std::string> paths; ///< inputs, then the output
    std::string to, data = "auto", channels = "auto", item, nameMode, parameterSet;
    f32 bitRate = 0;
    bool subDirs = false, force = false, quiet = false, strict = false;
    std::optional<std::string> report; ///< file, or empty for standard output
    InputOptions input;
};
int runConvert(const ConvertOptions& options, TerminalUi& ui);

struct EditOptions {
    std::vector<std::string> inputs;
    std::string output, to;
    std::vector<std::string> operations; ///< as "delete-unused" or "replace-waves=FILE", in order
    bool force = false, quiet = false;
    InputOptions input;
};
int runEdit(const EditOptions& options, TerminalUi& ui);

struct PresetOptions {
    std::string action;             ///< show, extract, apply
    std::vector<std::string> paths; ///< in the order of the command line
    std::string item, to;
    bool json = false, force = false;
    InputOptions input;
};
int runPreset(const PresetOptions& options, TerminalUi& ui);

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
