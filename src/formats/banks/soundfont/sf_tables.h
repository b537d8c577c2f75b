// The chunks and record tables of a SoundFont, of both versions, as far as they can be trusted.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "base/file_context.h"
#include "formats/banks/soundfont/sf_zone.h"
#include "formats/framework/chunks.h"

namespace kv {

class Collection;

/// Records of one size, read whole.
class SfRecords {
public:
    void assign(Bytes bytes, std::size_t recordBytes) {
        bytes_ = std::move(bytes);
        recordBytes_ = recordBytes;
    }
    std::size_t count() const { return bytes_.size() / recordBytes_; }
    /// A cursor over one record; past the end it reads zeros.
    ByteCursor operator[](std::size_t index) const {
        if (index >= count()) return ByteCursor({});
        return ByteCursor(ByteSpan(bytes_).subspan(index * recordBytes_, recordBytes_));
    }

private:
    Bytes bytes_;
    std::size_t recordBytes_ = 1;
};

/// Records [begin, end) of a table.
struct SfSpan {
    std::size_t begin = 0, end = 0;
};

/// A name with the bags that belong to it: a preset or an instrument.
struct SfGroup {
    std::string name;
    u16 program = 0, bank = 0; ///< of a preset
    SfSpan bags;
};

/// Presets with their zones, or instruments with theirs: the same four tables twice.
class SfGroups {
public:
    /// `recordBytes` of the named records, `end` the name that ends the list.
    struct Layout {
        std::size_t recordBytes;
        bool presets;
        std::string_view end;
    };

    SfRecords names, bags, modulators, generators;

    /// Reads the names up to the end record. A last record that is no end record by its name counts as one
    /// when no bags are left for it.
    std::vector<SfGroup> groups(const Layout& layout) const;
    /// Changes `zone` by the generators and modulators of a bag. False when the bag's indices don't rise.
    /// `work` counts the records gone over.
    bool read(std::size_t bag, Generator target, SfZone& zone, u64& work) const;

    /// Modulators without a place in the model, met so far.
    mutable u64 dropped = 0;
};

struct SfFile {
    u32 form = 0; ///< "sfbk" or "sfpk"
    u16 major = 0, minor = 0;
    std::optional<Chunk> smpl, sm24;
    SfRecords samples; ///< `shdr`
    SfRecords names;   ///< `snam` of version 1
    SfGroups presets, instruments;
    bool versionSeen = false;

    /// Reads the chunks of a file. INFO texts go to the collection. False when it is no SoundFont at all.
    bool read(FileContext& file, Collection& collection);

private:
    void walk(ByteSource& source, u64 start, u64 end, int depth, Collection& collection);
    void take(ByteSource& source, const Chunk& chunk, Collection& collection);
};

inline constexpr std::size_t kSfNameBytes = 20;
inline constexpr std::size_t kSf2SampleBytes = 46, kSf1SampleBytes = 16;

} // namespace kv
