// Standard MIDI Files (formats 0, 1 and 2), after the Standard MIDI Files 1.0 specification of the MIDI
// Manufacturers Association. A track's chunk body is kept and written byte for byte. Ignored are the number
// of tracks in the header, a header length other than 6, and chunks of other ids.
#pragma once

#include <vector>

#include "base/file_context.h"
#include "model/song.h"

namespace kv {

class Collection;

/// Reads the chunks from `start` to `end` of the file into a song named after `collection`. A song of
/// format 2 is split; `songOut` is the first of what came of it. False with the error pair set when there
/// is no header. What the file ends too early for is kept as far as it goes.
bool mid_Parse(FileContext& file, Song*& songOut, u64 start, u64 end, const Item& collection);

/// What the file of a song or track will hold. The item must stay as it is until it is written.
class SmfPlan {
public:
    static constexpr int kAllGroups = -1;

    /// Chooses the tracks of a channel group, or all. Those of a format 1 song go behind its tempo map when
    /// they leave its first track out. False with the error pair set, `context` in it, for other items and
    /// for a track that no song holds.
    bool make(const Item& item, int channelGroup, std::string_view context);
    /// Bytes of the file.
    u64 size() const;
    /// Writes the file to the sink of `file`, without any patching. False with the error pair set when not
    /// all could be written.
    bool write(FileContext& file) const;

private:
    bool planTracks(const Song& song, const std::vector<const Track*>& tracks, bool wantsControl,
                    int channelGroup);

    u16 smfFormat_ = 0;
    i16 division_ = 0;
    Bytes control_; ///< events of the control track; empty without one
    std::vector<const Track*> tracks_;
    std::string_view context_;
};

/// `subType` is the channel group, as a negative number for all.
bool mid_Imp(Collection& collection, FileContext& file, u32 subType);
bool mid_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

} // namespace kv
