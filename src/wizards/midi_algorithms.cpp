// The rows of the algorithms for songs and tracks.
#include <fmt/format.h>

#include <algorithm>

#include "base/run_context.h"
#include "midi/midi_process.h"
#include "midi/midi_song.h"
#include "model/collection.h"
#include "model/workspace.h"
#include "wizards/algorithm_table.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "process";

/// The songs that the items stand for: all of a collection's, and those of tracks.
std::vector<Song*> songsOf(const WizardItems& items) {
    std::vector<Song*> songs;
    const auto add = [&](Song* song) {
        if (song && std::find(songs.begin(), songs.end(), song) == songs.end()) songs.push_back(song);
    };
    for (Item* item : items.items) {
        switch (classOf(item->id())) {
            case kCollectionClass:
                for (Song& song : store().all<Song>()) add(&song);
                break;
            case kSongClass:
                add(static_cast<Song*>(item));
                break;
            case kTrackClass:
                add(FindParentSong(*static_cast<Track*>(item)));
                break;
            default:
                break;
        }
    }
    return songs;
}

/// Calls `work(track, song)` for the tracks that the items stand for.
template <class Work>
void forEachTrack(const WizardItems& items, Work work) {
    for (Song* song : songsOf(items)) {
        const bool whole = std::any_of(items.items.begin(), items.items.end(), [&](const Item* item) {
            return item == song || classOf(item->id()) == kCollectionClass;
        });
        for (Track* track : tracksOf(*song)) {
            if (whole || std::find(items.items.begin(), items.items.end(), track) != items.items.end())
                work(*track, *song);
        }
        song->FixUp();
    }
}

u64 sizeOf(const WizardItems& items) {
    u64 bytes = 0;
    forEachTrack(items, [&](const Track& track, const Song&) { bytes += track.events.size(); });
    return bytes;
}

bool anySong(const WizardItems& items) {
    return !songsOf(items).empty();
}

bool done(std::string_view status) {
    PostStatus(std::string(status));
    return true;
}

// ---- The algorithms

constexpr Parameter kTickRate[] = {
    {.kind = ParameterKind::Integer,
     .slug = "to",
     .label = "to:",
     .unit = "ticks/4th",
     .initial = 480,
     .least = 1,
     .most = 65535},
};
bool runTickRate(AlgorithmRun& run) {
    for (Song* song : songsOf(run.items)) {
        if (!changeTickRate(*song, static_cast<u32>(run.values.integer("to")))) return false;
    }
    return done("Changed MIDI tick rate");
}

constexpr Parameter kCompact[] = {
    {.kind = ParameterKind::Switch,
     .slug = "duplicates",
     .label = "Removing duplicate messages",
     .initial = 1},
    {.kind = ParameterKind::Switch,
     .slug = "note-offs",
     .label = "Replacing Note-Off with Note-On + Vel 0",
     .initial = 1},
    {.kind = ParameterKind::Switch,
     .slug = "merge-tracks",
     .label = "Merging tracks (Convert to MIDI format 0)"},
};
bool runCompact(AlgorithmRun& run) {
    const u64 before = sizeOf(run.items);
    if (run.values.on("merge-tracks")) {
        for (Song* song : songsOf(run.items)) {
            if (!changeFileFormat(*song, 0)) return false;
        }
    }
    MidiCompaction how{run.values.on("duplicates"), run.values.on("note-offs")};
    const Song* last = nullptr;
    forEachTrack(run.items, [&](Track& track, const Song& song) {
        if (&song != last) how.sharedChannels = channelsOfSeveralTracks(song);
        last = &song;
        compactTrack(track, how);
    });
    const i64 saved = static_cast<i64>(before) - static_cast<i64>(sizeOf(run.items));
    return done(fmt::format("MIDI compacting saved {} Bytes", saved));
}

constexpr Choice kFormats[] = {
    {"0", "Format 0 (single track)"},
    {"1", "Format 1 (multiple tracks)\nAssigns each MIDI ch to it's own track."},
};
constexpr Parameter kFormat[] = {
    {.kind = ParameterKind::Choice, .slug = "to", .label = "Change MIDI format to:", .choices = kFormats},
};
bool runFormat(AlgorithmRun& run) {
    for (Song* song : songsOf(run.items)) {
        if (!changeFileFormat(*song, static_cast<u16>(run.values.choice("to")))) return false;
    }
    return done("Changed MIDI format");
}

constexpr std::string_view kBadChannels = "Invalid channel range";
constexpr Parameter kFilter[] = {
    {.kind = ParameterKind::Switch, .slug = "sysex", .label = "System Exclusive messages"},
    {.kind = ParameterKind::Switch, .slug = "meta", .label = "Meta events (except tempo && track name)"},
    {.kind = ParameterKind::Switch, .slug = "aftertouch", .label = "Aftertouch (both channel and poly)"},
    {.kind = ParameterKind::Switch, .slug = "channels", .label = "From ch"},
    {.kind = ParameterKind::Integer,
     .slug = "from",
     .label = "From ch",
     .unit = "1..16",
     .initial = 1,
     .least = 1,
     .most = 16,
     .refusal = kBadChannels,
     .turnsOn = "channels"},
    {.kind = ParameterKind::Integer,
     .slug = "to",
     .label = "to ch",
     .unit = "1..16",
     .initial = 16,
     .least = 1,
     .most = 16,
     .refusal = kBadChannels,
     .turnsOn = "channels"},
};
bool runFilter(AlgorithmRun& run) {
    MidiFilter filter{run.values.on("sysex"), run.values.on("meta"), run.values.on("aftertouch")};
    if (run.values.on("channels")) {
        filter.firstChannel = run.values.integer("from") - 1;
        filter.lastChannel = run.values.integer("to") - 1;
        if (filter.firstChannel > filter.lastChannel) return Fail(kContext, "{}", kBadChannels);
    }
    forEachTrack(run.items, [&](Track& track, const Song&) { filterEvents(track, filter); });
    return done("Filtered MIDI");
}

constexpr Parameter kFix[] = {
    {.kind = ParameterKind::Switch,
     .slug = "bank-lsb",
     .label =
         "Ensure that there are a 'Bank LSB' (CC 32) message to complement every 'Bank MSB' (CC 0) message. "
         "[Many synths require that both are present before to work]",
     .initial = 1},
    {.kind = ParameterKind::Switch,
     .slug = "programs",
     .label = "Ensure that there are a 'Program change' message before the first note of each MIDI channel. "
              "[Some synths wont play without it]",
     .initial = 1},
    {.kind = ParameterKind::Switch,
     .slug = "remove-sysex",
     .label = "Remove all MIDI System Exclusive messages. [Synthesizer specific messages]"},
    {.kind = ParameterKind::Switch,
     .slug = "note-offs",
     .label = "Replace Note-On velocity 0 messages with Note-Off messages. [Wider compatiblity]"},
};
bool runFix(AlgorithmRun& run) {
    const MidiFixes fixes{run.values.on("bank-lsb"), run.values.on("programs"), run.values.on("remove-sysex"),
                          run.values.on("note-offs")};
    forEachTrack(run.items, [&](Track& track, const Song&) { fixCompatibility(track, fixes); });
    return done("Fixed MIDI");
}

bool runReplaceNoteOns(AlgorithmRun& run) {
    const MidiFixes fixes{.noteOffs = true};
    forEachTrack(run.items, [&](Track& track, const Song&) { fixCompatibility(track, fixes); });
    return done("Replaced Note-On with velocity 0");
}

constexpr Parameter kTranspose[] = {
    {.kind = ParameterKind::Integer,
     .slug = "semitones",
     .label = "Transpose all notes by:",
     .unit = "semitones",
     .least = -127,
     .most = 127,
     .refusal = "The transpose value must be in the range of -127..127 semi-tones!"},
    {.kind = ParameterKind::Switch,
     .slug = "exclude-drums",
     .label = "Exclude channel 10 (usually drums)",
     .initial = 1},
};
bool runTranspose(AlgorithmRun& run) {
    forEachTrack(run.items, [&](Track& track, const Song&) {
        transposeNotes(track, run.values.integer("semitones"), run.values.on("exclude-drums"));
    });
    return done("Transposed MIDI");
}

constexpr f64 kMostSeconds = 1e9;
constexpr Parameter kTrim[] = {
    {.kind = ParameterKind::Switch,
     .slug = "to-first-note",
     .label = "Trim (cut) from start until first note event"},
    {.kind = ParameterKind::Switch, .slug = "cut-start", .label = "Trim (cut) the first:"},
    {.kind = ParameterKind::Number,
     .slug = "start",
     .label = "Trim (cut) the first:",
     .unit = "seconds",
     .least = -kMostSeconds,
     .most = kMostSeconds,
     .turnsOn = "cut-start"},
    {.kind = ParameterKind::Switch, .slug = "crop", .label = "Trim the length (duration) to:"},
    {.kind = ParameterKind::Number,
     .slug = "length",
     .label = "Trim the length (duration) to:",
     .unit = "seconds",
     .initial = 1,
     .least = -kMostSeconds,
     .most = kMostSeconds,
     .turnsOn = "crop"},
};
bool runTrim(AlgorithmRun& run) {
    MidiTrim trim;
    trim.toFirstNote = run.values.on("to-first-note");
    if (run.values.on("cut-start")) trim.cutSeconds = run.values.number("start");
    if (run.values.on("crop")) {
        trim.lengthSeconds = run.values.number("length");
        if (!(*trim.lengthSeconds > 0)) return Fail(kContext, "The crop length must be larger than 0!");
    }
    // All ranges first: the tempo map that they go by is trimmed, too.
    std::vector<std::pair<Song*, TrimRange>> ranges;
    for (Song* song : songsOf(run.items)) ranges.emplace_back(song, trimRange(*song, trim));
    forEachTrack(run.items, [&](Track& track, const Song& song) {
        const auto range = std::find_if(ranges.begin(), ranges.end(),
                                        [&](const auto& entry) { return entry.first == &song; });
        trimTrack(track, range->second);
    });
    return done("Trimmed MIDI");
}

constexpr AlgorithmKind kMidi = AlgorithmKind::Midi;
constexpr Algorithm kRows[] = {
    {kMidi, "Change tick rate", kTickRate, runTickRate, 0, anySong},
    {kMidi, "Compact MIDI file size", kCompact, runCompact, 0, anySong},
    {kMidi, "Convert MIDI format", kFormat, runFormat, 0, anySong},
    {kMidi, "Filter MIDI messages", kFilter, runFilter, 0, anySong},
    {kMidi, "Fix compatibility issues & improve portability", kFix, runFix, 0, anySong},
    {kMidi, "Replace Note-On with velocity 0 with Note-Off", {}, runReplaceNoteOns, 0, anySong},
    {kMidi, "Transpose notes", kTranspose, runTranspose, 0, anySong},
    {kMidi, "Trim start and/or length", kTrim, runTrim, 0, anySong},
};

} // namespace

std::span<const Algorithm> midiAlgorithms() {
    return kRows;
}

} // namespace kv
