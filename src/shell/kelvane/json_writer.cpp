#include "shell/kelvane/json_writer.h"

#include "samples/text_codec.h"

namespace kv {

void JsonWriter::newLine() {
    static constexpr std::string_view kBlanks = "\n                                ";
    if (lineDepth_ == 0) text_.append(kBlanks.substr(0, 1 + std::min(depth_ * 2, kBlanks.size() - 1)));
}

void JsonWriter::begin(std::string_view key) {
    constexpr std::size_t kFlushAt = 65536;
    if (text_.size() >= kFlushAt) {
        std::fwrite(text_.data(), 1, text_.size(), out_);
        text_.clear();
    }
    if (!first_) text_.push_back(',');
    if (depth_ > 0) newLine();
    first_ = false;
    if (key.empty()) return;
    text_.push_back('"');
    text_.append(key);
    text_.append(std::string_view("\": "));
}

void JsonWriter::open(std::string_view key, char bracket) {
    begin(key);
    text_.push_back(bracket);
    ++depth_;
    first_ = true;
}

void JsonWriter::close(char bracket) {
    --depth_;
    if (!first_) newLine();
    if (depth_ < lineDepth_) lineDepth_ = 0;
    text_.push_back(bracket);
    first_ = false;
}

void JsonWriter::value(std::string_view key, std::string_view v) {
    const std::string converted = isUtf8(v) ? std::string() : AnsiToUtf8(v);
    if (!converted.empty()) v = converted;
    begin(key);
    text_.push_back('"');
    for (const char c : v) {
        if (c == '"' || c == '\\') {
            text_.push_back('\\');
            text_.push_back(c);
        } else if (static_cast<unsigned char>(c) < 0x20) {
            fmt::format_to(std::back_inserter(text_), "\\u{:04x}", static_cast<unsigned>(c));
        } else {
            text_.push_back(c);
        }
    }
    text_.push_back('"');
}

void JsonWriter::finish() {
    if (text_.size() == 0) return;
    text_.push_back('\n');
    std::fwrite(text_.data(), 1, text_.size(), out_);
    text_.clear();
}

} // namespace kv
