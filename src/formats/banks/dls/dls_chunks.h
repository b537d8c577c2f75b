// The walk over the chunks of a DLS bank, which makes the items and notes what has to wait for the end.
// Documents: "Downloadable Sounds Level 1, version 1.1b" and "Level 2.2" (MIDI Manufacturers Association).
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "base/file_context.h"
#include "formats/banks/dls/dls_placement.h"

namespace kv {

class Collection;
class Wave;

inline constexpr u32 kNoDlsCue = 0xFFFFFFFF;

/// Reads a song that stands as a whole form `RMID` between two places of the file. False with the error pair
/// set when that must end the reading of the bank.
using DlsSongReader = std::function<bool(FileContext& file, u64 start, u64 end)>;

/// What a file holds besides the items themselves.
struct DlsBank {
    struct RegionEntry {
        Region* region;
        u32 cue = kNoDlsCue; ///< index in the cue table
        bool placed = false;
        DlsArticulators articulators{};
    };
    struct InstrumentEntry {
        Instrument* instrument;
        DlsLayers layers;
        bool named = false;
        DlsArticulators articulators{};
    };
    struct WaveEntry {
        Wave* wave;
        u64 position; ///< of its list behind the type word of the pool
    };

    DlsSongReader readSong{}; ///< none: songs are left out
    int level = 1;            ///< 1, 2, 3 for "2+", 4 for "2++"
    std::optional<Chunk> cues;
    DlsPlacementBudget budget{};
    std::deque<InstrumentEntry> instruments{}; ///< places stay: the walk points to them
    std::deque<RegionEntry> regions{};
    std::vector<WaveEntry> waves{};
};

/// Walks the chunks between two places of a file, behind the form's type word. The form is stated to end at
/// `formEnd`; what follows up to `end` is walked only as long as there are no waves, and a list that begins
/// within the form may end behind it. False with the error pair set when a wave's format can't be read.
bool walkDlsChunks(FileContext& file, Collection& collection, u64 start, u64 formEnd, u64 end, DlsBank& bank);

} // namespace kv
