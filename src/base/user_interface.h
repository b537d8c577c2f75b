// What the core needs of its surroundings. The window shows it, the command line prints it, a test
// scripts the answers.
#pragma once

#include <span>
#include <string_view>

#include "base/integers.h"

namespace kv {

enum class StatusKind : u8 { Normal = 0, Failure = 2 };

/// Styles of `showMessage` and `ask`, as the platform's message boxes number them.
inline constexpr u32 kDefaultMessageStyle = 0x10030; // exclamation, set foreground

class UserInterface {
public:
    virtual ~UserInterface() = default;

    /// The status line; an empty text clears it.
    virtual void postStatus(std::string_view /*text*/, StatusKind /*kind*/) {}
    /// How much of the work under way is done, in any unit; total 0 ends the display.
    virtual void showProgress(u64 /*done*/, u64 /*total*/) {}
    /// A message that needs no decision. Answers 1, as a box with the button OK does.
    virtual int showMessage(std::string_view caption, std::string_view text, u32 style) = 0;
    /// A question. Returns the index of the chosen button; `safe` is the one that loses nothing.
    virtual int ask(std::string_view caption, std::string_view question,
                    std::span<const std::string_view> buttons, int safe) = 0;
    /// The store has changed: show item `select` (0: nothing) and read everything anew.
    virtual void refresh(u32 /*select*/) {}
    /// The user wants the work under way to stop.
    virtual bool cancelRequested() { return false; }
};

} // namespace kv
