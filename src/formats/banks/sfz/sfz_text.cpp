#include "formats/banks/sfz/sfz_text.h"

#include <algorithm>

#include "base/run_context.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

constexpr u64 kMostBytes = u64{64} << 20; // of all text together
constexpr u32 kMostIncludes = 4096;
constexpr std::size_t kMostDepth = 16;
constexpr std::size_t kMostDefines = 65'536;
constexpr std::size_t kLongestName = 64, kLongestDefine = 256;
constexpr std::size_t kLongestExpansion = 65'536;

void warn(std::string_view field, std::string text) {
    runContext().diagnostics.warn(0, std::string(field), std::move(text));
}

/// Stored text as UTF-8. Zero bytes stay: to the tokenizer they are line ends.
std::string decoded(const Bytes& bytes) {
    std::string_view text = textOf(bytes);
    if (text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF")) return textFromBytes(bytes);
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    return isUtf8(text) ? std::string(text) : AnsiToUtf8(text);
}

bool isNamePart(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

/// The name that a text begins with.
std::string_view nameAtStart(std::string_view text) {
    const auto* end = std::find_if_not(text.begin(), text.end(), isNamePart);
    return text.substr(0, static_cast<std::size_t>(end - text.begin()));
}

} // namespace

SfzText::SfzText(ByteSource& source, const fs::path& path, SfzFolder& folder) : folder_(folder) {
    open(source, path);
}

void SfzText::open(ByteSource& source, const fs::path& path) {
    const u64 size = std::min(source.size(), kMostBytes - bytes_);
    if (size < source.size()) warn("text", "the text is too long; the rest was left out");
    Bytes bytes(static_cast<std::size_t>(size));
    bytes.resize(source.readAt(0, bytes));
    bytes_ += bytes.size();
    auto text = std::make_unique<const std::string>(decoded(bytes));
    const SfzTokenizer tokenizer(*text);
    std::error_code ignored;
    files_.push_back({std::move(text), tokenizer, fs::weakly_canonical(path, ignored)});
}

SfzToken SfzText::next() {
    while (!files_.empty()) {
        SfzToken token = files_.back().tokenizer.next();
        if (token.kind == SfzTokenKind::Directive) {
            token.name == "include" ? include(token.value) : define(token.value);
        } else if (token.kind == SfzTokenKind::End) {
            files_.pop_back();
        } else {
            if (token.kind != SfzTokenKind::Comment) {
                token.name = name_.of(token.name, *this);
                token.value = value_.of(token.value, *this);
            }
            return token;
        }
    }
    return {};
}

void SfzText::include(std::string_view value) {
    const std::size_t open = value.find('"'), close = value.find('"', open + 1);
    const bool quoted = open != value.npos && close != value.npos;
    Expanded expanded;
    const std::string_view name =
        expanded.of(quoted ? value.substr(open + 1, close - open - 1) : sfzTrim(value), *this);
    const std::string shown(name.substr(0, 300));
    if (++includes_ > kMostIncludes || files_.size() > kMostDepth) {
        if (includes_ <= kMostIncludes + 1) warn("#include", "too many included files: " + shown);
        return;
    }
    const std::optional<fs::path> path = folder_.find(name);
    const std::shared_ptr<ByteSource> source = path ? openFileSource(*path) : nullptr;
    if (!source) return warn("#include", "not found: " + shown);
    std::error_code ignored;
    const fs::path canonical = fs::weakly_canonical(*path, ignored);
    const bool cycle =
        std::any_of(files_.begin(), files_.end(), [&](const Open& f) { return f.path == canonical; });
    if (cycle) return warn("#include", "a file can't include itself: " + shown);
    if (folder_.isOutside(*path)) warn("#include", "outside of the bank's folder: " + shown);
    this->open(*source, *path);
}

void SfzText::define(std::string_view value) {
    if (!value.starts_with('$')) return;
    const std::string_view name = nameAtStart(value.substr(1));
    if (name.empty() || name.size() > kLongestName || defines_.size() >= kMostDefines) return;
    Expanded expanded;
    std::string_view text = sfzTrim(value.substr(1 + name.size()));
    text = expanded.of(text.substr(0, text.find_first_of(" \t")), *this);
    defines_[std::string(name)] = text.substr(0, kLongestDefine);
}

/// Appends what the "$" at the start of the text stands for; returns the bytes that it took. Names need no
/// end mark: the longest that is defined counts.
std::size_t SfzText::replaceAt(std::string_view text, std::string& to) const {
    for (std::string_view name = nameAtStart(text.substr(1, kLongestName)); !name.empty();
         name.remove_suffix(1)) {
        const auto found = defines_.find(std::string(name));
        if (found == defines_.end()) continue;
        to += found->second;
        return 1 + name.size();
    }
    to += '$';
    return 1;
}

std::string_view SfzText::Expanded::of(std::string_view text, const SfzText& names) {
    if (names.defines_.empty() || text.find('$') == text.npos) return text;
    text_.clear();
    while (!text.empty() && text_.size() < kLongestExpansion) {
        const std::size_t plain = std::min(text.find('$'), text.size());
        text_ += text.substr(0, plain);
        text.remove_prefix(plain);
        if (!text.empty()) text.remove_prefix(names.replaceAt(text, text_));
    }
    return text_;
}

} // namespace kv
