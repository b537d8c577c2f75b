#include "base/run_context.h"

#include <utility>

namespace kv {
namespace {
thread_local RunContext* current = nullptr;
}

RunContext& runContext() {
    thread_local RunContext silent;
    return current ? *current : silent;
}

RunContextScope::RunContextScope(RunContext& context) : previous_(std::exchange(current, &context)) {}
RunContextScope::~RunContextScope() {
    current = previous_;
}

bool Fail(std::string_view context, std::string_view message) {
    runContext().error = {std::string(context), std::string(message)};
    return false;
}

int ShowMessage(std::string_view caption, std::string_view text, u32 style) {
    const RunContext& context = runContext();
    if (!context.showMessages || !context.ui) return 1;
    return context.ui->showMessage(caption.empty() ? kProductTitle : caption, text,
                                   style == 0 ? kDefaultMessageStyle : style);
}

void ShowLastError() {
    const ErrorPair error = runContext().error;
    ShowMessage(error.context, error.message);
}

int Ask(std::string_view caption, std::string_view question, std::span<const std::string_view> buttons,
        int safe) {
    const RunContext& context = runContext();
    if (!context.showMessages || !context.ui) return safe;
    return context.ui->ask(caption.empty() ? kProductTitle : caption, question, buttons, safe);
}

void PostStatus(std::string_view text, StatusKind kind) {
    if (UserInterface* ui = runContext().ui) ui->postStatus(text, kind);
}

void ShowProgress(u64 done, u64 total) {
    if (UserInterface* ui = runContext().ui) ui->showProgress(done, total);
}

bool CancelRequested() {
    UserInterface* ui = runContext().ui;
    return ui && ui->cancelRequested();
}

void Refresh(u32 select) {
    if (UserInterface* ui = runContext().ui) ui->refresh(select);
}

} // namespace kv
