// A batch conversion: what is made of each of many files, and where it goes.
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/integers.h"
#include "formats/framework/drivers.h"

namespace kv {

/// What is taken out of a file and saved.
enum class BatchMode : u8 { Waves, Instruments, Collections, Songs };
struct BatchModeInfo {
    std::string_view slug;    ///< "waves"
    u32 classBit;             ///< of the items that a row must hold
    std::string_view missing; ///< what a file without such items is answered with
};
const BatchModeInfo& infoOf(BatchMode mode);
std::span<const BatchModeInfo> batchModes(); ///< in the order of the values

/// One of the formats that each file is written in.
struct BatchOutput {
    int row = -1;
    u32 format = kAnyFormat; ///< data format codes and channel bits that are wanted
    f32 bitRate = 0;         ///< kbit/s
};
inline constexpr std::size_t kMostOutputs = 5;

/// An audio effect plug-in with its settings, as "gain=3 mix=0.5".
struct BatchEffect {
    std::string effect, settings;
};
inline constexpr std::size_t kMostEffects = 4;

struct BatchJob {
    BatchMode mode = BatchMode::Waves;
    std::vector<BatchOutput> outputs; ///< one to five
    std::filesystem::path outputDir;
    bool separateSubdirs = true; ///< with several outputs each has a folder, named by format and data format
    bool overwriteAll = false;
    bool sameDirAsSource = false;
    bool keepSubdirs = false; ///< folders of the source path are made again in the output folder
    i32 pathLevels = 1;       ///< n: the lowest n of them; -n: all but the upper n
    bool keepTree = false;    ///< those below the input folder that a file was found in
    bool splitStereo = false; ///< excludes `mergeStereo`
    bool mergeStereo = false;
    bool normalize = false; ///< the peak becomes full scale
    bool trimStart = false, trimEnd = false;
    f32 silenceThreshold = 0.01F; ///< linear, 0..1
    bool thresholdInDb = true;    ///< the unit that it is shown in
    bool resample = false;
    u32 resampleRate = 44100; ///< Hz
    bool onlyDownsample = false;
    u32 resampleQuality = 8;             ///< of `ResamplerSettings`
    std::vector<BatchEffect> plugins;    ///< at most four, in order
    std::vector<std::string> algorithms; ///< calls, as "remove-dc-offset", in order
    bool autoMergeSongs = false; ///< a song without instruments takes those of a DLS or SF2 file beside it
};

/// A plain member of the job, with its name in job files and on the command line.
struct BatchOption {
    std::string_view name, help;
    std::variant<bool BatchJob::*, i32 BatchJob::*, u32 BatchJob::*> member;
    i64 least = 0, most = 1; ///< of numbers
};
std::span<const BatchOption> batchOptions();

/// Reads a level as "1%", "-40dB" or "0.01". False with the error pair set.
bool readLevel(std::string_view text, f32& level);
/// The level in the job's unit.
std::string levelText(f32 level, bool inDb);

/// Reads "FORMAT[,data=NAME][,channels=mono|stereo|auto][,bit-rate=KBPS]", where FORMAT is a row's number,
/// extension or description. False with the error pair set when it names nothing that can be written.
bool readOutput(std::string_view text, BatchMode mode, BatchOutput& output);
std::string outputText(const BatchOutput& output);

/// Reads "NAME[,symbol=value symbol=value]".
BatchEffect readEffect(std::string_view text);
/// The job runs plug-ins, among its effects or its algorithms.
bool usesEffects(const BatchJob& job);

/// False with the error pair set for a job that can't be run.
bool checkJob(const BatchJob& job);

/// A job and its inputs in a TOML file, as the window saves it and the command line reads it.
struct BatchJobFile {
    BatchJob job;
    std::vector<std::string> inputs;
};
/// False with the error pair set when there is anything in the text that isn't understood.
bool parseJobFile(std::string_view text, BatchJobFile& file);
std::string jobFileText(const BatchJobFile& file);

/// A number that two jobs share only when they make the same of every file.
u64 fingerprint(const BatchJob& job);

} // namespace kv
