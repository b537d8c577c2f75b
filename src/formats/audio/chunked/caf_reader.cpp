#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <vector>

#include "base/run_context.h"
#include "base/text.h"
#include "formats/audio/chunked/caf.h"
#include "formats/audio/chunked/packets.h"
#include "formats/audio/chunked/wave_notes.h"
#include "formats/media/media_import.h"
#include "formats/media/media_kinds.h"
#include "model/collection.h"
#include "model/wave.h"
#include "samples/data_format.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "caf_Imp";
constexpr std::size_t kMostTables = 1 << 24; // bytes of markers, regions or strings
constexpr u64 kEditCountBytes = 4;           // ahead of the samples

/// The desc chunk.
struct Description {
    f64 rate = 0; ///< Hz
    std::string format;
    u32 flags = 0, bytesPerPacket = 0, framesPerPacket = 0, channels = 0, bits = 0;
};

/// Formats that are no linear samples; all others are left to libav.
struct Format {
    std::string_view id;
    u32 code = 0; ///< of plain samples
    PacketCoding coding = PacketCoding::None;
};
constexpr Format kFormats[] = {
    {"ulaw", kMuLaw},
    {"alaw", kALaw},
    {"ima4", 0, PacketCoding::Ima4},
    {"agsm", 0, PacketCoding::Gsm},
};

struct Marker {
    u32 type = 0;
    f64 position = 0; ///< frames
    u32 id = 0;
};
struct Region {
    u32 id = 0, flags = 0;
    f64 start = 0, end = 0; ///< frames; the end is exclusive
};
/// The inst chunk.
struct Instrument {
    f64 baseNote = 60, gainDb = 0;
    u32 startRegion = 0, sustainRegion = 0, releaseRegion = 0;
};

f64 readF64(ByteCursor& in) {
    return std::bit_cast<f64>(in.u64be());
}
/// A number of a hostile file, made finite.
f64 readF32(ByteCursor& in, f64 fallback) {
    const f64 value = static_cast<f64>(std::bit_cast<f32>(in.u32be()));
    return std::isfinite(value) ? value : fallback;
}

Marker readMarker(ByteCursor& in) {
    Marker marker;
    marker.type = in.u32be();
    marker.position = readF64(in);
    marker.id = in.u32be();
    in.skip(12); // a time code, and the channel
    const bool possible = marker.position >= 0 && marker.position <= 4294967295.0;
    if (!possible) marker.position = 0;
    return marker;
}

class CafParser {
public:
    explicit CafParser(FileContext& file) : file_(file) {}
    bool parse();

private:
    bool collect();
    bool description();
    bool samples();
    Wave* importLinear(u64 start, u64 bytes);
    void information();
    void strings();
    void instrument(Instrument& instrument);
    void regions();
    void markers();
    void takeLoop(const Instrument& instrument);
    void cuePoints();

    const Chunk* find(std::string_view id) const {
        const auto found = chunks_.find(fourcc(id));
        return found == chunks_.end() ? nullptr : &found->second;
    }
    Bytes contents(std::string_view id, std::size_t limit) const {
        const Chunk* chunk = find(id);
        return chunk ? readContents(*file_.source, *chunk, limit) : Bytes();
    }
    std::string nameOf(u32 id) const {
        const auto found = names_.find(id);
        return found == names_.end() ? std::string() : found->second;
    }

    FileContext& file_;
    std::map<u32, Chunk> chunks_; ///< the first of each kind
    Description desc_;
    Wave* wave_ = nullptr;
    std::map<u32, std::string> names_;
    std::vector<Region> regions_;
    std::vector<Marker> markers_;
};

/// A chunk could begin there, or the file ends.
bool chunkStandsAt(ByteSource& source, u64 at) {
    std::array<std::byte, 4> id{};
    const std::size_t count = source.readAt(at, id);
    return count == 0 || std::all_of(id.begin(), id.end(),
                                     [](std::byte b) { return b >= std::byte{0x20} && b < std::byte{0x7F}; });
}

bool CafParser::collect() {
    constexpr std::string_view kIds[] = {"desc", "data", "pakt", "info", "strg", "inst", "regn", "mark"};
    constexpr u64 kFileHeaderBytes = 8, kChunkHeaderBytes = 12;
    Bytes header(kChunkHeaderBytes);
    header.resize(file_.source->readAt(0, header));
    if (!textOf(header).starts_with("caff")) return Fail(kContext, "Not an Apple CoreAudio file");
    for (u64 at = kFileHeaderBytes, end = file_.size(); at < end && end - at >= kChunkHeaderBytes;) {
        if (file_.source->readAt(at, header) != kChunkHeaderBytes) break;
        ByteCursor in(header);
        Chunk chunk;
        chunk.id = in.u32le();
        chunk.statedSize = in.u64be();
        chunk.start = at + kChunkHeaderBytes;
        // A writer that was cut off: no size yet, and samples where a chunk should be.
        if (chunk.id == fourcc("data") && chunk.statedSize <= kEditCountBytes &&
            !chunkStandsAt(*file_.source, chunk.start + chunk.statedSize))
            chunk.statedSize = std::numeric_limits<u64>::max();
        chunk.size = std::min(chunk.statedSize, end - chunk.start); // -1 is up to the end, as it has to be
        if (std::any_of(std::begin(kIds), std::end(kIds), [&](auto id) { return fourcc(id) == chunk.id; }))
            chunks_.emplace(chunk.id, chunk);
        at = chunk.end();
    }
    if (!find("desc")) return Fail(kContext, "Couldn't find desc chunk!");
    return find("data") || Fail(kContext, "Couldn't find data chunk!");
}

bool CafParser::description() {
    const Bytes bytes = contents("desc", 32);
    ByteCursor in(bytes);
    desc_.rate = readF64(in);
    desc_.format = textOf(in.bytes(4));
    for (u32* field :
         {&desc_.flags, &desc_.bytesPerPacket, &desc_.framesPerPacket, &desc_.channels, &desc_.bits})
        *field = in.u32be();
    return in.ok() || Fail(kContext, "The desc chunk is too short");
}

/// Samples stand in the high bits of a whole number of bytes.
Wave* CafParser::importLinear(u64 start, u64 bytes) {
    const auto refuse = [](std::string_view why) -> Wave* {
        Fail(kContext, why);
        return nullptr;
    };
    if (desc_.channels == 0) return refuse("No channels");
    if ((desc_.flags & caf::kIsPlanar) != 0)
        return refuse("Samples of channels that stand apart are not supported");
    const u32 sampleBytes =
        desc_.bytesPerPacket != 0 ? desc_.bytesPerPacket / desc_.channels : (desc_.bits + 7) / 8;
    const bool whole = desc_.bytesPerPacket % desc_.channels == 0 && desc_.framesPerPacket <= 1;
    if (!whole || desc_.bits == 0 || desc_.bits > sampleBytes * 8 || sampleBytes > 8)
        return refuse("Unsupported number of bits per sample");

    constexpr u32 kIntegers[] = {0, kPcm8, kPcm16, kPcm24, kPcm32, 0, 0, 0, 0};
    constexpr u32 kFloats[] = {0, 0, 0, 0, kFloat32, 0, 0, 0, kFloat64};
    const bool isFloat = (desc_.flags & caf::kIsFloat) != 0;
    const u32 code = (isFloat ? kFloats : kIntegers)[sampleBytes];
    if (code == 0) return refuse("Unsupported number of bits per sample");
    const bool swapped = sampleBytes > 1 && (desc_.flags & caf::kIsLittleEndian) == 0;
    Wave* wave = importWhole(
        file_, {code | (swapped ? kByteswap : 0), desc_.channels, wholeRate(desc_.rate), start, bytes, 0},
        kContext);
    if (wave && !isFloat) wave->bits = desc_.bits;
    return wave;
}

bool CafParser::samples() {
    const Chunk& data = *find("data");
    const u64 skipped = std::min(data.size, kEditCountBytes);
    const u64 start = data.start + skipped;
    // What is missing is to be told, but for a stream whose length was never known.
    const bool open = data.statedSize > std::numeric_limits<u64>::max() / 2;
    const u64 bytes =
        open ? data.size - skipped : data.statedSize - std::min(data.statedSize, kEditCountBytes);
    if (desc_.format == "lpcm") return (wave_ = importLinear(start, bytes)) != nullptr;

    const u32 rate = wholeRate(desc_.rate);
    const Bytes table = contents("pakt", 24);
    ByteCursor in(table);
    in.skip(8);
    const u64 frames = in.u64be();
    const i32 priming = in.s32be();
    const bool known = in.ok() && frames > 0 && frames <= 0xFFFFFFFF;

    const auto* format = std::find_if(std::begin(kFormats), std::end(kFormats),
                                      [&](const Format& f) { return f.id == desc_.format; });
    if (format == std::end(kFormats)) {
        TrackEdges edges;
        if (known) edges = {static_cast<u32>(std::max(priming, 0)), static_cast<u32>(frames)};
        wave_ = importCoded(file_, kMediaCaf, AnsiToUtf8(desc_.format), edges);
        return wave_ != nullptr;
    }
    if (format->coding == PacketCoding::None) {
        wave_ = importWhole(file_, {format->code, desc_.channels, rate, start, bytes, 0}, kContext);
        return wave_ != nullptr;
    }
    PacketLayout layout{
        .coding = format->coding, .channels = desc_.channels, .rate = rate, .offset = start, .bytes = bytes};
    if (known) layout.frames = frames;
    if (known && priming > 0)
        runContext().diagnostics.warn(find("pakt")->start, "pakt",
                                      fmt::format("{} frames ahead of the first are kept", priming));
    wave_ = importPackets(file_, layout, kContext);
    return wave_ != nullptr;
}

// ---- Texts

void CafParser::information() {
    struct Row {
        std::string_view key;
        void (*set)(Wave&, std::string_view);
    };
    constexpr Row kRows[] = {
        {"title", [](Wave& w, std::string_view t) { w.SetName(t); }},
        {"artist", [](Wave& w, std::string_view t) { w.artist = t; }},
        {"album", [](Wave& w, std::string_view t) { w.album = t; }},
        {"recording engineer", [](Wave& w, std::string_view t) { w.engineer = t; }},
        {"copyright", [](Wave& w, std::string_view t) { w.copyright = t; }},
        {"comments", [](Wave& w, std::string_view t) { w.comments = t; }},
        {"comment", [](Wave& w, std::string_view t) { w.comments = t; }},
    };
    const Bytes bytes = contents("info", kMostTables);
    ByteCursor in(bytes);
    std::string_view texts;
    u32 count = in.u32be();
    if (in.ok()) texts = textOf(in.bytes(in.left()));
    const auto next = [&texts] {
        const std::string_view text = texts.substr(0, texts.find('\0'));
        texts.remove_prefix(std::min(texts.size(), text.size() + 1));
        return text;
    };
    for (; count > 0 && !texts.empty(); --count) {
        const std::string_view key = next(), value = next();
        for (const Row& row : kRows) {
            if (equalIgnoringCase(key, row.key) && !value.empty())
                row.set(*wave_, textFromBytes(bytesOf(value)));
        }
    }
}

void CafParser::strings() {
    constexpr std::size_t kEntryBytes = 12, kNameBytes = 1024;
    const Bytes bytes = contents("strg", kMostTables);
    ByteCursor in(bytes);
    const u64 count = in.u32be();
    if (!in.ok() || count > in.left() / kEntryBytes) return;
    ByteCursor entries = in.sub(static_cast<std::size_t>(count) * kEntryBytes);
    const ByteSpan texts = in.bytes(in.left());
    for (u64 i = 0; i < count; ++i) {
        const u32 id = entries.u32be();
        const u64 offset = entries.u64be();
        if (offset >= texts.size()) continue;
        const ByteSpan rest = texts.subspan(static_cast<std::size_t>(offset));
        names_.emplace(id, textFromBytes(rest.first(std::min(rest.size(), kNameBytes))));
    }
}

// ---- Loops and markers

void CafParser::instrument(Instrument& found) {
    const Bytes bytes = contents("inst", 28);
    ByteCursor in(bytes);
    Instrument read;
    read.baseNote = readF32(in, 60);
    in.skip(4); // ranges of keys and velocities
    read.gainDb = readF32(in, 0);
    for (u32* region : {&read.startRegion, &read.sustainRegion, &read.releaseRegion}) *region = in.u32be();
    if (!in.ok()) return;
    found = read;
    SampleParams& params = wave_->params;
    params.override = true;
    const f64 key = std::clamp(std::floor(read.baseNote + 0.5), 0.0, 127.0);
    params.rootKey = static_cast<u8>(key);
    params.fineTune = roundHalf((read.baseNote - key) * 100);
    params.gainDb = static_cast<f32>(read.gainDb);
}

void CafParser::regions() {
    constexpr std::size_t kRegionBytes = 12;
    const Bytes bytes = contents("regn", kMostTables);
    ByteCursor in(bytes);
    in.skip(4); // the kind of time codes
    for (u32 count = in.u32be(); count > 0 && in.left() >= kRegionBytes; --count) {
        Region region;
        region.id = in.u32be();
        region.flags = in.u32be();
        const u32 ends = in.u32be();
        if (ends > in.left() / caf::kMarkerBytes) break;
        // The first and the last marker are the region's, whatever their types.
        for (u32 i = 0; i < ends; ++i) {
            const Marker marker = readMarker(in);
            region.start = i == 0 ? marker.position : std::min(region.start, marker.position);
            region.end = std::max(region.end, marker.position);
        }
        if (ends > 0) regions_.push_back(region);
    }
}

void CafParser::markers() {
    const Bytes bytes = contents("mark", kMostTables);
    ByteCursor in(bytes);
    in.skip(4);
    for (u32 count = in.u32be(); count > 0 && in.left() >= caf::kMarkerBytes; --count)
        markers_.push_back(readMarker(in));
}

/// The loop is the region that the instrument sustains, else the first that loops, else between the markers
/// of a sustain loop.
void CafParser::takeLoop(const Instrument& instrument) {
    SampleParams& params = wave_->params;
    const auto take = [&params](f64 start, f64 end, u16 flags) {
        if (start >= end) return false;
        params.loopStart = start;
        params.loopEnd = end;
        params.loopFlags = flags;
        return true;
    };
    const auto loops = [](const Region& r) { return (r.flags & caf::kLoops) != 0; };
    auto found = std::find_if(regions_.begin(), regions_.end(), [&](const Region& r) {
        return instrument.sustainRegion != 0 && r.id == instrument.sustainRegion && loops(r);
    });
    if (found == regions_.end()) found = std::find_if(regions_.begin(), regions_.end(), loops);
    if (found != regions_.end()) {
        u16 flags = kLooped;
        if ((found->flags & caf::kPlaysBackward) != 0)
            flags |= (found->flags & caf::kPlaysForward) != 0 ? kLoopBidirectional : kLoopReverse;
        if (found->id == instrument.sustainRegion && instrument.releaseRegion != found->id)
            flags |= kLoopUntilRelease;
        if (take(found->start, found->end, flags)) regions_.erase(found);
        return;
    }
    const auto ofType = [&](u32 type) {
        return std::find_if(markers_.begin(), markers_.end(),
                            [type](const Marker& m) { return m.type == type; });
    };
    const auto start = ofType(caf::kSustainStart), end = ofType(caf::kSustainEnd);
    if (start == markers_.end() || end == markers_.end()) return;
    if (!take(start->position, end->position, kLooped)) return;
    std::erase_if(markers_,
                  [](const Marker& m) { return m.type == caf::kSustainStart || m.type == caf::kSustainEnd; });
}

void CafParser::cuePoints() {
    const auto add = [&](u32 id, f64 start, f64 end) {
        CuePoint& point = wave_->cuePoints.emplace_back();
        point.position = saturate<u32>(start + 0.5);
        point.length = saturate<u32>(end + 0.5) - point.position;
        point.label = nameOf(id);
    };
    for (const Marker& marker : markers_) add(marker.id, marker.position, marker.position);
    for (const Region& region : regions_) add(region.id, region.start, region.end);
}

bool CafParser::parse() {
    if (!collect() || !description() || !samples()) return false;
    information();
    strings();
    regions();
    markers();
    Instrument found;
    instrument(found);
    takeLoop(found);
    cuePoints();
    return true;
}

} // namespace

bool caf_Imp(Collection&, FileContext& file, u32) {
    if (!file.source) return Fail(kContext, "Not an Apple CoreAudio file");
    return CafParser(file).parse();
}

} // namespace kv
