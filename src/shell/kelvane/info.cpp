// `kelvane info`: everything in the store, as a tree or as JSON.
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "formats/framework/detection.h"
#include "formats/framework/format_table.h"
#include "model/collection.h"
#include "model/instrument.h"
#include "model/song.h"
#include "model/synth_model.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "shell/kelvane/commands.h"
#include "shell/kelvane/item_selector.h"
#include "shell/kelvane/terminal_ui.h"

namespace kv {
namespace {

using Json = nlohmann::ordered_json;

std::string text(std::string_view value) {
    return std::string(value);
}

Json paramsJson(const SampleParams& p) {
    return {{"override", p.override},
            {"rootKey", p.rootKey},
            {"fineTune", p.fineTune},
            {"gainDb", p.gainDb},
            {"loop", {{"start", p.loopStart}, {"end", p.loopEnd}, {"flags", p.loopFlags}}},
            {"dontTruncate", p.dontTruncate},
            {"dontCompress", p.dontCompress},
            {"startOffset", p.startOffset},
            {"endOffset", p.endOffset}};
}

Json itemJson(const Item& item) {
    return {{"id", item.id()},
            {"name", text(item.name())},
            {"describe", item.Describe()},
            {"dataSize", item.dataSize}};
}

Json waveJson(const Wave& wave) {
    Json json = itemJson(wave);
    std::string_view format;
    FormatCodeInfo(wave.preferredFormat, &format, nullptr);
    json["channels"] = wave.channels;
    json["frames"] = wave.frames;
    json["sampleRate"] = wave.sampleRate;
    json["bits"] = wave.bits;
    json["dataFormat"] = wave.dataFormat;
    json["preferredFormat"] = text(format);
    json["compressedKbps"] = wave.compressedKbps;
    json["params"] = paramsJson(wave.params);
    json["cuePoints"] = Json::array();
    for (const CuePoint& cue : wave.cuePoints) {
        json["cuePoints"].push_back({{"position", cue.position},
                                     {"length", cue.length},
                                     {"label", text(cue.label)},
                                     {"note", text(cue.note)}});
    }
    json["artist"] = text(wave.artist);
    json["album"] = text(wave.album);
    json["engineer"] = text(wave.engineer);
    json["copyright"] = text(wave.copyright);
    json["comments"] = text(wave.comments);
    json["sourceFile"] = wave.sourceFile.string();
    json["sourceOffset"] = wave.sourceOffset;
    json["reader"] = wave.reader ? text(wave.reader->name) : std::string();
    json["reloadable"] = wave.reloadable;
    json["resident"] = wave.resident();
    return json;
}

Json regionJson(const Region& region) {
    Json json = itemJson(region);
    json["childIds"] = region.childIds;
    json["keyLow"] = region.keyLow;
    json["keyHigh"] = region.keyHigh;
    json["velLow"] = region.velLow;
    json["velHigh"] = region.velHigh;
    json["keyGroup"] = region.keyGroup;
    json["phaseGroup"] = region.phaseGroup;
    json["phaseMaster"] = region.phaseMaster;
    json["trigger"] = region.trigger;
    json["pedalUp"] = region.pedalUp;
    json["pedalDown"] = region.pedalDown;
    json["selfNonExclusive"] = region.selfNonExclusive;
    json["params"] = paramsJson(region.params);
    return json;
}

/// The children of an item, each as `toJson` says.
template <class T, class ToJson>
Json childrenJson(const Item& item, ToJson toJson) {
    Json list = Json::array();
    for (const ItemId id : item.childIds) {
        if (const T* child = store().Find<T>(id)) list.push_back(toJson(*child));
    }
    return list;
}

Json layerJson(const Layer& layer) {
    Json json = itemJson(layer);
    json["drum"] = layer.drum;
    json["regions"] = childrenJson<Region>(layer, regionJson);
    return json;
}

Json instrumentJson(const Instrument& instrument) {
    Json json = itemJson(instrument);
    json["patch"] = instrument.patch;
    json["comment"] = text(instrument.comment);
    json["layers"] = childrenJson<Layer>(instrument, layerJson);
    return json;
}

Json trackJson(const Track& track) {
    Json json = itemJson(track);
    json["eventCount"] = track.eventCount;
    json["channelGroup"] = track.channelGroup;
    return json;
}

Json songJson(const Song& song) {
    Json json = itemJson(song);
    json["smfFormat"] = song.smfFormat;
    json["division"] = song.division;
    json["eventCount"] = song.eventCount;
    json["artist"] = text(song.artist);
    json["engineer"] = text(song.engineer);
    json["copyright"] = text(song.copyright);
    json["product"] = text(song.product);
    json["comments"] = text(song.comments);
    json["tracks"] = childrenJson<Track>(song, trackJson);
    return json;
}

template <class T, class ToJson>
Json allJson(ToJson toJson) {
    Json list = Json::array();
    for (T& item : store().all<T>()) list.push_back(toJson(item));
    return list;
}

Json collectionJson(const Collection& collection) {
    Json json = itemJson(collection);
    json["fileName"] = collection.fileName.string();
    json["sourceFormat"] = collection.sourceFormat;
    json["engineer"] = text(collection.engineer);
    json["copyright"] = text(collection.copyright);
    json["comments"] = text(collection.comments);
    return json;
}

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

void printTree(const ItemSelectors& selectors, const Item& item, int depth) {
    printLine(depth, selectors.of(item), item);
    for (const ItemId id : item.childIds) {
        // Waves stand in a list of their own.
        const Item* child = classOf(id) == kWaveClass ? nullptr : FindItem(id);
        if (child) printTree(selectors, *child, depth + 1);
    }
}

void printWave(const ItemSelectors& selectors, const Wave& wave) {
    printLine(0, selectors.of(wave), wave);
    std::string_view format;
    FormatCodeInfo(wave.preferredFormat, &format, nullptr);
    fmt::print("  {}, root key {}", format, wave.params.rootKey);
    if (wave.params.fineTune != 0) fmt::print(", fine tune {:+} cents", wave.params.fineTune);
    if (wave.params.gainDb != 0) fmt::print(", gain {:+.1f} dB", wave.params.gainDb);
    if (wave.params.looped()) fmt::print(", loop {}..{}", wave.params.loopStart, wave.params.loopEnd);
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
    for (Instrument& instrument : store().all<Instrument>()) printTree(selectors, instrument, 0);
    for (Song& song : store().all<Song>()) printTree(selectors, song, 0);
    for (SynthModel& model : store().all<SynthModel>()) printTree(selectors, model, 0);
    for (Wave& wave : store().all<Wave>()) printWave(selectors, wave);
}

void printJson(const FormatRow* row, int rowNumber, int confidence, bool warnings) {
    Json json;
    json["format"] = {{"row", rowNumber},
                      {"extension", row ? text(row->extension) : ""},
                      {"description", row ? text(row->description) : ""},
                      {"confidence", confidence}};
    const Collection* collection = store().First<Collection>();
    json["collection"] = collection ? collectionJson(*collection) : Json();
    json["instruments"] = allJson<Instrument>(instrumentJson);
    json["waves"] = allJson<Wave>(waveJson);
    json["songs"] = allJson<Song>(songJson);
    json["models"] = allJson<SynthModel>([](const SynthModel& model) {
        Json one = itemJson(model);
        one["modelType"] = model.modelType;
        return one;
    });
    if (warnings) {
        json["warnings"] = Json::array();
        for (const Diagnostic& d : workspace().diagnostics.entries()) {
            json["warnings"].push_back(
                {{"offset", d.offset}, {"item", d.item}, {"field", d.field}, {"text", d.text}});
        }
    }
    fmt::print("{}\n", json.dump(2, ' ', false, Json::error_handler_t::replace));
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
