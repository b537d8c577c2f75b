#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "base/run_context.h"
#include "formats/songs/smf.h"
#include "midi/midi_song.h"
#include "midi/midi_track.h"
#include "model/collection.h"
#include "model/pending.h"
#include "model/store.h"
#include "model/workspace.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "mid_Parse";
constexpr u64 kChunkHeader = 8;

/// A file while it is read.
class SmfReader {
public:
    SmfReader(FileContext& file, const Item& collection) : file_(file), collection_(collection) {}

    Song* read(u64 start, u64 end) {
        for (u64 at = start; at < end;) {
            std::array<std::byte, kChunkHeader> header{};
            file_.position = at;
            if (file_.read(header) < header.size()) break;
            ByteCursor in(header);
            const std::string_view id = textOf(in.bytes(4));
            const u32 length = in.u32be();
            const u64 body = at + kChunkHeader;
            if (id == "MThd") readHeader();
            if (id == "MTrk" && song_) readTrack(length, end - std::min(body, end));
            at = body + length;
        }
        if (song_ && song_->smfFormat > 2)
            warn(start, "MThd", fmt::format("format {} is not known", song_->smfFormat));
        return song_;
    }

private:
    void warn(u64 at, std::string field, std::string text) {
        runContext().diagnostics.warn(at, std::move(field), std::move(text));
    }
    void readHeader() {
        std::array<std::byte, 6> fields{};
        file_.read(fields);
        ByteCursor in(fields);
        // One without tracks gives way: a file of headers alone must not fill the memory.
        if (!song_ || !song_->childIds.empty())
            song_ = store().Create<Song>(kNextFreeNumber, collection_.name());
        song_->smfFormat = in.u16be();
        in.skip(2);
        song_->division = in.s16be();
        if (song_->division <= 0) {
            runContext().diagnostics.add({Severity::Loss, file_.position, song_->name().str(), "division",
                                          "time in frames, or none: taken as 24 ticks per quarter note"});
        }
    }
    /// What a track is called until its events say more. Two digits, counting the control track or not.
    std::string firstName() {
        const u32 index = trackChunks_;
        if (song_->smfFormat != 0 && index > 0)
            return fmt::format("Track {:02}", namedFirst_ ? index : index + 1);
        namedFirst_ = true;
        return song_->smfFormat == 0 ? "Master Track" : "Control Track";
    }
    /// `left`: bytes up to the end of the range.
    void readTrack(u32 length, u64 left) {
        constexpr std::size_t kEndOfTrackOnly = 4;
        const u64 at = file_.position;
        const u64 there = std::min<u64>(left, file_.size() - std::min(at, file_.size()));
        std::string name = firstName();
        const bool first = trackChunks_++ == 0;
        if (length > there) warn(at, "MTrk", fmt::format("cut short: {} of {} bytes", there, length));
        Bytes events(static_cast<std::size_t>(std::min<u64>(length, there)));
        if (events.size() <= kEndOfTrackOnly) return;
        events.resize(file_.read(events));
        if (first) {
            name = "Track 01";
            namedFirst_ = false;
        }
        Track* track = store().Create<Track>(kNextFreeNumber, name);
        track->events = std::move(events);
        track->dataSize = track->events.size();
        scanTimeZero(*track);
        scanVoiceDumps(*track);
        song_->AddChild(track->id());
    }

    FileContext& file_;
    const Item& collection_;
    Song* song_ = nullptr;
    u32 trackChunks_ = 0;
    bool namedFirst_ = false; ///< a track name was given that has no number
};

} // namespace

bool mid_Parse(FileContext& file, Song*& songOut, u64 start, u64 end, const Item& collection) {
    songOut = start < end ? SmfReader(file, collection).read(start, end) : nullptr;
    if (!songOut) return Fail(kContext, "Invalid or corrupt Midi file");
    constexpr u16 kPatterns = 2;
    if (songOut->smfFormat == kPatterns) songOut = splitFormat2(*songOut);
    return true;
}

bool mid_Imp(Collection& collection, FileContext& file, u32) {
    Song* song = nullptr;
    return mid_Parse(file, song, 0, file.size(), collection);
}

} // namespace kv
