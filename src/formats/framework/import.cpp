#include <fmt/format.h>

#include <algorithm>

#include "base/run_context.h"
#include "formats/framework/detection.h"
#include "formats/framework/drivers.h"
#include "formats/framework/format_table.h"
#include "model/collection.h"
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/loops.h"
#include "model/move_articulation.h"
#include "model/sample_blocks.h"
#include "model/stereo.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

/// Sets a flag for a block.
class FlagScope {
public:
    explicit FlagScope(bool& flag) : flag_(flag) { flag_ = true; }
    ~FlagScope() { flag_ = false; }
    FlagScope(const FlagScope&) = delete;
    FlagScope& operator=(const FlagScope&) = delete;

private:
    bool& flag_;
};

bool openForImport(const fs::path& path, FileContext& file) {
    file.path = path;
    file.source = openFileSource(path);
    if (file.source) return true;
    auto& lastFiles = settings().app.LastFilesA;
    std::erase_if(lastFiles,
                  [&](const std::string& known) { return equalIgnoringCase(known, path.native()); });
    return Fail("Import", "Could not open file");
}

bool chooseRow(const FormatTable& formats, FileContext& file, bool allowUnrecognized, int& row) {
    if (row != kDetectRow) return formats.row(row) || Fail("Import", "Not a supported import file type");
    int confidence = 0;
    row = DetectFile(formats, file.path, file, confidence);
    if (row < 0) return Fail("Import", "Not a supported import file type");
    return confidence > 0 || allowUnrecognized || Fail("Import", kNotDetected);
}

/// The data format code that a wave read as plain samples is saved in by preference; 0: leave it.
u32 preferredFormatOf(u32 dataFormat) {
    switch (const u32 code = dataFormat & kCodeMask) {
        case kPcm8:
        case kPcm16:
        case kPcm24:
        case kPcm32:
        case kFloat32:
        case kMuLaw:
        case kALaw:
            return code;
        case kFloat64:
            return kFloat32;
        case kDeltaPcm8:
            return kPcm8;
        case kDeltaPcm16:
            return kPcm16;
        case kRevMuLaw:
            return kMuLaw;
        case kRevALaw:
            return kALaw;
        default:
            return 0;
    }
}

void finishImport() {
    for (Wave& wave : store().all<Wave>()) {
        const u32 preferred = wave.reader == &genericReader ? preferredFormatOf(wave.dataFormat) : 0;
        if (preferred != 0) wave.preferredFormat = preferred;
    }
    FixUpAll(kAllClasses);
    const auto& load = settings().load;
    if (load.bAutoMoveArticulation) moveArticulationUp(true, true);
    const Collection& collection = *store().First<Collection>();
    u32 stereoWaves = 0;
    if (load.bAutoSplitStereo) SplitStereo(collection);
    if (load.bAutoMergeStereo) MergeStereo(collection, stereoWaves, true, true, true);
    if (load.bAutoAppend32) AppendLoopTail(true);
    if (load.bAutoBid2Fwd || load.bAutoRev2Fwd) UnrollLoops(true, true);
    store().sort(kInstrumentClass, patchBefore);
}

void leaveEmptyCollection() {
    store().DeleteAllItems();
    store().Create<Collection>()->SetName("Empty collection", false);
}

} // namespace

bool Import(const fs::path& path, bool allowUnrecognized, int row) {
    const FormatTable& formats = *workspace().formats;
    FileContext file;
    if (!openForImport(path, file) || !chooseRow(formats, file, allowUnrecognized, row)) return false;
    const FormatRow& format = *formats.row(row);
    if (!format.importFn) {
        return Fail("Import", "\"{}\" files are known, but this version can't read them yet",
                    format.description);
    }
    if (store().anyLocked()) {
        return Fail("Import", "Can't open a new file while something is still open for editing or playing");
    }
    store().DeleteAllItems();
    bool done = false;
    {
        const FlagScope importing(workspace().importInProgress);
        Collection* collection = store().Create<Collection>(path);
        collection->sourceFormat = row;
        done = format.importFn(*collection, file, format.subType);
    }
    PostStatus();
    if (done)
        finishImport();
    else
        leaveEmptyCollection();
    Refresh(store().First<Collection>()->id());
    return done;
}

} // namespace kv
