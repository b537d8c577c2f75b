// JSON as it comes, without a tree of it in memory: a bank's description has a million values.
#pragma once

#include <fmt/format.h>

#include <cmath>
#include <concepts>
#include <cstdio>
#include <iterator>
#include <string_view>

#include "base/integers.h"

namespace kv {

/// Prints JSON to a stream. Begin and end of objects and arrays must pair up; keys are for members of
/// objects and are not escaped.
class JsonWriter {
public:
    explicit JsonWriter(std::FILE* out) : out_(out) {}
    ~JsonWriter() { finish(); }
    JsonWriter(const JsonWriter&) = delete;
    JsonWriter& operator=(const JsonWriter&) = delete;

    void beginObject(std::string_view key = {}) { open(key, '{'); }
    void endObject() { close('}'); }
    void beginArray(std::string_view key = {}) { open(key, '['); }
    void endArray() { close(']'); }

    void value(std::string_view key, bool v) { raw(key, v ? "true" : "false"); }
    template <std::integral T>
    void value(std::string_view key, T v) {
        const fmt::format_int digits(v);
        raw(key, {digits.data(), digits.size()});
    }
    /// The shortest number that reads back as the same; null for what is not finite.
    template <std::floating_point T>
    void value(std::string_view key, T v) {
        begin(key);
        if (std::isfinite(v))
            fmt::format_to(std::back_inserter(text_), "{}", v);
        else
            text_.append(std::string_view("null"));
    }
    /// Text of no valid encoding is taken for Windows-1252.
    void value(std::string_view key, std::string_view v);
    void null(std::string_view key) { raw(key, "null"); }
    /// A value that is JSON already.
    void raw(std::string_view key, std::string_view json) {
        begin(key);
        text_.append(json);
    }
    /// Members up to `endObject` stand on one line.
    void beginLineObject(std::string_view key) {
        open(key, '{');
        if (lineDepth_ == 0) lineDepth_ = depth_;
    }
    void finish();

private:
    void begin(std::string_view key);
    void open(std::string_view key, char bracket);
    void close(char bracket);
    void newLine();

    std::FILE* out_;
    fmt::memory_buffer text_;
    std::size_t depth_ = 0;
    bool first_ = true;         ///< nothing stands in the current object or array yet
    std::size_t lineDepth_ = 0; ///< of the outermost object that stands on one line; 0: none
};

} // namespace kv
