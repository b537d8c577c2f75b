#include "batch/batch_names.h"

#include <fmt/format.h>

#include <cmath>

#include "base/text.h"
#include "formats/framework/format_table.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestName = 240; // bytes, of the 255 that file systems take

std::string_view shortened(std::string_view text, std::size_t bytes) {
    for (std::size_t characters = text.size(); text.size() > bytes;)
        text = cutToCharacters(text, --characters);
    return text;
}

/// "%.2f kbps", "%.1f kbps" or "%d kbps": the shortest that is exact to a hundredth.
std::string rateText(f32 kbps) {
    const long hundredths = std::lround(kbps * 100);
    if (hundredths % 10 != 0) return fmt::format("{:.2f} kbps", kbps);
    if (hundredths % 100 != 0) return fmt::format("{:.1f} kbps", kbps);
    return fmt::format("{} kbps", hundredths / 100);
}

} // namespace

fs::path keptFolders(const BatchJob& job, const fs::path& source, u32 treeDepth) {
    if (!job.keepSubdirs && !job.keepTree) return {};
    const fs::path folder = source.parent_path().relative_path();
    const auto count = static_cast<i64>(std::distance(folder.begin(), folder.end()));
    const i64 levels = job.keepTree ? i64{treeDepth} : i64{job.pathLevels};
    const i64 dropped = job.keepTree || levels >= 0 ? count - levels : -levels;
    fs::path kept;
    i64 index = 0;
    for (const fs::path& part : folder) {
        if (index++ >= dropped) kept /= part;
    }
    return kept;
}

std::string outputFolderName(const BatchOutput& output) {
    std::string name(workspace().formats->RowDescription(output.row));
    std::string_view data;
    if ((output.format & kCodeMask) == kCompressed || output.bitRate > 0)
        name += " - " + rateText(output.bitRate);
    else if (FormatCodeInfo(output.format & kCodeMask, &data, nullptr))
        name += fmt::format(" - {}", data);
    const u32 channels = output.format & (kMonoBit | kStereoBit);
    if (channels == kMonoBit) name += " - Mono";
    if (channels == kStereoBit) name += " - Stereo";
    for (char& c : name) {
        if (c == '/') c = '_'; // as in "Sun/NeXT/DEC audio"
    }
    return name;
}

fs::path targetFolder(const BatchJob& job, const BatchOutput& output, const fs::path& source, u32 treeDepth) {
    fs::path folder = job.sameDirAsSource ? source.parent_path() : job.outputDir;
    if (!job.sameDirAsSource) folder /= keptFolders(job, source, treeDepth);
    if (job.outputs.size() > 1 && job.separateSubdirs) folder /= outputFolderName(output);
    return folder;
}

fs::path targetFile(const fs::path& folder, std::string_view stem, std::string_view suffix,
                    const BatchOutput& output) {
    const std::string_view extension = workspace().formats->RowExtension(output.row);
    const std::string end = suffix.empty() ? "" : " - " + fileNameFor(suffix);
    const std::string_view cut = shortened(end, kLongestName / 2);
    const std::string_view begin = shortened(stem, kLongestName - cut.size() - extension.size());
    return folder / fmt::format("{}{}.{}", begin, cut, extension);
}

} // namespace kv
