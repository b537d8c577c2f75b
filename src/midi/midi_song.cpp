#include "midi/midi_song.h"

#include <fmt/format.h>

#include "base/run_context.h"
#include "midi/midi_track.h"
#include "midi/midi_track_writer.h"
#include "model/store.h"

namespace kv {
namespace {

void deleteTracks(Song& song) {
    for (Track* track : tracksOf(song)) song.store().Delete(track);
    song.childIds.clear();
}

/// Makes a track for each channel of `combined` that has events, and adds them to the song.
void addChannelTracks(Song& song, const Track& combined) {
    constexpr std::size_t kLeastBytes = 7; // more than an End of Track
    ChannelTracks tracks{};
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        const std::string name = i == 0 ? "Control Track" : fmt::format("Track {}", i);
        tracks[i] = song.store().Create<Track>(kNextFreeNumber, name);
    }
    extractChannels(combined, tracks);
    for (Track* track : tracks) {
        if (track->events.size() < kLeastBytes) {
            song.store().Delete(track);
            continue;
        }
        song.AddChild(track->id());
        scanTimeZero(*track, &song);
    }
}

bool toFormat0(Song& song) {
    Track* combined = kvGetFormat0Track(song);
    if (!combined) return false;
    combined->SetName("Combined track");
    deleteTracks(song);
    song.AddChild(combined->id());
    return true;
}

bool toFormat1(Song& song) {
    if (song.smfFormat == 1 && !toFormat0(song)) return false;
    const std::vector<Track*> tracks = tracksOf(song);
    if (tracks.empty()) return true;
    addChannelTracks(song, *tracks.front());
    song.RemoveChildAt(song.IndexOfChild(tracks.front()->id()));
    song.store().Delete(tracks.front());
    return true;
}

} // namespace

bool changeFileFormat(Song& song, u16 format) {
    if (format > 1) return true;
    if (!(format == 0 ? toFormat0(song) : toFormat1(song))) return false;
    song.smfFormat = format;
    song.SumTracks();
    return true;
}

namespace {

/// Makes format 0 songs of the tracks of a format 2 song.
class Format2Splitter {
public:
    explicit Format2Splitter(Song& song) : song_(song), tracks_(tracksOf(song)) {
        song_.Recount();
        if (isTempoMap(*tracks_.front())) tempo_ = tracks_.front();
        if (tempo_) prefix_ = timeZeroPrefix(*tempo_).size();
        prefixBudget_ = 4 * song_.dataSize + (u64{1} << 20);
    }
    Song* split() {
        Song* firstMade = nullptr;
        for (std::size_t i = tempo_ ? 1 : 0; i < tracks_.size(); ++i) {
            Song* made = songOf(*tracks_[i], i + (tempo_ ? 0 : 1));
            if (!firstMade) firstMade = made;
        }
        return firstMade;
    }

private:
    Song* songOf(Track& track, std::size_t number) {
        const bool unnamed = track.name().view().starts_with("Track ");
        const std::string name =
            unnamed ? fmt::format("{} {}", song_.name().view(), number) : track.name().str();
        Song* made = song_.store().Create<Song>(kNextFreeNumber, name);
        made->smfFormat = 0;
        made->division = song_.division;
        made->artist = song_.artist;
        made->engineer = song_.engineer;
        made->copyright = song_.copyright;
        made->product = song_.product;
        made->comments = song_.comments;

        Bytes events = std::move(track.events); // the old song goes anyway
        Track* copy = song_.store().Create<Track>(track, kNextFreeNumber);
        copy->events = std::move(events);
        if (tempo_ && !isTempoMap(*copy)) addPrefix(*copy);
        if (unnamed) copy->SetName("Pattern Track");
        made->AddChild(copy->id());
        made->Recount();
        return made;
    }
    /// A long tempo map in front of very many tracks would make gigabytes of a small file.
    void addPrefix(Track& track) {
        if (prefix_ > prefixBudget_) {
            runContext().diagnostics.warn(
                0, "MTrk", fmt::format("{}: the tempo map is too long to be copied", track.name().view()));
            return;
        }
        prefixBudget_ -= prefix_;
        copyTimeZeroPrefix(track, *tempo_);
    }

    Song& song_;
    std::vector<Track*> tracks_;
    const Track* tempo_ = nullptr;
    u64 prefix_ = 0, prefixBudget_;
};

} // namespace

Song* splitFormat2(Song& song) {
    if (song.childIds.size() <= 1) {
        song.smfFormat = 0;
        return &song;
    }
    Song* first = Format2Splitter(song).split();
    song.store().Delete(&song);
    return first;
}

namespace {

void stretch(Track& track, f64 factor) {
    const Bytes old = std::move(track.events);
    MidiTrackWriter out(&track, old.size());
    MidiEventCursor event(old);
    f64 pending = 0; // stretched ticks that are not written yet
    while (event.next()) {
        pending += event.delta * factor;
        const u32 delta = std::min(saturate<u32>(pending + 0.5), kMidiLengthLimit);
        pending -= delta;
        out.time += delta;
        out.copy(event);
    }
    out.finish();
}

} // namespace

bool changeTickRate(Song& song, u32 division) {
    constexpr u32 kMost = 32767;
    if (division == 0 || song.division <= 0 || division == static_cast<u32>(song.division)) return true;
    if (division > kMost) return Fail("Tick rate", "The highest tick rate of a song is {}", kMost);
    const f64 factor = f64{1} * division / song.division;
    for (Track* track : tracksOf(song)) stretch(*track, factor);
    song.division = static_cast<i16>(division);
    song.SumTracks();
    return true;
}

Song* FindParentSong(const Track& track) {
    for (Song& song : track.store().all<Song>()) {
        if (song.HasChild(track.id())) return &song;
    }
    return nullptr;
}

std::vector<Track*> tracksOf(const Song& song) {
    std::vector<Track*> tracks;
    tracks.reserve(song.childIds.size());
    for (const ItemId id : song.childIds) {
        if (Track* track = song.store().Find<Track>(id)) tracks.push_back(track);
    }
    return tracks;
}

} // namespace kv
