// The command line as user interface of the core: status and progress on standard error, questions
// answered as the options say.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "base/user_interface.h"

namespace kv {

enum class ProgressStyle : u8 { None, Line, Json };

class TerminalUi final : public UserInterface {
public:
    /// `quiet` leaves out all that is no failure.
    TerminalUi(ProgressStyle style, bool quiet) : style_(style), quiet_(quiet) {}
    bool quiet() const { return quiet_; }
    ~TerminalUi() override { clearLine(); }

    void postStatus(std::string_view text, StatusKind kind) override;
    void showProgress(u64 done, u64 total) override;
    int showMessage(std::string_view caption, std::string_view text, u32 style) override;
    int ask(std::string_view caption, std::string_view question, std::span<const std::string_view> buttons,
            int safe) override;
    bool cancelRequested() override;

    /// What questions are answered with, by their caption.
    std::function<int(std::string_view caption)> answer;
    /// The answer to all questions of yes or no; without one they get the safe answer.
    std::optional<bool> yes;
    /// Results that were posted ("Saved: ...", "Done: ...") are printed on standard output.
    bool printResults = false;

private:
    using Clock = std::chrono::steady_clock;
    void event(std::string_view name, std::string_view fields);
    void clearLine();

    ProgressStyle style_;
    bool quiet_;
    std::string working_; ///< the status text of the work under way
    bool lineShown_ = false;
    Clock::time_point started_{};
    Clock::time_point drawn_{};
    bool running_ = false;
};

/// Ctrl-C asks the work under way to stop; a second one ends the process.
void catchInterrupts();
bool interrupted();

} // namespace kv
