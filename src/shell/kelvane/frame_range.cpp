#include "shell/kelvane/frame_range.h"

#include <charconv>

#include "base/run_context.h"

namespace kv {
namespace {

bool readFrame(std::string_view text, u32& frame) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), frame);
    return error == std::errc() && end == text.data() + text.size();
}

} // namespace

bool readFrameRange(std::string_view text, std::string_view context, u32& from, u32& to) {
    const std::size_t colon = text.find(':');
    const std::string_view first = text.substr(0, colon);
    const std::string_view last = colon == std::string_view::npos ? "" : text.substr(colon + 1);
    from = 0;
    to = UINT32_MAX;
    if (colon != std::string_view::npos && (first.empty() || readFrame(first, from)) &&
        (last.empty() || readFrame(last, to)) && from < to)
        return true;
    return Fail(context, "\"{}\" is no range of frames as FROM:TO", text);
}

} // namespace kv
