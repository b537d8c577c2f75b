// Cuts the text of an SFZ bank into sections, opcodes and comments.
#pragma once

#include <string_view>

#include "base/integers.h"

namespace kv {

enum class SfzTokenKind : u8 {
    End,
    Word,      ///< a line, or the rest of one, without "="
    Comment,   ///< `value`: the text behind the slashes
    BlankLine, ///< two line ends in a row
    Section,   ///< `name`: without the brackets
    Opcode,    ///< `name` and `value`
    Directive, ///< `name`: "include" or "define"; `value`: the rest of the line
};

/// Views into the text.
struct SfzToken {
    SfzTokenKind kind = SfzTokenKind::End;
    std::string_view name, value;
};

class SfzTokenizer {
public:
    /// The text must outlive the tokens.
    explicit SfzTokenizer(std::string_view text) : text_(text) {}

    /// The next token; each byte is looked at a fixed number of times, whatever the text holds.
    SfzToken next();

private:
    bool skipSeparators();
    SfzToken comment();
    SfzToken section();
    SfzToken directive(std::string_view name);
    SfzToken opcode();
    std::string_view plainValue();
    std::string_view pathValue();
    std::size_t lineEnd(std::size_t from) const;

    std::string_view text_;
    std::size_t at_ = 0;
};

/// Without blanks at both ends.
std::string_view sfzTrim(std::string_view text);

} // namespace kv
