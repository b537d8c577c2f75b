#include "shell/classic_arguments.h"

#include <algorithm>
#include <utility>

#include "base/text.h"

namespace kv {
namespace {

using Kind = ClassicStep::Kind;

struct Option {
    std::string_view name;
    u32 flags;
    Kind kind = Kind::Done; ///< what it asks for at once; Done: nothing
};
constexpr Option kOptions[] = {
    {"AP", kAutoPlay},
    {"ONCE", kAutoPlay | kPlayOnce},
    {"NOWIN", kAutoPlay | kPlayOnce | kNoWindow},
    {"LOOP", kAutoPlay | kPlayLoop},
    {"DELETE", kDeletePlayed},
    {"BATCH", 0, Kind::RunBatch},
    {"NOMSG", 0, Kind::SilenceBoxes},
};

bool isOption(std::string_view argument) {
    return argument.starts_with('-') || argument.starts_with('/');
}

/// A plain search, which also passes over files with that text anywhere in their name.
bool isProgram(std::string_view argument) {
    return argument.find(".exe") != std::string_view::npos;
}

} // namespace

std::vector<std::string> splitCommandLine(std::string_view line) {
    std::vector<std::string> arguments;
    std::string current;
    bool quoted = false, started = false;
    const auto end = [&] {
        if (started) arguments.push_back(std::exchange(current, {}));
        started = quoted = false;
    };
    for (const char c : line) {
        if (c == '"') {
            if (quoted) {
                end();
            } else {
                quoted = started = true;
            }
        } else if (c == ' ' && !quoted) {
            end();
        } else {
            current += c;
            started = true;
        }
    }
    end();
    return arguments;
}

ClassicStep ClassicScan::next() {
    constexpr u32 kEndless = kPlayLoop | kAutoPlay;
    for (;;) {
        if ((flags_ & kUserStopped) != 0) return {};
        if (at_ == arguments_.size()) {
            if ((flags_ & kEndless) != kEndless || arguments_.empty()) return {};
            at_ = 0;
        }
        const std::string& argument = arguments_[at_++];
        if (isOption(argument)) {
            const std::string_view name = std::string_view(argument).substr(1);
            const auto* option = std::find_if(std::begin(kOptions), std::end(kOptions), [&](const Option& o) {
                return equalIgnoringCase(o.name, name);
            });
            if (option == std::end(kOptions)) return {Kind::ShowUsage, flags_, argument};
            flags_ |= option->flags;
            if (option->kind != Kind::Done) return {option->kind, flags_, {}};
        } else if (!isProgram(argument) && (flags_ & kAutoPlay) != 0) {
            return {Kind::Play, flags_, argument};
        }
    }
}

std::vector<std::string> classicFiles(const std::vector<std::string>& arguments) {
    std::vector<std::string> files;
    for (const std::string& argument : arguments) {
        if (!isOption(argument) && !isProgram(argument)) files.push_back(argument);
    }
    return files;
}

std::filesystem::path programFolderFile(std::string_view name) {
    std::error_code failed;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", failed);
    return (failed ? std::filesystem::current_path(failed) : self.parent_path()) / name;
}

} // namespace kv
