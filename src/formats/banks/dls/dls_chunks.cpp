#include "formats/banks/dls/dls_chunks.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/run_context.h"
#include "formats/audio/wav_fmt.h"
#include "formats/audio/wav_info.h"
#include "formats/audio/wav_reader.h"
#include "formats/banks/dls/dls_condition.h"
#include "formats/banks/dls/dls_records.h"
#include "model/collection.h"
#include "model/instrument.h"
#include "model/sample_blocks.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr int kDeepestList = 16;
/// Lists without contents take 12 bytes each, so a small file could ask for a great many items.
constexpr std::size_t kMostRegions = 262'144, kMostWaves = 65'536, kMostInstruments = 65'536;
constexpr std::size_t kMostProgramBytes = 65'536, kMostTextBytes = 65'536;

/// A wave while its list is read.
struct OpenWave {
    Wave* wave;
    WavFormat format{};
    bool formatSeen = false;
    std::optional<Chunk> data{};
};

/// Where the walk is: what its chunks belong to.
struct Place {
    DlsBank::InstrumentEntry* instrument = nullptr;
    DlsBank::RegionEntry* region = nullptr;
    OpenWave* wave = nullptr;
    u32 layer = 0; ///< number of the layer that a private list is about, from 1; 0: none
    int depth = 0;
    bool lar2Seen = false;
    bool skip = false; ///< a condition has turned off the rest of this list

    SampleParams* params() const {
        return region ? &region->region->params : wave ? &wave->wave->params : nullptr;
    }
};

class DlsWalk {
public:
    DlsWalk(FileContext& file, Collection& collection, DlsBank& bank)
        : file_(file), collection_(collection), bank_(bank) {}

    bool form(u64 start, u64 formEnd, u64 end);

private:
    using Handler = bool (DlsWalk::*)(const Chunk& chunk, Place& place);
    struct Row {
        u32 id;
        Handler handler;
    };
    static const Row kChunks[];
    static const Row kLists[];

    bool dispatch(std::span<const Row> rows, u32 id, const Chunk& chunk, Place& place, bool& found);
    bool take(const Chunk& chunk, Place& place);
    bool walk(u64 start, u64 end, Place& place);
    /// Walks the contents of a list, which belong to what `inner` says.
    bool contents(const Chunk& list, Place inner);
    Bytes read(const Chunk& chunk, std::size_t limit) { return readContents(*file_.source, chunk, limit); }
    void warn(const Chunk& chunk, std::string_view field, std::string_view text) {
        runContext().diagnostics.warn(chunk.start, std::string(field), std::string(text));
    }
    bool full(std::size_t count, std::size_t most, const Chunk& chunk, std::string_view field);

    bool list(const Chunk& chunk, Place& place);
    bool poolList(const Chunk& chunk, Place& place);
    bool waveList(const Chunk& chunk, Place& place);
    bool instrumentList(const Chunk& chunk, Place& place);
    bool regionList(const Chunk& chunk, Place& place);
    bool regionList2(const Chunk& chunk, Place& place);
    bool articulationList(const Chunk& chunk, Place& place);
    bool articulationList2(const Chunk& chunk, Place& place);
    bool songs(const Chunk& chunk, Place& place);
    bool privateList(const Chunk& chunk, Place& place);

    bool cueTable(const Chunk& chunk, Place& place);
    bool condition(const Chunk& chunk, Place& place);
    bool instrumentHeader(const Chunk& chunk, Place& place);
    bool regionHeader(const Chunk& chunk, Place& place);
    bool waveLink(const Chunk& chunk, Place& place);
    bool waveSample(const Chunk& chunk, Place& place);
    bool articulators(const Chunk& chunk, Place& place);
    bool format(const Chunk& chunk, Place& place);
    bool fact(const Chunk& chunk, Place& place);
    bool data(const Chunk& chunk, Place& place);
    bool text(const Chunk& chunk, Place& place);
    bool layerHeader(const Chunk& chunk, Place& place);
    bool regionMore(const Chunk& chunk, Place& place);
    bool waveSampleMore(const Chunk& chunk, Place& place);

    void finish(const OpenWave& open);
    void raise(int level) { bank_.level = std::max(bank_.level, level); }

    FileContext& file_;
    Collection& collection_;
    DlsBank& bank_;
    u64 pool_ = 0;
};

const DlsWalk::Row DlsWalk::kChunks[] = {
    {fourcc("LIST"), &DlsWalk::list},
    {fourcc("LKF1"), &DlsWalk::privateList},
    {fourcc("ptbl"), &DlsWalk::cueTable},
    {fourcc("cdl "), &DlsWalk::condition},
    {fourcc("insh"), &DlsWalk::instrumentHeader},
    {fourcc("rgnh"), &DlsWalk::regionHeader},
    {fourcc("wlnk"), &DlsWalk::waveLink},
    {fourcc("wsmp"), &DlsWalk::waveSample},
    {fourcc("art1"), &DlsWalk::articulators},
    {fourcc("art2"), &DlsWalk::articulators},
    {fourcc("fmt "), &DlsWalk::format},
    {fourcc("fact"), &DlsWalk::fact},
    {fourcc("data"), &DlsWalk::data},
    {fourcc("lyrh"), &DlsWalk::layerHeader},
    {fourcc("rgnx"), &DlsWalk::regionMore},
    {fourcc("wsmx"), &DlsWalk::waveSampleMore},
    {fourcc("ICMT"), &DlsWalk::text},
    {fourcc("IART"), &DlsWalk::text},
    {fourcc("ICOP"), &DlsWalk::text},
    {fourcc("IENG"), &DlsWalk::text},
    {fourcc("INAM"), &DlsWalk::text},
    {fourcc("IPRD"), &DlsWalk::text},
    {fourcc("ISRC"), &DlsWalk::text},
};

/// Lists of other types are entered for what they hold.
const DlsWalk::Row DlsWalk::kLists[] = {
    {fourcc("wvpl"), &DlsWalk::poolList},
    {fourcc("wave"), &DlsWalk::waveList},
    {fourcc("ins "), &DlsWalk::instrumentList},
    {fourcc("rgn "), &DlsWalk::regionList},
    {fourcc("rgn2"), &DlsWalk::regionList2},
    {fourcc("lart"), &DlsWalk::articulationList},
    {fourcc("art1"), &DlsWalk::articulationList},
    {fourcc("lar2"), &DlsWalk::articulationList2},
    {fourcc("lRMI"), &DlsWalk::songs},
};

// ---- The walk

bool DlsWalk::form(u64 start, u64 formEnd, u64 end) {
    Place place;
    ChunkWalker walker(*file_.source, start, end, std::endian::little, ChunkPadding::Doubtful);
    for (Chunk chunk; !place.skip && walker.next(chunk);) {
        // A form that states too small a size must not hide the waves.
        if (chunk.start - 8 >= formEnd && !bank_.waves.empty()) break;
        if (!take(chunk, place)) return false;
    }
    return true;
}

bool DlsWalk::walk(u64 start, u64 end, Place& place) {
    ChunkWalker walker(*file_.source, start, end, std::endian::little, ChunkPadding::Doubtful);
    for (Chunk chunk; !place.skip && walker.next(chunk);) {
        if (!take(chunk, place)) return false;
    }
    return true;
}

bool DlsWalk::dispatch(std::span<const Row> rows, u32 id, const Chunk& chunk, Place& place, bool& found) {
    const auto row = std::ranges::find_if(rows, [id](const Row& r) { return r.id == id; });
    found = row != rows.end();
    return !found || (this->*row->handler)(chunk, place);
}

bool DlsWalk::take(const Chunk& chunk, Place& place) {
    bool found = false;
    return dispatch(kChunks, chunk.id, chunk, place, found);
}

bool DlsWalk::contents(const Chunk& list, Place inner) {
    if (++inner.depth > kDeepestList) {
        warn(list, "LIST", "lists within lists; those too deep were left out");
        return true;
    }
    inner.lar2Seen = inner.skip = false;
    const u64 typeBytes = list.id == fourcc("LIST") ? 4 : 0;
    return walk(list.start + typeBytes, list.end(), inner);
}

bool DlsWalk::full(std::size_t count, std::size_t most, const Chunk& chunk, std::string_view field) {
    if (count == most) warn(chunk, field, "too many; the rest was left out");
    return count >= most;
}

// ---- Lists

bool DlsWalk::list(const Chunk& chunk, Place& place) {
    const Bytes type = read(chunk, 4);
    if (type.size() < 4) return true;
    bool found = false;
    const bool done = dispatch(kLists, fourcc(textOf(type)), chunk, place, found);
    return found ? done : contents(chunk, place);
}

bool DlsWalk::poolList(const Chunk& chunk, Place& place) {
    pool_ = chunk.start + 4;
    return contents(chunk, place);
}

bool DlsWalk::waveList(const Chunk& chunk, Place& place) {
    if (full(bank_.waves.size(), kMostWaves, chunk, "wave")) return true;
    OpenWave open{store().Create<Wave>(kNextFreeNumber, &genericReader,
                                       fmt::format("Wave {}", bank_.waves.size() + 1))};
    bank_.waves.push_back({open.wave, chunk.start - pool_ - 8});
    Place inner = place;
    inner.wave = &open;
    if (!contents(chunk, inner)) return false;
    finish(open);
    return true;
}

bool DlsWalk::instrumentList(const Chunk& chunk, Place& place) {
    if (full(bank_.instruments.size(), kMostInstruments, chunk, "ins ")) return true;
    Instrument* instrument = store().Create<Instrument>(kNextFreeNumber, 0U, 0U);
    Place inner = place;
    inner.instrument =
        &bank_.instruments.emplace_back(DlsBank::InstrumentEntry{instrument, {*instrument, bank_.budget}});
    return contents(chunk, inner);
}

bool DlsWalk::regionList(const Chunk& chunk, Place& place) {
    if (!place.instrument || full(bank_.regions.size(), kMostRegions, chunk, "rgn ")) return true;
    Place inner = place;
    inner.region = &bank_.regions.emplace_back(DlsBank::RegionEntry{store().Create<Region>(kNextFreeNumber)});
    if (!contents(chunk, inner)) return false;
    if (!inner.region->placed) place.instrument->layers.place(*inner.region->region, 0);
    return true;
}

bool DlsWalk::regionList2(const Chunk& chunk, Place& place) {
    raise(kDlsLevel2);
    return regionList(chunk, place);
}

bool DlsWalk::articulationList(const Chunk& chunk, Place& place) {
    return place.lar2Seen || contents(chunk, place);
}

bool DlsWalk::articulationList2(const Chunk& chunk, Place& place) {
    raise(kDlsLevel2);
    place.lar2Seen = true;
    return contents(chunk, place);
}

/// Songs stand in it as they are, each a form of its own.
bool DlsWalk::songs(const Chunk& chunk, Place&) {
    ChunkWalker walker(*file_.source, chunk.start + 4, chunk.end(), std::endian::little,
                       ChunkPadding::Doubtful);
    for (Chunk form; walker.next(form);) {
        if (form.id != fourcc("RIFF") || textOf(read(form, 4)) != "RMID") continue;
        if (bank_.readSong) {
            if (!bank_.readSong(file_, form.start - 8, form.end())) return false;
        } else {
            runContext().diagnostics.add({Severity::Loss, form.start, {}, "lRMI", "a song was left out"});
        }
    }
    return true;
}

bool DlsWalk::privateList(const Chunk& chunk, Place& place) {
    raise(kDlsLevel2Full);
    return contents(chunk, place);
}

// ---- The bank and its instruments

bool DlsWalk::cueTable(const Chunk& chunk, Place&) {
    bank_.cues = chunk;
    return true;
}

bool DlsWalk::condition(const Chunk& chunk, Place& place) {
    place.skip = !dlsConditionHolds(read(chunk, kMostProgramBytes));
    return true;
}

bool DlsWalk::instrumentHeader(const Chunk& chunk, Place& place) {
    if (!place.instrument) return true;
    const Bytes bytes = read(chunk, 12);
    ByteCursor in(bytes);
    in.skip(4); // how many regions it claims to have
    const u32 bank = in.u32le(), program = in.u32le();
    DlsBank::InstrumentEntry& entry = *place.instrument;
    Instrument& instrument = *entry.instrument;
    instrument.patch = (program & 127) | (bank & 127) << 7 | (bank >> 8 & 127) << 14;
    if ((bank & 1U << 31) != 0) instrument.patch |= Instrument::kDrumKit;
    if (entry.named) return true;
    instrument.SetName(fmt::format("{} {}-{}: {}", instrument.drumKit() ? "Drums" : "Instrument",
                                   instrument.bankMsb(), instrument.bankLsb(), instrument.program()));
    return true;
}

bool DlsWalk::regionHeader(const Chunk& chunk, Place& place) {
    if (!place.region || place.region->placed) return true;
    u32 layer = 0;
    if (!readDlsRegionHeader(read(chunk, 14), *place.region->region, layer)) {
        warn(chunk, "rgnh", "too short");
        return true;
    }
    place.region->placed = true;
    place.instrument->layers.place(*place.region->region, layer);
    return true;
}

bool DlsWalk::waveLink(const Chunk& chunk, Place& place) {
    if (place.region && !readDlsWaveLink(read(chunk, 12), *place.region->region, place.region->cue))
        warn(chunk, "wlnk", "too short");
    return true;
}

bool DlsWalk::waveSample(const Chunk& chunk, Place& place) {
    SampleParams* params = place.params();
    if (params && !readDlsWaveSample(*file_.source, chunk, *params)) warn(chunk, "wsmp", "too short");
    return true;
}

bool DlsWalk::articulators(const Chunk& chunk, Place& place) {
    DlsArticulators* target = place.region       ? &place.region->articulators
                              : place.instrument ? &place.instrument->articulators
                                                 : nullptr;
    if (place.layer > 0 && place.instrument) {
        DlsLayers::Slot* slot = place.instrument->layers.at(place.layer);
        target = slot ? &slot->articulators : nullptr;
    }
    if (target) (chunk.id == fourcc("art1") ? target->art1 : target->art2) = chunk;
    return true;
}

// ---- Waves

bool DlsWalk::format(const Chunk& chunk, Place& place) {
    if (!place.wave) return true;
    file_.position = chunk.start;
    place.wave->format = {};
    if (!wav_ParseFmt(file_, *place.wave->wave, place.wave->format)) return false;
    place.wave->formatSeen = true;
    if (place.wave->format.tag != kWavPcm) raise(kDlsLevel2Plus);
    return true;
}

bool DlsWalk::fact(const Chunk& chunk, Place& place) {
    if (!place.wave || place.wave->wave->frames != 0) return true;
    const Bytes bytes = read(chunk, 4);
    place.wave->wave->frames = ByteCursor(bytes).u32le();
    return true;
}

bool DlsWalk::data(const Chunk& chunk, Place& place) {
    if (!place.wave) return true;
    place.wave->data = chunk;
    place.wave->wave->sourceOffset = chunk.start;
    if (chunk.statedSize > chunk.size) warn(chunk, "data", "the sample data is cut short");
    return true;
}

/// Settled at the end of a wave's list, whose chunks may come in any order.
void DlsWalk::finish(const OpenWave& open) {
    Wave& wave = *open.wave;
    if (!open.formatSeen || !open.data) {
        wave.frames = 0;
        return;
    }
    const u32 held = wav_FramesFromBytes(wave, open.format, open.data->size);
    if (wave.frames > held) warn(*open.data, "fact", "more frames are stated than are there");
    wave.frames = wave.frames == 0 ? held : std::min(wave.frames, held);
    rememberWavLayout(wave, open.format, open.data->size);
}

// ---- Texts

bool DlsWalk::text(const Chunk& chunk, Place& place) {
    if (place.wave) {
        file_.position = chunk.start;
        wav_ParseInfoItem(file_, *place.wave->wave, chunk.id, chunk.size);
        return true;
    }
    if (place.region) return true;
    const std::string text = textFromBytes(read(chunk, kMostTextBytes));
    if (place.instrument) {
        DlsBank::InstrumentEntry& entry = *place.instrument;
        if (chunk.id == fourcc("ICMT")) entry.instrument->comment = text;
        if (chunk.id != fourcc("INAM") || text.empty()) return true;
        entry.instrument->SetName(text);
        entry.named = true;
        return true;
    }
    if (chunk.id == fourcc("INAM") && !text.empty()) collection_.SetName(text, false);
    if (chunk.id == fourcc("IENG")) collection_.engineer = text;
    if (chunk.id == fourcc("ICOP")) collection_.copyright = text;
    if (chunk.id == fourcc("ICMT")) collection_.comments = text;
    return true;
}

// ---- The private list

bool DlsWalk::layerHeader(const Chunk& chunk, Place& place) {
    const Bytes bytes = read(chunk, 2);
    place.layer = ByteCursor(bytes).u16le();
    return true;
}

bool DlsWalk::regionMore(const Chunk& chunk, Place& place) {
    if (place.region) readDlsRegionMore(read(chunk, 2), *place.region->region);
    return true;
}

bool DlsWalk::waveSampleMore(const Chunk& chunk, Place& place) {
    if (SampleParams* params = place.params()) readDlsWaveSampleMore(read(chunk, 10), *params);
    return true;
}

} // namespace

bool walkDlsChunks(FileContext& file, Collection& collection, u64 start, u64 formEnd, u64 end,
                   DlsBank& bank) {
    return DlsWalk(file, collection, bank).form(start, formEnd, end);
}

} // namespace kv
