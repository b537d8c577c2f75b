// `kelvane preset`: articulation presets shown, taken out of banks, and put into them.
#include <fmt/format.h>

#include <filesystem>

#include "formats/framework/drivers.h"
#include "formats/framework/format_table.h"
#include "formats/framework/row_choice.h"
#include "model/articulation_fields.h"
#include "model/articulation_levels.h"
#include "model/articulation_preset.h"
#include "model/collection.h"
#include "model/instrument.h"
#include "model/workspace.h"
#include "shell/kelvane/commands.h"
#include "shell/kelvane/item_selector.h"
#include "shell/kelvane/json_writer.h"
#include "shell/kelvane/terminal_ui.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kContext = "preset";

bool mayReplace(const fs::path& path, bool force) {
    std::error_code ignored;
    return force || !fs::exists(path, ignored) ||
           Fail(kContext, "\"{}\" exists already; --force replaces it", path.string());
}

void print(const Articulation& record, bool json) {
    if (!json) {
        for (const ArticulationField& field : articulationFields())
            fmt::print("{} = {}\n", field.name, fieldText(field, record));
        return;
    }
    JsonWriter writer(stdout);
    writer.beginObject();
    for (const ArticulationField& field : articulationFields()) {
        if (field.unit == FieldUnit::Flag)
            writer.value(field.name, field.get(record) != 0);
        else
            writer.value(field.name, static_cast<f32>(field.get(record)));
    }
    writer.endObject();
}

bool show(const PresetOptions& options) {
    Articulation record;
    if (!loadArticulationPreset(record, options.paths[0])) return false;
    print(record, options.json);
    return true;
}

const Instrument* instrumentOf(const Layer* layer) {
    return layer ? InstrumentOfLayer(*layer) : nullptr;
}

/// What an instrument, layer or region sounds with.
bool soundOf(const Item& item, Articulation& record) {
    switch (classOf(item.id())) {
        case kInstrumentClass: {
            const auto& instrument = static_cast<const Instrument&>(item);
            record = articulationRange(&instrument, 0, instrument.childIds.size());
            return true;
        }
        case kLayerClass: {
            const auto& layer = static_cast<const Layer&>(item);
            const Instrument* instrument = InstrumentOfLayer(layer);
            const int index = instrument ? instrument->IndexOfChild(layer.id()) : -1;
            if (index < 0) break;
            record = articulationRange(instrument, static_cast<std::size_t>(index),
                                       static_cast<std::size_t>(index));
            return true;
        }
        case kRegionClass: {
            const auto& region = static_cast<const Region&>(item);
            const Layer* layer = LayerOfRegion(region);
            record = resolveArticulation(instrumentOf(layer), layer, &region);
            return true;
        }
        default:
            break;
    }
    return Fail(kContext, "Only an instrument, a layer or a region has articulation");
}

Item* chosenItem(const std::string& selector) {
    if (!selector.empty()) return selectItem(selector);
    Item* first = store().First<Instrument>();
    if (!first) Fail(kContext, "There is no instrument");
    return first;
}

bool extract(const PresetOptions& options, TerminalUi& ui) {
    const fs::path& output = options.paths[1];
    if (!mayReplace(output, options.force) || !openInput(options.paths[0], options.input, ui)) return false;
    const Item* item = chosenItem(options.item);
    Articulation record;
    return item && soundOf(*item, record) && saveArticulationPreset(record, output);
}

/// Levels below an item give way to its record.
void clearBelow(const Item& item) {
    for (const ItemId id : item.childIds) {
        if (Layer* layer = store().Find<Layer>(id)) {
            layer->articulation.enabled = false;
            clearBelow(*layer);
        } else if (Region* region = store().Find<Region>(id)) {
            region->articulation.enabled = false;
        }
    }
}

bool put(const Articulation& record, Item& item) {
    const ParameterSet& set = settings().pset;
    Articulation* target = nullptr;
    Switch level = Switch::InstrumentArticulation;
    switch (classOf(item.id())) {
        case kInstrumentClass:
            target = &static_cast<Instrument&>(item).articulation;
            break;
        case kLayerClass:
            target = &static_cast<Layer&>(item).articulation;
            level = Switch::LayerArticulation;
            break;
        case kRegionClass:
            target = &static_cast<Region&>(item).articulation;
            level = Switch::RegionArticulation;
            break;
        default:
            return Fail(kContext, "Only an instrument, a layer or a region takes articulation");
    }
    if (!set[level]) return Fail(kContext, "The parameter set has no articulation at this level");
    *target = record;
    target->enabled = true;
    clearBelow(item);
    return true;
}

bool apply(const PresetOptions& options, TerminalUi& ui) {
    const fs::path& output = options.paths[2];
    const int row = chooseRow(options.to.empty() ? output.extension().string() : options.to, RowUse::Write);
    if (row < 0)
        return Fail(kContext, "\"{}\" names no format that can be written; use --to", output.string());
    Articulation record;
    if (!mayReplace(output, options.force) || !loadArticulationPreset(record, options.paths[0]) ||
        !openInput(options.paths[1], options.input, ui)) {
        return false;
    }
    if (!options.item.empty()) {
        Item* item = selectItem(options.item);
        if (!item || !put(record, *item)) return false;
    }
    for (Instrument& instrument : store().all<Instrument>()) {
        if (options.item.empty() && !put(record, instrument)) return false;
    }
    const bool whole = (workspace().formats->row(row)->typeFlags & kCollectionClass) != 0;
    Item* saved = whole ? static_cast<Item*>(store().First<Collection>()) : chosenItem({});
    return saved && SaveItemAs(output, saved, row, kAnyFormat, 0, false);
}

} // namespace

int runPreset(const PresetOptions& options, TerminalUi& ui) {
    const bool done = options.action == "show"      ? show(options)
                      : options.action == "extract" ? extract(options, ui)
                                                    : apply(options, ui);
    return done ? kDone : reportFailure();
}

} // namespace kv
