#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "formats/banks/sfz/sfz_tokenizer.h"

namespace kv {
namespace {

/// Tokens in a form that is easy to compare: "<region>", "key=60", "word", "//comment", "#define $A 1", "-".
std::string tokensOf(std::string_view text) {
    SfzTokenizer tokenizer(text);
    std::string all;
    for (SfzToken t = tokenizer.next(); t.kind != SfzTokenKind::End; t = tokenizer.next()) {
        if (!all.empty()) all += '|';
        const std::string name(t.name), value(t.value);
        switch (t.kind) {
            case SfzTokenKind::Word:
                all += name;
                break;
            case SfzTokenKind::Comment:
                all += "//" + value;
                break;
            case SfzTokenKind::BlankLine:
                all += "-";
                break;
            case SfzTokenKind::Section:
                all += "<" + name + ">";
                break;
            case SfzTokenKind::Directive:
                all += "#" + name + " " + value;
                break;
            default:
                all += name + "=" + value;
        }
    }
    return all;
}

TEST(SfzTokenizer, CutsTextsOfEveryShape) {
    struct Case {
        std::string_view text, tokens;
    };
    using namespace std::string_view_literals;
    const Case cases[] = {
        {"", ""},
        {" \t\r\n ", ""},
        {"<region>key=60 lovel=1", "<region>|key=60|lovel=1"},
        {"<region> key=60\tlovel=1\blokey=2", "<region>|key=60|lovel=1|lokey=2"},
        {"a\n\nb\r\n\r\nc\r\nd", "a|-|b|-|c|d"},
        {"// one\n//// two\n/", "//one|//two|//"},
        {"key=60 // middle C\nkey=61", "key=60|//middle C|key=61"},
        {"<region\n<group>", "<region|<group>"},
        {"<>x=1", "<>|x=1"},
        {"lost words\nkey=1", "lost words|key=1"},
        {"lost words key=1", "lost words key=1"},
        {"key=\nlokey=2", "key=|lokey=2"},
        {"key=1\0lokey=2\0word\0"sv, "key=1|lokey=2|word"},
        // Values with blanks.
        {"sample=My Piano C3.wav lokey=60", "sample=My Piano C3.wav|lokey=60"},
        {"sample=My Piano C3.wav  \r\nlokey=60", "sample=My Piano C3.wav|lokey=60"},
        {"sample= a.wav", "sample=a.wav"},
        {"sample= key=60", "sample=|key=60"},
        {"sample=a=b.wav key=1", "sample=a=b.wav|key=1"},
        {"sample=../a//b.wav // why", "sample=../a//b.wav|//why"},
        {"sample=a.wav <region> sample=b.wav", "sample=a.wav|<region>|sample=b.wav"},
        {"default_path=My Samples\\ note_offset=1", "default_path=My Samples\\|note_offset=1"},
        {"Sample=a b", "Sample=a|b"},
        // Directives.
        {"#include \"a b=c.sfz\"\n#define $KEY 60 \nkey=$KEY",
         "#include \"a b=c.sfz\"|#define $KEY 60|key=$KEY"},
        {"#other x=1", "#other x=1"},
    };
    for (const Case& c : cases) EXPECT_EQ(tokensOf(c.text), c.tokens) << c.text;
}

TEST(SfzTokenizer, TakesTimeInProportionToItsText) {
    constexpr std::size_t kBytes = 4 << 20;
    for (const std::string_view part :
         {"sample=", "<", "/", "a ", "=", "sample=x ", "<a>", "\n", "#include", "$"}) {
        std::string text;
        while (text.size() < kBytes) text += part;
        SfzTokenizer tokenizer(text);
        const auto start = std::chrono::steady_clock::now();
        while (tokenizer.next().kind != SfzTokenKind::End) {
        }
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << part;
    }
}

} // namespace
} // namespace kv
