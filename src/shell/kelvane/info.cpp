// `kelvane info`: everything in the store, as a tree or as JSON.
#include <fmt/format.h>

#include "formats/framework/detection.h"
#include "formats/framework/format_table.h"
#include "model/articulation_fields.h"
#include "model/collection.h"
#include "model/instrument.h"
#include "model/song.h"
#include "model/synth_model.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "shell/kelvane/commands.h"
#include "shell/kelvane/field_texts.h"
#include "shell/kelvane/info_json.h"
#include "shell/kelvane/item_selector.h"
#include "shell/kelvane/json_writer.h"
#include "shell/kelvane/terminal_ui.h"

namespace kv {
namespace {

/// How sure detection is of the row, in percent.
int confidenceOf(const std::string& path) {
    FileContext file;
    file.path = path;
    file.source = openFileSource(path);
    int confidence = 0;
    if (file.source) DetectFile(*workspace().formats, path, file, confidence);
    return confidence;
}

void printLine(int depth, std::string_view selector, const Item& item) {
    fmt::print("{:{}}{} \"{}\": {}\n", "", depth * 2, selector, item.name().view(), item.Describe());
}

void printParams(const SampleParams& params, const char* indent) {
    fmt::print("{}root key {}", indent, params.rootKey);
    if (params.fineTune != 0) fmt::print(", fine tune {:+} cents", params.fineTune);
    if (params.gainDb != 0) fmt::print(", gain {:+.1f} dB", params.gainDb);
    if (params.looped()) fmt::print(", loop {}..{}", params.loopStart, params.loopEnd);
    if (params.startOffset != 0) fmt::print(", start {:+}", params.startOffset);
    if (params.endOffset != 0) fmt::print(", end {:+}", params.endOffset);
}

/// The tree of an item, line by line.
class TreePrinter {
public:
    void print(const Item& item, int depth);

private:
    void articulation(const Articulation& record, int depth);
    void sound(const Item& item, int depth);

    ItemSelectors selectors_;
    FieldTexts texts_{fieldText};
    fmt::memory_buffer line_;
};

/// What a level of an instrument has of its own: fields at their defaults go without saying.
void TreePrinter::articulation(const Articulation& record, int depth) {
    if (!record.enabled) return;
    static const Articulation defaults;
    line_.clear();
    for (std::size_t i = 0; i < articulationFields().size(); ++i) {
        const ArticulationField& field = articulationFields()[i];
        if (field.get(record) == field.get(defaults)) continue;
        if (line_.size() > 0) line_.push_back(',');
        line_.push_back(' ');
        line_.append(field.name);
        line_.push_back(' ');
        line_.append(texts_.text(i, record));
    }
    fmt::print("{:{}}articulation:{}\n", "", depth * 2, std::string_view(line_.data(), line_.size()));
}

void TreePrinter::sound(const Item& item, int depth) {
    switch (classOf(item.id())) {
        case kInstrumentClass:
            return articulation(static_cast<const Instrument&>(item).articulation, depth);
        case kLayerClass:
            return articulation(static_cast<const Layer&>(item).articulation, depth);
        case kRegionClass: {
            const auto& region = static_cast<const Region&>(item);
            if (region.params.override) {
                printParams(region.params, fmt::format("{:{}}", "", depth * 2).c_str());
                fmt::print("\n");
            }
            return articulation(region.articulation, depth);
        }
        default:
            return;
    }
}

void TreePrinter::print(const Item& item, int depth) {
    printLine(depth, selectors_.of(item), item);
    sound(item, depth + 1);
    for (const ItemId id : item.childIds) {
        // Waves stand in a list of their own.
        const Item* child = classOf(id) == kWaveClass ? nullptr : FindItem(id);
        if (child) print(*child, depth + 1);
    }
}

void printWave(const ItemSelectors& selectors, const Wave& wave) {
    printLine(0, selectors.of(wave), wave);
    std::string_view format;
    FormatCodeInfo(wave.preferredFormat, &format, nullptr);
    fmt::print("  {}", format);
    printParams(wave.params, ", ");
    fmt::print("\n");
    const std::pair<std::string_view, std::string_view> texts[] = {{"artist", wave.artist},
                                                                   {"album", wave.album},
                                                                   {"engineer", wave.engineer},
                                                                   {"copyright", wave.copyright},
                                                                   {"comments", wave.comments}};
    for (const auto& [label, value] : texts) {
        if (!value.empty()) fmt::print("  {}: {}\n", label, value);
    }
    for (const CuePoint& cue : wave.cuePoints) {
        fmt::print("  cue at {}", cue.position);
        if (cue.length > 0) fmt::print(" for {}", cue.length);
        fmt::print(" \"{}\"\n", cue.label.view());
    }
}

void printStore(std::string_view description, int confidence) {
    fmt::print("{} ({} %)\n", description, confidence);
    const ItemSelectors selectors;
    for (Collection& collection : store().all<Collection>()) printLine(0, "collection", collection);
    TreePrinter tree;
    for (Instrument& instrument : store().all<Instrument>()) tree.print(instrument, 0);
    for (Song& song : store().all<Song>()) tree.print(song, 0);
    for (SynthModel& model : store().all<SynthModel>()) tree.print(model, 0);
    for (Wave& wave : store().all<Wave>()) printWave(selectors, wave);
}

void printJson(const FormatRow* row, int rowNumber, int confidence, bool warnings) {
    JsonWriter json(stdout);
    json.beginObject();
    json.beginObject("format");
    json.value("row", rowNumber);
    json.value("extension", row ? row->extension : std::string_view());
    json.value("description", row ? row->description : std::string_view());
    json.value("confidence", confidence);
    json.endObject();
    writeStore(json);
    if (warnings) {
        json.beginArray("warnings");
        for (const Diagnostic& d : workspace().diagnostics.entries()) {
            json.beginObject();
            json.value("offset", d.offset);
            json.value("item", d.item);
            json.value("field", d.field);
            json.value("text", d.text);
            json.endObject();
        }
        json.endArray();
    }
    json.endObject();
}

} // namespace

int runInfo(const InfoOptions& options, TerminalUi& ui) {
    if (!openInput(options.path, options.input, ui)) return reportFailure();
    const Collection* collection = store().First<Collection>();
    const int rowNumber = collection ? collection->sourceFormat : -1;
    const FormatRow* row = workspace().formats->row(rowNumber);
    const int confidence = options.input.as.empty() ? confidenceOf(options.path) : 100;
    if (options.json)
        printJson(row, rowNumber, confidence, options.warnings);
    else
        printStore(row ? row->description : "", confidence);
    if (options.warnings && !options.json) printDiagnostics(static_cast<std::size_t>(-1));
    return kDone;
}

} // namespace kv
