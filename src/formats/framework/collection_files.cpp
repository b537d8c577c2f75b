#include "formats/framework/collection_files.h"

#include <fmt/format.h>

#include <unordered_map>

#include "base/run_context.h"
#include "formats/framework/drivers.h"
#include "formats/framework/format_table.h"
#include "model/collection.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kTooDeep = "Too many files are open at once";

/// Imports beside the current items, which stand on the stack then; on failure they are back.
bool importAside(std::string_view context, const fs::path& path) {
    if (store().anyLocked())
        return Fail("Import", "Can't open a new file while something is still open for editing or playing");
    if (!store().PushLists()) return Fail(context, kTooDeep);
    if (Import(path, true)) return true;
    store().PopAndDiscard();
    return false;
}

} // namespace

void MergeLists() {
    PostStatus("Wait - Merging files...");
    store().PopAndJoin();
    if (Collection* collection = store().First<Collection>()) {
        collection->FixUp();
        Refresh(collection->id());
    }
    PostStatus("Done: Merged files.");
}

bool OpenMerged(const fs::path& path) {
    if (!importAside("OpenMerged", path)) return false;
    MergeLists();
    return true;
}

bool ReplaceWaves(const fs::path& path) {
    if (!importAside("ReplaceWaves", path)) return false;
    std::unordered_map<std::string, Wave*> fresh;
    for (Wave& wave : store().all<Wave>()) fresh.emplace(toLower(wave.name().view()), &wave);
    u32 replaced = 0;
    for (Item* old : store().pushedItems(kWaveClass)) {
        const auto found = fresh.find(toLower(old->name().view()));
        if (found == fresh.end() || !found->second) continue;
        store().swapWithPushed(*found->second, *old);
        found->second = nullptr;
        ++replaced;
    }
    store().PopAndDiscard(); // with the waves that were replaced
    for (Wave& wave : store().all<Wave>()) wave.FixUp();
    PostStatus(replaced == 0 ? std::string("No waveform replaced")
                             : fmt::format("Replaced {} waveform{}", replaced, plural(replaced)));
    return true;
}

// ---- Saved states

namespace {

constexpr u32 kMostStates = 16;

fs::path statePath(u32 index) {
    return workspace().stateFolder / fmt::format("Saved state.0{:02}", index);
}

/// The row of the richest form: of those for the extension "dls" the fourth behind the one that reads.
int stateRow() {
    const FormatTable& formats = *workspace().formats;
    for (int row = 0; formats.row(row); ++row) {
        if (formats.row(row)->extension == "dls" && formats.row(row)->reads()) return row + 4;
    }
    return -1;
}

} // namespace

bool HasState(u32 index) {
    std::error_code ignored;
    return fs::exists(statePath(index), ignored);
}

bool SaveState() {
    std::error_code failed;
    fs::create_directories(workspace().stateFolder, failed);
    u32 count = 0;
    while (HasState(count)) ++count;
    for (; count >= kMostStates; --count) fs::remove(statePath(count - 1), failed);
    for (u32 i = count; i-- > 0;) fs::rename(statePath(i), statePath(i + 1), failed);
    Collection* collection = store().First<Collection>();
    if (collection) ++collection->dataSize; // an empty collection is a state too
    return Export(stateRow(), statePath(0), collection, kAnyFormat, 0, true);
}

namespace {

/// A state comes back as it was, whatever is done to files that are opened.
class LoadAsItIs {
public:
    LoadAsItIs() {
        auto& load = settings().load;
        load.bAutoSplitStereo = load.bAutoMergeStereo = load.bAutoMoveArticulation = false;
        load.bAutoAppend32 = load.bAutoBid2Fwd = load.bAutoRev2Fwd = false;
    }
    ~LoadAsItIs() { settings().load = wanted_; }
    LoadAsItIs(const LoadAsItIs&) = delete;
    LoadAsItIs& operator=(const LoadAsItIs&) = delete;

private:
    AppSettings::Load wanted_ = settings().load;
};

} // namespace

bool RestoreState() {
    const LoadAsItIs asItIs;
    if (!HasState(0) || !importAside("RestoreState", statePath(0))) return false;
    for (Wave& wave : store().all<Wave>()) {
        if (!wave.LoadData()) {
            store().PopAndDiscard();
            return false;
        }
    }
    for (Wave& wave : store().all<Wave>()) {
        wave.sourceFile = kMemoryOnly;
        wave.reloadable = false;
    }
    store().DropPushed();
    std::error_code ignored;
    fs::remove(statePath(0), ignored);
    for (u32 i = 1; HasState(i); ++i) fs::rename(statePath(i), statePath(i - 1), ignored);
    return true;
}

void ClearStates() {
    std::error_code ignored;
    for (u32 i = 0; HasState(i); ++i) fs::remove(statePath(i), ignored);
}

} // namespace kv
