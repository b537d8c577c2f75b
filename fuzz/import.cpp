// Any bytes as a file: what detection makes of them is imported, loaded, exported and imported again.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "formats/framework/drivers.h"
#include "formats/table/format_table_rows.h"
#include "model/collection.h"
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/loops.h"
#include "model/move_articulation.h"
#include "model/stereo.h"
#include "model/wave.h"
#include "model/wave_cleanup.h"
#include "model/wave_data.h"
#include "model/workspace.h"
#include "require.h"
#include "samples/data_format.h"

namespace {

using namespace kv;
using fuzz::require;

/// A file that exists in memory only, under a path of its own.
class MemoryFile {
public:
    explicit MemoryFile(ByteSpan bytes) : file_(::memfd_create("fuzz", 0)) {
        require(::write(file_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
                "memory file");
    }
    ~MemoryFile() { ::close(file_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }

private:
    int file_;
};

/// Exports an item; empty when that fails, which is allowed for what can't be read.
Bytes written(Item& item, const char* row, u32 wanted) {
    workspace().wavFact = 0;
    MemorySink sink;
    return ExportTo(sink, formatTable().RowByDescription(row), "-", &item, wanted, 0, true) ? sink.take()
                                                                                            : Bytes();
}

/// Imports what was written and writes it again; empty when there is nothing to write.
Bytes rewritten(const Bytes& bytes, const char* row) {
    const MemoryFile file(bytes);
    require(Import(file.path(), false), "what was written can be read");
    Wave* back = store().First<Wave>();
    return back ? written(*back, row, kAnyFormat) : Bytes();
}

void roundTrip(Wave& wave, const char* row) {
    const bool isLossy = wave.preferredFormat == kCompressed; // and would be each time again
    const Bytes first = written(wave, row, isLossy ? kPcm16 | kMonoBit | kStereoBit : kAnyFormat);
    if (first.empty()) return;
    // A root key of 0 is read as 60, so the first writing need not be the last word.
    const Bytes second = rewritten(first, row);
    if (!second.empty())
        require(rewritten(second, row) == second, "the third writing is equal to the second");
}

/// Writes all that was imported as a bank, which must come back with what has a place in it.
void bankTrip(const char* row) {
    constexpr std::size_t kMost = 500; // regions; shared records make any number of them
    const std::size_t presets = store().count(kInstrumentClass), zones = store().count(kRegionClass);
    if (presets == 0 || zones > kMost) return;
    const Bytes first = written(*store().First<Collection>(), row, kAnyFormat);
    if (first.empty()) return;
    const MemoryFile file(first);
    require(Import(file.path(), true), "a bank that was written can be read");
    require(store().count(kInstrumentClass) == presets, "with its presets");
    require(store().count(kRegionClass) == zones, "with its zones");
}

/// Changes all that was imported in every way that there is; it must stay in one piece.
void operations() {
    u64 samples = 0, freed = 0;
    for (const Wave& wave : store().all<Wave>()) samples += wave.sampleCount();
    constexpr u64 kMost = 1 << 20;
    if (samples > kMost || store().count(kRegionClass) > 500) return;
    u32 made = 0;
    const Collection& collection = *store().First<Collection>();
    AutoCreateInstruments();
    SplitStereo(collection);
    MergeStereo(collection, made, true, true, false);
    UnrollLoops(true, true);
    AppendLoopTail(true);
    moveArticulationUp(true, true);
    DeleteDuplicateWaves(freed);
    DeleteUnusedWaves(freed);
    FixUpAll(kAllClasses);
    for (const Region& region : store().all<Region>())
        require(RegionWave(region) || RegionSynth(region), "a region plays something");
    for (const Wave& wave : store().all<Wave>()) {
        if (wave.resident())
            require(std::max(wave.samples16.size(), wave.samplesFloat.size()) == wave.sampleCount(),
                    "all samples");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Workspace space;
    const WorkspaceScope scope(space);
    space.formats = &formatTable();
    const MemoryFile file(std::as_bytes(std::span(data, size)));
    for (const char* row : {"SoundFont v2 bank", "SoundFont v1", "DownLoadable Sounds level 2"}) {
        if (!Import(file.path(), true)) return 0;
        bankTrip(row);
    }
    if (Import(file.path(), true)) operations();
    for (const char* row : {"Microsoft wave", "Wave-64"}) {
        if (!Import(file.path(), true)) return 0;
        Wave* wave = store().First<Wave>();
        if (!wave) return 0;
        require(wave->channels >= 1 && wave->channels <= 2 && wave->frames > 0, "a wave of the model");
        if (wave->LoadData()) {
            require(std::max(wave->samples16.size(), wave->samplesFloat.size()) == wave->sampleCount(),
                    "all samples");
        }
        FreeData(*wave, false);
        roundTrip(*wave, row);
    }
    return 0;
}
