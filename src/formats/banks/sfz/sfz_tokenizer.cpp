#include "formats/banks/sfz/sfz_tokenizer.h"

#include <algorithm>

namespace kv {
namespace {

constexpr std::string_view kLineEnds("\n\r\0", 3);
constexpr std::string_view kBlanks(" \t\b", 3);
constexpr std::string_view kValueEnds("< \t\b\n\r\0", 7);

bool isBlank(char c) {
    return kBlanks.find(c) != kBlanks.npos;
}

/// Control characters stand between tokens like blanks do.
bool isSeparator(char c) {
    return static_cast<u8>(c) <= ' ';
}

} // namespace

std::string_view sfzTrim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == text.npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

std::size_t SfzTokenizer::lineEnd(std::size_t from) const {
    return std::min(text_.find_first_of(kLineEnds, from), text_.size());
}

/// True when an empty line was passed; it stops behind that line.
bool SfzTokenizer::skipSeparators() {
    int lineEnds = 0;
    for (; at_ < text_.size() && isSeparator(text_[at_]); ++at_) {
        const char c = text_[at_];
        if (c == '\n' && at_ > 0 && text_[at_ - 1] == '\r') continue;
        if (c != '\n' && c != '\r') continue;
        if (++lineEnds < 2) continue;
        ++at_;
        return true;
    }
    return false;
}

SfzToken SfzTokenizer::next() {
    if (skipSeparators()) return {SfzTokenKind::BlankLine, {}, {}};
    if (at_ >= text_.size()) return {};
    if (text_[at_] == '/') return comment();
    if (text_[at_] == '<') return section();
    for (const std::string_view name : {"include", "define"}) {
        if (text_[at_] == '#' && text_.substr(at_ + 1).starts_with(name)) return directive(name);
    }
    return opcode();
}

SfzToken SfzTokenizer::comment() {
    const std::size_t end = lineEnd(at_);
    std::size_t start = at_;
    while (start < end && (text_[start] == '/' || isBlank(text_[start]))) ++start;
    at_ = end;
    return {SfzTokenKind::Comment, {}, text_.substr(start, end - start)};
}

SfzToken SfzTokenizer::section() {
    constexpr std::string_view kEnds(">\n\r\0", 4);
    const std::size_t start = at_ + 1;
    const std::size_t end = std::min(text_.find_first_of(kEnds, start), text_.size());
    at_ = end;
    if (end == text_.size() || text_[end] != '>')
        return {SfzTokenKind::Word, text_.substr(start - 1, end - start + 1), {}};
    ++at_;
    return {SfzTokenKind::Section, text_.substr(start, end - start), {}};
}

SfzToken SfzTokenizer::directive(std::string_view name) {
    const std::size_t start = at_ + 1 + name.size();
    at_ = lineEnd(start);
    return {SfzTokenKind::Directive, name, sfzTrim(text_.substr(start, at_ - start))};
}

SfzToken SfzTokenizer::opcode() {
    const std::size_t start = at_;
    for (; at_ < text_.size() && kLineEnds.find(text_[at_]) == kLineEnds.npos; ++at_) {
        if (text_[at_] != '=') continue;
        const std::string_view name = text_.substr(start, at_++ - start);
        const bool path = name == "sample" || name == "default_path";
        return {SfzTokenKind::Opcode, name, path ? pathValue() : plainValue()};
    }
    return {SfzTokenKind::Word, text_.substr(start, at_ - start), {}};
}

std::string_view SfzTokenizer::plainValue() {
    const std::size_t start = at_;
    at_ = std::min(text_.find_first_of(kValueEnds, start), text_.size());
    return text_.substr(start, at_ - start);
}

/// A path may hold blanks: it ends before the name of the next opcode, a section or a comment on the line.
std::string_view SfzTokenizer::pathValue() {
    const std::size_t start = at_;
    std::size_t blank = start; // the last one that was passed
    bool passed = false;
    for (; at_ < text_.size(); ++at_) {
        const char c = text_[at_];
        if (c == '<' || kLineEnds.find(c) != kLineEnds.npos) break;
        if (isBlank(c)) {
            blank = at_;
            passed = true;
        } else if (passed && blank + 1 == at_ && text_.substr(at_, 2) == "//") {
            break;
        } else if (c == '=' && passed) {
            at_ = blank;
            break;
        }
    }
    return sfzTrim(text_.substr(start, at_ - start));
}

} // namespace kv
