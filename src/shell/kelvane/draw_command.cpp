// `kelvane draw`: waves as pictures.
#include <fmt/format.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>

#include "base/run_context.h"
#include "draw/canvas.h"
#include "draw/wave_picture.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "shell/kelvane/commands.h"
#include "shell/kelvane/frame_range.h"
#include "shell/kelvane/item_selector.h"
#include "shell/kelvane/terminal_ui.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kContext = "draw";
constexpr std::string_view kAllWaves = "all", kToStream = "-";

/// "1200x600"
bool readSize(std::string_view text, PictureOptions& picture) {
    const char* const end = text.data() + text.size();
    const auto width = std::from_chars(text.data(), end, picture.width);
    if (width.ec == std::errc() && width.ptr != end && *width.ptr == 'x') {
        const auto height = std::from_chars(width.ptr + 1, end, picture.height);
        if (height.ec == std::errc() && height.ptr == end) return true;
    }
    return Fail(kContext, "\"{}\" is no size as WIDTHxHEIGHT", text);
}

bool readPicture(const DrawOptions& options, PictureOptions& picture) {
    picture.kind = options.spectrum      ? PictureKind::Spectrum
                   : options.spectrogram ? PictureKind::Spectrogram
                   : options.loop        ? PictureKind::Loop
                                         : PictureKind::Waveform;
    picture.dark = options.dark;
    if (!readSize(options.size, picture)) return false;
    return options.range.empty() ||
           readFrameRange(options.range, kContext, picture.span.from, picture.span.to);
}

/// The waves to be drawn: the first one when none was chosen.
bool chooseWaves(const DrawOptions& options, std::vector<const Wave*>& waves) {
    for (const std::string& selector : options.waves) {
        if (selector == kAllWaves) {
            for (const Wave& wave : store().all<Wave>()) waves.push_back(&wave);
            continue;
        }
        const Item* item = selectItem(selector);
        if (!item) return false;
        if (classOf(item->id()) != kWaveClass) return Fail(kContext, "\"{}\" is no wave", selector);
        waves.push_back(static_cast<const Wave*>(item));
    }
    if (options.waves.empty() && store().First<Wave>()) waves.push_back(store().First<Wave>());
    if (waves.empty()) return Fail(kContext, "\"{}\" holds no waves", options.path);
    return options.output != kToStream || waves.size() == 1 ||
           Fail(kContext, "Standard output takes one picture, but {} waves were chosen", waves.size());
}

/// "out.png" as "out - 2.png", when there is more than one picture.
fs::path pathOf(const fs::path& output, std::size_t number, std::size_t count) {
    if (count == 1) return output;
    return output.parent_path() /
           fmt::format("{} - {}{}", output.stem().string(), number, output.extension().string());
}

bool save(Image& image, const fs::path& path, bool force) {
    if (path == kToStream) {
        StreamSink sink(STDOUT_FILENO);
        return writePng(image, sink);
    }
    std::error_code ignored;
    if (!force && fs::is_regular_file(path, ignored))
        return Fail(kContext, "\"{}\" exists already; --force replaces it", path.string());
    const std::unique_ptr<SaveFile> file = SaveFile::create(path);
    if (!file) return Fail(kContext, "\"{}\" could not be created", path.string());
    return writePng(image, *file) && (file->commit() || Fail(kContext, "Writing to file failed"));
}

} // namespace

int runDraw(const DrawOptions& options, TerminalUi& ui) {
    PictureOptions picture;
    if (!readPicture(options, picture)) {
        reportFailure();
        return kUsage;
    }
    std::vector<const Wave*> waves;
    if (!openInput(options.path, options.input, ui) || !chooseWaves(options, waves)) return reportFailure();
    std::size_t failures = 0;
    Image image;
    for (std::size_t i = 0; i < waves.size() && !interrupted(); ++i) {
        const fs::path path = pathOf(options.output, i + 1, waves.size());
        if (drawPicture(*waves[i], picture, image) && save(image, path, options.force)) continue;
        reportFailure();
        ++failures;
    }
    if (interrupted()) return kInterrupted;
    return failures == 0 ? kDone : failures < waves.size() ? kSomeFailed : kFailed;
}

} // namespace kv
