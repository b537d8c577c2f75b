// The text of a bank as one stream of tokens: included files stand in the place that names them, and defined
// names are replaced.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/byte_source.h"
#include "formats/banks/sfz/sfz_folder.h"
#include "formats/banks/sfz/sfz_tokenizer.h"

namespace kv {

class SfzText {
public:
    /// Reads a file's text; `path` is the file's own. Included files count from `folder`.
    SfzText(ByteSource& source, const std::filesystem::path& path, SfzFolder& folder);

    /// The next token that is no directive. Its texts hold until the next call.
    SfzToken next();

private:
    struct Open {
        std::unique_ptr<const std::string> text;
        SfzTokenizer tokenizer;
        std::filesystem::path path;
    };
    /// A token's text with its names replaced.
    class Expanded {
    public:
        std::string_view of(std::string_view text, const SfzText& names);

    private:
        std::string text_;
    };

    void open(ByteSource& source, const std::filesystem::path& path);
    void include(std::string_view value);
    void define(std::string_view value);
    std::size_t replaceAt(std::string_view text, std::string& to) const;

    SfzFolder& folder_;
    std::vector<Open> files_; ///< the innermost last
    std::unordered_map<std::string, std::string> defines_;
    Expanded name_, value_;
    u64 bytes_ = 0; ///< of text that was opened
    u32 includes_ = 0;
};

} // namespace kv
