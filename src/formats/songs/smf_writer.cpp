#include <algorithm>

#include "base/run_context.h"
#include "formats/songs/smf.h"
#include "midi/midi_song.h"
#include "midi/midi_track.h"
#include "model/store.h"

namespace kv {
namespace {

constexpr u64 kChunkHeader = 8, kHeaderBody = 6;

bool writeTrack(FileContext& file, ByteSpan events) {
    ByteWriter header;
    header.text("MTrk").u32be(static_cast<u32>(events.size()));
    return file.write(header.view()) && file.write(events);
}

} // namespace

bool SmfPlan::make(const Item& item, int channelGroup, std::string_view context) {
    context_ = context;
    control_.clear();
    tracks_.clear();
    if (classOf(item.id()) == kSongClass) {
        const auto& song = static_cast<const Song&>(item);
        const std::vector<Track*> tracks = tracksOf(song);
        smfFormat_ = song.smfFormat;
        const bool wantsControl = song.smfFormat == 1 && channelGroup >= 0 && !tracks.empty() &&
                                  channelGroup != tracks.front()->channelGroup;
        return planTracks(song, {tracks.begin(), tracks.end()}, wantsControl, channelGroup);
    }
    if (classOf(item.id()) == kTrackClass) {
        const auto& track = static_cast<const Track&>(item);
        const Song* song = FindParentSong(track);
        if (!song) return Fail(context_, "Parent song not found");
        const bool wantsControl = song->smfFormat == 1 && song->IndexOfChild(track.id()) != 0;
        smfFormat_ = wantsControl ? 1 : 0;
        return planTracks(*song, {&track}, wantsControl, channelGroup);
    }
    return Fail(context_, "The file format can not save this item");
}

bool SmfPlan::planTracks(const Song& song, const std::vector<const Track*>& tracks, bool wantsControl,
                         int channelGroup) {
    division_ = song.division;
    if (wantsControl) control_ = tempoMapOf(*tracksOf(song).front());
    std::copy_if(tracks.begin(), tracks.end(), std::back_inserter(tracks_),
                 [&](const Track* track) { return channelGroup < 0 || track->channelGroup == channelGroup; });
    return std::all_of(tracks_.begin(), tracks_.end(),
                       [](const Track* track) { return track->events.size() <= 0xFFFFFFFF; }) ||
           Fail(context_, "The file format can not save this item");
}

u64 SmfPlan::size() const {
    u64 bytes = kChunkHeader + kHeaderBody;
    if (!control_.empty()) bytes += kChunkHeader + control_.size();
    for (const Track* track : tracks_) bytes += kChunkHeader + track->events.size();
    return bytes;
}

bool SmfPlan::write(FileContext& file) const {
    const std::size_t count = tracks_.size() + (control_.empty() ? 0 : 1);
    if (count > 0xFFFF) runContext().diagnostics.warn(0, "MThd", "more tracks than the header can tell");
    ByteWriter header;
    header.text("MThd")
        .u32be(kHeaderBody)
        .u16be(smfFormat_)
        .u16be(static_cast<u16>(std::min<std::size_t>(count, 0xFFFF)));
    header.u16be(static_cast<u16>(division_));
    bool written = file.write(header.view());
    if (!control_.empty()) written = written && writeTrack(file, control_);
    for (const Track* track : tracks_) written = written && writeTrack(file, track->events);
    return written || Fail(context_, "Not all could be written");
}

bool mid_Exp(Item& item, FileContext& file, u32, u32 subType, bool, f32) {
    SmfPlan plan;
    return plan.make(item, static_cast<i32>(subType), "mid_Exp") && plan.write(file);
}

} // namespace kv
