// The window program's command line: how it is split, and what its options ask for.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "base/integers.h"

namespace kv {

/// Bits of `commandFlags`.
enum CommandFlag : u32 {
    kPlayOnce = 0x001,
    kNoWindow = 0x002,
    kPlayLoop = 0x004,
    kUserStopped = 0x008, ///< set by the player: ends the loop over files
    kDeletePlayed = 0x100,
    kAutoPlay = 0x200,
};

/// Splits a command line: a blank ends an argument unless inside double quotes; quotes are dropped, and a
/// closing one ends the argument.
std::vector<std::string> splitCommandLine(std::string_view line);

/// What the scan of the arguments asks for next.
struct ClassicStep {
    enum class Kind : u8 {
        Play,         ///< the file or folder `argument`, with `flags`
        ShowUsage,    ///< an option that there isn't
        RunBatch,     ///< the batch wizard, then the end without saving
        SilenceBoxes, ///< no message boxes from now on
        Done,
    };
    Kind kind = Kind::Done;
    u32 flags = 0;
    std::string argument;
};

/// Walks the arguments as the program does at its start. The caller carries each step out and asks for
/// the next; `stop()` tells that the user ended a player.
class ClassicScan {
public:
    explicit ClassicScan(std::vector<std::string> arguments) : arguments_(std::move(arguments)) {}

    ClassicStep next();
    void stop() { flags_ |= kUserStopped; }
    u32 flags() const { return flags_; }

private:
    std::vector<std::string> arguments_;
    std::size_t at_ = 0;
    u32 flags_ = 0;
};

/// Files that a start with a window opens: every argument that is no option and not the program itself.
std::vector<std::string> classicFiles(const std::vector<std::string>& arguments);

inline constexpr std::string_view kUsageText =
    "Command line syntax: Kelvane Studio.EXE [-AP [-ONCE] [-DELETE] [-NOWIN] [-LOOP]] [-UNINSTALL] [-BATCH] "
    "[File1 [File2 ...]]";

/// The path of a file beside the program.
std::filesystem::path programFolderFile(std::string_view name);

} // namespace kv
