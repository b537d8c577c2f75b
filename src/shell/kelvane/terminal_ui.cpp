#include "shell/kelvane/terminal_ui.h"

#include <fmt/format.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "base/text.h"

namespace kv {
namespace {

std::atomic<bool> stop = false;

void onSignal(int) {
    stop = true;
}

std::string quoted(std::string_view text) {
    return nlohmann::json(std::string(text)).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace

void catchInterrupts() {
    struct sigaction action {};
    action.sa_handler = onSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
}

bool interrupted() {
    return stop;
}

bool TerminalUi::cancelRequested() {
    return stop;
}

void TerminalUi::event(std::string_view name, std::string_view fields) {
    fmt::print(stderr, "{{\"event\":\"{}\",{}}}\n", name, fields);
}

void TerminalUi::clearLine() {
    if (lineShown_) fmt::print(stderr, "\r\x1b[K");
    lineShown_ = false;
}

void TerminalUi::postStatus(std::string_view text, StatusKind kind) {
    if (style_ == ProgressStyle::Json && !text.empty()) {
        event("status", fmt::format("\"text\":{},\"kind\":{}", quoted(text), static_cast<int>(kind)));
    }
    const bool result = text.starts_with("Saved") || text.starts_with("Done");
    if (result && printResults && !quiet_) {
        clearLine();
        fmt::print("{}\n", text);
    }
    working_ = result ? std::string() : std::string(text);
}

void TerminalUi::showProgress(u64 done, u64 total) {
    if (style_ == ProgressStyle::None) return;
    const Clock::time_point now = Clock::now();
    if (total == 0) {
        running_ = false;
        clearLine();
        return;
    }
    if (!running_) started_ = drawn_ = now;
    running_ = true;
    using namespace std::chrono_literals;
    if (now - started_ < 500ms || now - drawn_ < 100ms) return;
    drawn_ = now;
    if (style_ == ProgressStyle::Json) {
        event("progress", fmt::format("\"done\":{},\"total\":{}", done, total));
        return;
    }
    fmt::print(stderr, "\r\x1b[K{:3} %  {}", done * 100 / total, cutToCharacters(working_, 70));
    std::fflush(stderr);
    lineShown_ = true;
}

int TerminalUi::showMessage(std::string_view caption, std::string_view text, u32) {
    clearLine();
    if (style_ == ProgressStyle::Json) {
        event("message", fmt::format("\"caption\":{},\"text\":{}", quoted(caption), quoted(text)));
    } else {
        fmt::print(stderr, "{}: {}\n", caption, text);
    }
    return 1;
}

int TerminalUi::ask(std::string_view caption, std::string_view question,
                    std::span<const std::string_view> buttons, int safe) {
    int chosen = answer ? answer(caption) : -1;
    const std::string_view wanted = yes ? (*yes ? "Yes" : "No") : "";
    const auto button = std::find(buttons.begin(), buttons.end(), wanted);
    if (chosen < 0 && button != buttons.end()) chosen = static_cast<int>(button - buttons.begin());
    if (chosen < 0) chosen = safe;
    const auto index = static_cast<std::size_t>(chosen);
    if (!answer && index < buttons.size()) {
        clearLine();
        fmt::print(stderr, "{}{}{}\n{}\n", caption, caption.empty() ? "" : ": ", question, buttons[index]);
    }
    return chosen;
}

} // namespace kv
