// What a conversion lost: the model before against a re-read of what was written.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "model/articulation.h"
#include "model/item_id.h"
#include "model/sample_params.h"

namespace kv {

class Item;

/// A wave or a region with all that could get lost of it, apart from the store.
struct SoundSnapshot {
    std::string owner; ///< name of the instrument; empty for a wave
    u32 patch = 0;
    std::string name; ///< of the wave that is played
    u8 keyLow = 0, keyHigh = 127, velLow = 0, velHigh = 127;
    std::map<std::string, double> fields; ///< by name, in the model's units
};
using Snapshot = std::vector<SoundSnapshot>;

/// Everything that the store holds.
Snapshot takeSnapshot();
/// An item as a file of its own would hold it: an instrument, or the one of a layer or region, with the waves
/// that it plays; or a wave.
Snapshot takeSnapshot(const Item& item);

struct Loss {
    std::string item, field;
    double before = 0, after = 0;
    bool missing = false; ///< the whole item is
};

/// What differs, item by item. Values count as equal within the rounding of sampler formats.
std::vector<Loss> compareSnapshots(const Snapshot& before, const Snapshot& after);

/// Reads a file aside, compares it with a snapshot and adds what differs. False with the error pair set when
/// it can't be read. `whole` is false for the snapshot of an item.
bool findLosses(const Snapshot& before, bool whole, const std::filesystem::path& written,
                std::vector<Loss>& losses);

/// Prints losses as a table of counts, or writes all of them as JSON to a file. False with the error pair set
/// when that can't be written.
bool reportLosses(const std::vector<Loss>& losses, const std::string& file);

} // namespace kv
