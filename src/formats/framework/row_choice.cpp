#include "formats/framework/row_choice.h"

#include <algorithm>
#include <charconv>

#include "base/text.h"
#include "formats/framework/format_table.h"
#include "model/workspace.h"

namespace kv {
namespace {

/// Of several rows that write the same extension, those that keep the most and that other programs read. For
/// all other extensions it is the first.
constexpr std::string_view kPreferred[] = {"DownLoadable Sounds level 2", "Raw GSM 06.10 'byte aligned'"};

bool isPreferred(const FormatRow& row) {
    return std::find(std::begin(kPreferred), std::end(kPreferred), row.description) != std::end(kPreferred);
}

} // namespace

int chooseRow(std::string_view text, RowUse use) {
    const FormatTable& formats = *workspace().formats;
    const auto usable = [use](const FormatRow& row) {
        return use == RowUse::Read ? row.reads() : row.writes();
    };
    const auto built = [use](const FormatRow& row) {
        return use == RowUse::Read ? row.importFn != nullptr : row.exportFn != nullptr;
    };
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = error == std::errc() && end == text.data() + text.size();
    const FormatRow* numbered = isNumber ? formats.row(number) : nullptr;

    int candidate = -1, known = -1; // built, and not built yet
    for (int i = 0; i < formats.size(); ++i) {
        const FormatRow& row = *formats.row(i);
        const std::string_view extension = text.starts_with('.') ? text.substr(1) : text;
        const bool named = row.description == text || equalIgnoringCase(row.extension, extension);
        if (!named || !usable(row)) continue;
        if (!built(row)) {
            if (known < 0) known = i;
            continue;
        }
        if (row.description == text || (use == RowUse::Write && isPreferred(row))) return i;
        if (candidate < 0) candidate = i;
    }
    if (candidate >= 0 || known >= 0) return candidate >= 0 ? candidate : known;
    for (int i = 0; i < formats.size(); ++i) {
        if (usable(*formats.row(i)) && equalIgnoringCase(formats.row(i)->description, text)) return i;
    }
    return numbered && usable(*numbered) ? number : -1;
}

} // namespace kv
