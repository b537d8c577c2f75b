// The failure pair, the diagnostics and the user interface of the work that this thread does.
#pragma once

#include <fmt/format.h>

#include <string>

#include "base/diagnostics.h"
#include "base/user_interface.h"

namespace kv {

/// Why the last failing function failed. Set once, where the failure was noticed.
struct ErrorPair {
    std::string context; ///< short name of what failed, such as "Import" or "wav_Exp"
    std::string message; ///< for the user
};

/// Everything below the model that belongs to a run of work and not to the process. One is current per
/// thread; without any, a silent one of the thread's own is.
struct RunContext {
    ErrorPair error;
    Diagnostics diagnostics;
    UserInterface* ui = nullptr; ///< null: nobody watches, questions get their safe answer
    bool showMessages = true;    ///< false: message boxes are not shown and count as answered
};

RunContext& runContext();

/// Makes `context` the thread's current one for a block.
class RunContextScope {
public:
    explicit RunContextScope(RunContext& context);
    ~RunContextScope();
    RunContextScope(const RunContextScope&) = delete;
    RunContextScope& operator=(const RunContextScope&) = delete;

private:
    RunContext* previous_;
};

/// Sets the error pair and answers false, so that a failing function ends in `return Fail(...)`.
bool Fail(std::string_view context, std::string_view message);

template <class... Args>
bool Fail(std::string_view context, fmt::format_string<Args...> format,
          Args&&... args) requires(sizeof...(Args) > 0) {
    return Fail(context, std::string_view(fmt::format(format, std::forward<Args>(args)...)));
}

/// Shows a message: product title without a caption. Answers 1 at once when messages are off.
int ShowMessage(std::string_view caption, std::string_view text, u32 style = kDefaultMessageStyle);
/// Shows the error pair, with its context as caption.
void ShowLastError();
/// Asks a question; without a user interface, or with messages off, answers `safe`.
int Ask(std::string_view caption, std::string_view question, std::span<const std::string_view> buttons,
        int safe);
/// Shows a text on the status line; without one, clears it.
void PostStatus(std::string_view text = {}, StatusKind kind = StatusKind::Normal);
void ShowProgress(u64 done, u64 total);
bool CancelRequested();
void Refresh(u32 select = 0);

inline constexpr std::string_view kProductTitle = "Kelvane Studio";

} // namespace kv
