// Opening an input, with what the options say of files that detection can't know.
#include <fmt/format.h>

#include "formats/audio/raw.h"
#include "formats/framework/drivers.h"
#include "formats/framework/format_table.h"
#include "formats/framework/row_choice.h"
#include "model/collection.h"
#include "model/sample_blocks.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "shell/kelvane/commands.h"
#include "shell/kelvane/terminal_ui.h"

namespace kv {
namespace {

/// Puts what the options say of the samples over `source`.
bool describeRaw(const InputOptions& options, RawSource& source) {
    if (options.rawFormat) {
        const u32 code = FormatCodeByName(*options.rawFormat);
        if (code == 0) return Fail("Import", "\"{}\" is no data format", *options.rawFormat);
        source.dataFormat = code;
    }
    if (options.rawBigEndian) source.dataFormat |= kByteswap;
    if (options.rawUnsigned) source.dataFormat |= kUnsigned;
    if (options.rawChannels) source.channels = *options.rawChannels;
    if (options.rawRate) source.sampleRate = *options.rawRate;
    if (options.rawOffset) source.offset = *options.rawOffset;
    return true;
}

} // namespace

bool openInput(const std::string& path, const InputOptions& options, TerminalUi& ui) {
    int row = kDetectRow;
    if (!options.as.empty()) {
        row = chooseRow(options.as, RowUse::Read);
        if (row < 0) return Fail("Import", "\"{}\" is no format that can be read", options.as);
    }
    workspace().rawSource.codeBits = options.codecBits;
    if (options.raw()) {
        if (!describeRaw(options, workspace().rawSource)) return false;
        ui.answer = [](std::string_view caption) { return caption == "Unknown file type!" ? 0 : -1; };
    }
    if (!Import(path, options.raw(), row)) return false;

    const Collection* collection = store().First<Collection>();
    const FormatRow* format = workspace().formats->row(collection->sourceFormat);
    if (!options.raw() || !format || format->detectFn != detectAlways2) return true;
    for (Wave& wave : store().all<Wave>()) {
        RawSource source{wave.dataFormat, wave.sampleRate, wave.channels, wave.sourceOffset};
        if (!describeRaw(options, source) || !reinterpretSource(wave, source, static_cast<u64>(-1)))
            return false;
    }
    return true;
}

} // namespace kv
