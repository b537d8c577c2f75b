// `kelvane info`: everything in the store, as a tree or as JSON.
#include <fmt/compile.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>

#include "formats/framework/detection.h"
#include "formats/framework/format_table.h"
#include "midi/midi_event_text.h"
#include "midi/song_summary.h"
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
#include "shell/kelvane/wave_loudness.h"

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

/// Standard output in large pieces: a bank has tens of thousands of lines.
class Printer {
public:
    ~Printer() { flush(); }
    /// Takes what FMT_COMPILE makes of a format.
    template <class Format, class... Args>
    void operator()(const Format& format, const Args&... args) {
        fmt::format_to(std::back_inserter(text_), format, args...);
        constexpr std::size_t kFlushAt = 65536;
        if (text_.size() >= kFlushAt) flush();
    }
    void text(std::string_view more) { text_ += more; }

private:
    void flush() {
        std::fwrite(text_.data(), 1, text_.size(), stdout);
        text_.clear();
    }
    std::string text_;
};

std::string_view indent(int depth) {
    static constexpr std::string_view kBlanks = "                ";
    return kBlanks.substr(0, std::min<std::size_t>(static_cast<std::size_t>(depth) * 2, kBlanks.size()));
}

void printLine(Printer& out, int depth, std::string_view selector, const Item& item) {
    out(FMT_COMPILE("{}{} \"{}\": {}\n"), indent(depth), selector, item.name().view(), item.Describe());
}

void printParams(Printer& out, const SampleParams& params) {
    out(FMT_COMPILE("root key {}"), params.rootKey);
    if (params.fineTune != 0) out(FMT_COMPILE(", fine tune {:+} cents"), params.fineTune);
    if (params.gainDb != 0) out(FMT_COMPILE(", gain {:+.1f} dB"), params.gainDb);
    if (params.looped()) out(FMT_COMPILE(", loop {}..{}"), params.loopStart, params.loopEnd);
    if (params.startOffset != 0) out(FMT_COMPILE(", start {:+}"), params.startOffset);
    if (params.endOffset != 0) out(FMT_COMPILE(", end {:+}"), params.endOffset);
}

/// The tree of an item, line by line.
class TreePrinter {
public:
    explicit TreePrinter(Printer& out) : out_(out) {}
    void print(const Item& item, int depth);

private:
    void articulation(const Articulation& record, int depth);
    void sound(const Item& item, int depth);
    void song(const Song& song, int depth);

    Printer& out_;
    ItemSelectors selectors_;
    FieldTexts texts_{fieldText};
};

/// How long a song is, and who plays what in it.
void TreePrinter::song(const Song& song, int depth) {
    const SongSummary summary = summarize(song);
    out_(FMT_COMPILE("{}{}\n"), indent(depth), songSheetText(song));
    out_(FMT_COMPILE("{}length {:.3f} s, {} note{}\n"), indent(depth), summary.seconds, summary.notes,
         plural(summary.notes));
    const bool ports = std::any_of(summary.channels.begin(), summary.channels.end(),
                                   [](const ChannelUse& use) { return use.port > 0; });
    for (const ChannelUse& use : summary.channels) {
        out_.text(indent(depth));
        if (ports) out_(FMT_COMPILE("port {} "), use.port);
        out_(FMT_COMPILE("channel {}: {} note{}"), use.channel + 1, use.notes, plural(use.notes));
        for (const u32 program : use.programs) {
            out_(FMT_COMPILE(", program {}"), program & 0x7F);
            if (program >> 7 != 0) out_(FMT_COMPILE(" of bank {}:{}"), program >> 14, program >> 7 & 0x7F);
        }
        out_.text("\n");
    }
}

/// What a level of an instrument has of its own: fields at their defaults go without saying.
void TreePrinter::articulation(const Articulation& record, int depth) {
    if (!record.enabled) return;
    static const Articulation defaults;
    out_(FMT_COMPILE("{}articulation:"), indent(depth));
    bool first = true;
    for (std::size_t i = 0; i < articulationFields().size(); ++i) {
        const ArticulationField& field = articulationFields()[i];
        if (field.get(record) == field.get(defaults)) continue;
        out_.text(first ? " " : ", ");
        out_.text(field.name);
        out_.text(" ");
        out_.text(texts_.text(i, record));
        first = false;
    }
    out_.text("\n");
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
                out_.text(indent(depth));
                printParams(out_, region.params);
                out_.text("\n");
            }
            return articulation(region.articulation, depth);
        }
        case kSongClass:
            return song(static_cast<const Song&>(item), depth);
        default:
            return;
    }
}

void TreePrinter::print(const Item& item, int depth) {
    printLine(out_, depth, selectors_.of(item), item);
    sound(item, depth + 1);
    for (const ItemId id : item.childIds) {
        // Waves stand in a list of their own.
        const Item* child = classOf(id) == kWaveClass ? nullptr : FindItem(id);
        if (child) print(*child, depth + 1);
    }
}

void printLoudness(Printer& out, const Wave& wave, WaveLoudness& meter) {
    const std::optional<EbuLoudness> loudness = meter.of(wave);
    if (!loudness) return;
    std::string text;
    const auto add = [&](std::string_view label, f64 value, std::string_view unit) {
        if (!std::isnan(value))
            text += fmt::format("{}{} {:.1f} {}", text.empty() ? "" : ", ", label, value, unit);
    };
    add("loudness", loudness->integrated, "LUFS");
    add("range", loudness->range, "LU");
    add("true peak", loudness->truePeak, "dBTP");
    add("momentary up to", loudness->momentary, "LUFS");
    add("short-term up to", loudness->shortTerm, "LUFS");
    out(FMT_COMPILE("  {}\n"), text);
}

void printWave(Printer& out, const ItemSelectors& selectors, const Wave& wave, WaveLoudness* loudness) {
    printLine(out, 0, selectors.of(wave), wave);
    std::string_view format;
    FormatCodeInfo(wave.preferredFormat, &format, nullptr);
    out(FMT_COMPILE("  {}, "), format);
    printParams(out, wave.params);
    out.text("\n");
    const std::pair<std::string_view, std::string_view> texts[] = {{"artist", wave.artist},
                                                                   {"album", wave.album},
                                                                   {"engineer", wave.engineer},
                                                                   {"copyright", wave.copyright},
                                                                   {"comments", wave.comments}};
    for (const auto& [label, value] : texts) {
        if (!value.empty()) out(FMT_COMPILE("  {}: {}\n"), label, value);
    }
    for (const CuePoint& cue : wave.cuePoints) {
        out(FMT_COMPILE("  cue at {}"), cue.position);
        if (cue.length > 0) out(FMT_COMPILE(" for {}"), cue.length);
        out(FMT_COMPILE(" \"{}\"\n"), cue.label.view());
    }
    if (loudness) printLoudness(out, wave, *loudness);
}

void printStore(std::string_view description, int confidence, WaveLoudness* loudness) {
    Printer out;
    out(FMT_COMPILE("{} ({} %)\n"), description, confidence);
    const ItemSelectors selectors;
    for (Collection& collection : store().all<Collection>()) printLine(out, 0, "collection", collection);
    TreePrinter tree(out);
    for (Instrument& instrument : store().all<Instrument>()) tree.print(instrument, 0);
    for (Song& song : store().all<Song>()) tree.print(song, 0);
    for (SynthModel& model : store().all<SynthModel>()) tree.print(model, 0);
    for (Wave& wave : store().all<Wave>()) printWave(out, selectors, wave, loudness);
}

void printJson(const FormatRow* row, int rowNumber, int confidence, bool warnings, WaveLoudness* loudness) {
    JsonWriter json(stdout);
    json.beginObject();
    json.beginObject("format");
    json.value("row", rowNumber);
    json.value("extension", row ? row->extension : std::string_view());
    json.value("description", row ? row->description : std::string_view());
    json.value("confidence", confidence);
    json.endObject();
    writeStore(json, loudness);
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
    WaveLoudness meter;
    WaveLoudness* const loudness = options.loudness ? &meter : nullptr;
    if (options.json)
        printJson(row, rowNumber, confidence, options.warnings, loudness);
    else
        printStore(row ? row->description : "", confidence, loudness);
    if (options.warnings && !options.json) printDiagnostics(static_cast<std::size_t>(-1));
    return meter.failures() == 0 ? kDone : kSomeFailed;
}

} // namespace kv
