#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "base/run_context.h"
#include "formats/framework/drivers.h"
#include "formats/framework/export_item.h"
#include "formats/framework/format_table.h"
#include "model/collection.h"
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/pending.h"
#include "model/store.h"
#include "model/synth_model.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

/// Items that exist for one export only; gone on every way out, the outermost first.
class TemporaryItems {
public:
    ~TemporaryItems() {
        for (auto id = ids_.rbegin(); id != ids_.rend(); ++id) store().Delete(FindItem(*id));
    }
    template <class T>
    T* add(T* item) {
        if (item) ids_.push_back(item->id());
        return item;
    }

private:
    std::vector<ItemId> ids_;
};

/// Puts a model, region or layer into an instrument of its own, so that rendering has one to work in.
Item* wrapForRendering(Item* item, TemporaryItems& temporary) {
    Region* region = nullptr;
    Layer* layer = nullptr;
    if (classOf(item->id()) == kSynthModelClass) {
        region = store().Create<Region>(kNextFreeNumber);
        region->AddChild(
            store().Create<SynthModel>(static_cast<const SynthModel&>(*item), kNextFreeNumber)->id());
    } else if (classOf(item->id()) == kRegionClass) {
        region = store().Create<Region>(static_cast<const Region&>(*item), kNextFreeNumber);
    } else if (classOf(item->id()) == kLayerClass) {
        layer = store().Create<Layer>(static_cast<const Layer&>(*item), kNextFreeNumber);
    } else {
        return item;
    }
    if (region) {
        layer = store().Create<Layer>(kNextFreeNumber);
        layer->AddChild(region->id());
    }
    Instrument* instrument = temporary.add(store().Create<Instrument>(kNextFreeNumber));
    instrument->AddChild(layer->id());
    return instrument;
}

bool isSong(const Item& item) {
    return (classOf(item.id()) & (kSongClass | kTrackClass)) != 0;
}

/// The wave whose preferred format decides: the item itself, or the one that a region plays.
const Wave* decidingWave(const Item& item) {
    if (classOf(item.id()) == kWaveClass) return static_cast<const Wave*>(&item);
    return classOf(item.id()) == kRegionClass ? RegionWave(static_cast<const Region&>(item)) : nullptr;
}

u32 firstAvailable(u32 codes, std::initializer_list<u32> wanted) {
    for (const u32 code : wanted) {
        if ((codes & code) != 0) return code;
    }
    return 0;
}

/// The preferred format itself, or the next one that loses nothing.
u32 stepUp(u32 codes, u32 preferred) {
    if ((codes & preferred) != 0) return preferred;
    switch (preferred) {
        case kPcm16:
            return firstAvailable(codes, {kPcm24, kPcm32, kFloat32, kFloat64});
        case kPcm24:
            return firstAvailable(codes, {kPcm32, kFloat32, kFloat64});
        case kFloat32:
            return firstAvailable(codes, {kFloat64, kPcm32, kPcm24});
        default:
            return 0;
    }
}

} // namespace

FormatChoice chooseFormat(const FormatRow& row, const Item& item, u32 wantedFormat, bool midiToWave) {
    constexpr u32 kChannelBits = kMonoBit | kStereoBit;
    const u32 mask = wantedFormat & row.dataMask;
    const u32 codes = (mask & kCodeMask) != 0 ? mask & kCodeMask : row.dataMask & kCodeMask;
    const u32 channels = (mask & kChannelBits) != 0 ? mask & kChannelBits : row.dataMask & kChannelBits;

    if ((codes & (codes - 1)) == 0) return {channels | codes, false};
    const Wave* wave = decidingWave(item);
    u32 code = wave ? stepUp(codes, wave->preferredFormat) : 0;
    if (code == 0 && midiToWave) code = firstAvailable(codes, {kFloat32, kPcm32, kPcm24, kPcm16});
    if (code == 0 && row.perWaveFormats) return {channels, true};
    if (code == 0) code = (codes & kPcm16) != 0 ? kPcm16 : codes & (~codes + 1);
    return {channels | code, false};
}

bool exportItem(ByteSink& sink, const FormatRow& row, const fs::path& path, Item* item, u32 wantedFormat,
                f32 bitRate, bool allowEmpty) {
    TemporaryItems temporary;
    const bool render = item->HasSynthesis() && (row.typeFlags & kSynthModelClass) == 0;
    if (render) item = wrapForRendering(item, temporary);
    const bool midiToWave =
        isSong(*item) && (wantedFormat & kMidiData) == 0 && (row.typeFlags & kWaveClass) != 0;
    const FormatChoice choice = chooseFormat(row, *item, wantedFormat, midiToWave);

    if (!store().First<Collection>()) return Fail("Export", "No bank?");
    // A writer that takes samples block by block needs none of them in memory.
    if (!row.streams && !item->LoadData()) return false;
    if (midiToWave) {
        item = temporary.add(renderSong(*item, (choice.word & kStereoBit) != 0));
        if (!item) return Fail("Export", "Save aborted!");
    }
    workspace().exportInProgress = true;
    bool done = !render || item->ConvertSynthesis(true, nullptr);
    if (done && item->dataSize == 0 && !item->HasSynthesis() && !allowEmpty) {
        done = Fail("Export", "Empty item - nothing to save");
    }
    if (done) {
        PostStatus(fmt::format("Writing - {}", path.string()));
        FileContext file;
        file.path = path;
        file.sink = &sink;
        done = row.exportFn(*item, file, choice.word, row.subType, choice.perWave, bitRate);
        PostStatus();
    }
    if (render) item->RevertSynthesis();
    workspace().exportInProgress = false;
    return done;
}

const FormatRow* exportRow(int row, const Item* item) {
    if (!item) {
        Fail("Export", "No item selected");
        return nullptr;
    }
    const FormatRow* format = workspace().formats->row(row);
    if (format && format->exportFn) return format;
    Fail("Export", "Invalid export format selected");
    return nullptr;
}

void fixUpForExport(const Item& item) {
    // Empty items of other classes go, the item itself stays.
    FixUpAll(kAllClasses & ~classOf(item.id()));
}

namespace {

/// Brings in what still has to be read from the very file that is going to be replaced.
bool loadWavesOf(const fs::path& path) {
    std::error_code ignored;
    if (!fs::exists(path, ignored)) return true;
    for (Wave& wave : store().all<Wave>()) {
        if (wave.resident() || !wave.hasFile() || !fs::equivalent(wave.sourceFile, path, ignored)) continue;
        if (!wave.LoadData()) return false;
        wave.reloadable = false;
    }
    return true;
}

} // namespace

bool exportToFile(const FormatRow& row, const fs::path& path, Item* item, u32 wantedFormat, f32 bitRate,
                  bool allowEmpty) {
    if (!loadWavesOf(path)) return false;
    const std::unique_ptr<SaveFile> file = SaveFile::create(path);
    if (!file) return Fail("Export", "Could not create file");
    if (!exportItem(*file, row, path, item, wantedFormat, bitRate, allowEmpty)) return false;
    return file->commit() || Fail("Export", "Could not create file");
}

u32 keepingBits(const FormatRow& row, const Item& item, u32 wanted) {
    const bool chosen = (wanted & kCodeMask) != kCodeMask || classOf(item.id()) == kWaveClass;
    if (chosen || (row.dataMask & kPcm24) == 0 || (row.dataMask & kPcm16) == 0) return wanted;
    for (const Wave& wave : store().all<Wave>()) {
        if (wave.bits > 16) return (wanted & ~kCodeMask) | kPcm24;
    }
    return wanted;
}

bool Export(int row, const fs::path& path, Item* item, u32 wantedFormat, f32 bitRate, bool allowEmpty) {
    const FormatRow* format = exportRow(row, item);
    if (!format) return false;
    fixUpForExport(*item);
    return exportToFile(*format, path, item, wantedFormat, bitRate, allowEmpty);
}

bool ExportTo(ByteSink& sink, int row, const fs::path& path, Item* item, u32 wantedFormat, f32 bitRate,
              bool allowEmpty) {
    const FormatRow* format = exportRow(row, item);
    if (!format) return false;
    fixUpForExport(*item);
    return exportItem(sink, *format, path, item, wantedFormat, bitRate, allowEmpty);
}

} // namespace kv
