// `kelvane midi`: the events of a song's tracks as a list, and changes of single ones.
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "base/run_context.h"
#include "formats/framework/drivers.h"
#include "formats/framework/row_choice.h"
#include "midi/midi_event_text.h"
#include "midi/midi_notation.h"
#include "midi/midi_song.h"
#include "model/workspace.h"
#include "shell/kelvane/commands.h"
#include "shell/kelvane/item_selector.h"
#include "shell/kelvane/json_writer.h"
#include "shell/kelvane/terminal_ui.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "midi";

/// Text of a file must not steer the terminal.
std::string_view printable(std::string& text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<u8>(c) < ' ' || c == 0x7F; }, ' ');
    return text;
}

void printEvents(const Track& track, std::string_view selector, bool notation) {
    fmt::print("{} \"{}\": {}\n", selector, track.name().view(), trackSheetText(track));
    if (!notation) fmt::print("{:>8} {:>9} {:>2} {:<11} {}\n", "Index", "Ticks", "Ch", "Event", "Parameters");
    EventRows rows(track);
    EventRow row;
    for (u32 index = 1; rows.next(row); ++index) {
        if (notation) {
            std::string text = midiNotation(rows.event());
            fmt::print("{} {}\n", index, printable(text));
        } else {
            fmt::print("{:>8} {:>9} {:>2} {:<11} {}\n", index, row.ticks, row.channel, row.event,
                       printable(row.parameters));
        }
    }
}

void writeEvents(JsonWriter& json, const Track& track, std::string_view selector) {
    json.beginObject();
    json.value("track", selector);
    json.value("name", track.name().view());
    json.value("channelGroup", track.channelGroup);
    json.beginArray("events");
    EventRows rows(track);
    EventRow row;
    for (u32 index = 1; rows.next(row); ++index) {
        const MidiEventCursor& event = rows.event();
        json.beginLineObject({});
        json.value("index", index);
        json.value("ticks", event.time);
        if (event.isChannelMessage()) json.value("channel", event.channel + 1);
        json.value("event", row.event);
        json.value("parameters", row.parameters);
        json.value("notation", midiNotation(event));
        json.endObject();
    }
    json.endArray();
    json.endObject();
}

Track* selectTrack(u32 number) {
    return static_cast<Track*>(selectItem(fmt::format("track:{}", number)));
}

bool listEvents(const MidiOptions& options, TerminalUi& ui) {
    if (!openInput(options.path, options.input, ui)) return false;
    std::vector<const Track*> tracks;
    if (options.track != 0) {
        tracks.push_back(selectTrack(options.track));
        if (!tracks.back()) return false;
    } else {
        for (const Track& track : store().all<Track>()) tracks.push_back(&track);
    }
    const ItemSelectors selectors;
    if (!options.json) {
        for (const Track* track : tracks) printEvents(*track, selectors.of(*track), options.notation);
        return true;
    }
    JsonWriter json(stdout);
    json.beginObject();
    json.beginArray("tracks");
    for (const Track* track : tracks) writeEvents(json, *track, selectors.of(*track));
    json.endArray();
    json.endObject();
    return true;
}

/// What the command line wants changed. Events count from 1 there.
bool collectEdits(const MidiOptions& options, TrackEdit& edit) {
    MidiEvent event;
    for (const std::string& text : options.modifications) {
        u32 index = 0;
        if (!parseIndexedMidiEvent(text, index, event)) return false;
        edit.modify(index - 1, event);
    }
    for (const u32 index : options.deletions) edit.remove(index - 1);
    for (const std::string& text : options.inserts) {
        if (!parseMidiEvent(text, event)) return false;
        edit.insert(event);
    }
    return true;
}

bool editEvents(const MidiOptions& options, const TrackEdit& edit, int row, TerminalUi& ui) {
    if (!openInput(options.path, options.input, ui)) return false;
    Track* track = selectTrack(options.track);
    if (!track || !edit.apply(*track)) return false;
    Song* song = FindParentSong(*track);
    if (!song) return Fail(kContext, "Parent song not found");
    return SaveItemAs(options.output, song, row, kAnyFormat, 0, false);
}

} // namespace

int runMidi(const MidiOptions& options, TerminalUi& ui) {
    if (options.action == "events") return listEvents(options, ui) ? kDone : reportFailure();

    const std::filesystem::path output = options.output;
    const int row = chooseRow(options.to.empty() ? output.extension().string() : options.to, RowUse::Write);
    if (row < 0) Fail(kContext, "\"{}\" names no format that can be written; use --to", options.output);
    TrackEdit edit;
    if (row < 0 || !collectEdits(options, edit)) {
        reportFailure();
        return kUsage;
    }
    std::error_code none;
    if (!options.force && std::filesystem::exists(output, none)) {
        Fail(kContext, "\"{}\" exists already; --force replaces it", options.output);
        return reportFailure();
    }
    ui.printResults = !ui.quiet();
    const bool done = editEvents(options, edit, row, ui);
    if (!ui.quiet()) printDiagnostics(10);
    return done ? kDone : reportFailure();
}

} // namespace kv
