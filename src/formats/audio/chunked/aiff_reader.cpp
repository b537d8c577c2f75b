#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>
#include <vector>

#include "base/run_context.h"
#include "formats/audio/chunked/aiff.h"
#include "formats/audio/chunked/aiff_fields.h"
#include "formats/audio/chunked/packets.h"
#include "formats/audio/chunked/wave_notes.h"
#include "formats/framework/chunks.h"
#include "formats/media/media_import.h"
#include "formats/media/media_kinds.h"
#include "model/collection.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "aif_Imp";
constexpr std::size_t kMostTables = 1 << 25; // bytes of markers or of comments: more than 65535 of either
constexpr std::size_t kTextBytes = 6000;     // what our own longest texts take

// ---- How samples are stored

/// What a compression type says of the samples.
struct Compression {
    std::string_view id;
    PacketCoding coding = PacketCoding::None;
    u32 code = 0; ///< data format code of plain samples; 0: linear, by their bits
    u32 flags = kByteswap;
};
constexpr Compression kCompressions[] = {
    {"NONE"},
    {"twos"},
    {"in16"},
    {"sowt", PacketCoding::None, 0, 0},
    {"raw ", PacketCoding::None, 0, kByteswap | kUnsigned},
    {"in24", PacketCoding::None, kPcm24},
    {"in32", PacketCoding::None, kPcm32},
    {"42ni", PacketCoding::None, kPcm24, 0},
    {"42n1", PacketCoding::None, kPcm24, 0},
    {"23ni", PacketCoding::None, kPcm32, 0},
    {"fl32", PacketCoding::None, kFloat32},
    {"FL32", PacketCoding::None, kFloat32},
    {"fl64", PacketCoding::None, kFloat64},
    {"FL64", PacketCoding::None, kFloat64},
    {"ulaw", PacketCoding::None, kMuLaw, 0},
    {"ULAW", PacketCoding::None, kMuLaw, 0},
    {"alaw", PacketCoding::None, kALaw, 0},
    {"ALAW", PacketCoding::None, kALaw, 0},
    {"ima4", PacketCoding::Ima4},
    {"GSM ", PacketCoding::Gsm},
    {"G722", PacketCoding::G722},
};

const Compression* findCompression(std::string_view id) {
    const auto* found = std::find_if(std::begin(kCompressions), std::end(kCompressions),
                                     [id](const Compression& c) { return c.id == id; });
    return found == std::end(kCompressions) ? nullptr : found;
}

u32 linearCode(u32 bits) {
    return bits <= 8 ? kPcm8 : bits <= 16 ? kPcm16 : bits <= 24 ? kPcm24 : kPcm32;
}

/// The COMM chunk.
struct Common {
    u32 channels = 0, frames = 0, bits = 0;
    u32 rate = 0; ///< Hz
    std::string compression = "NONE";
};

// ---- The chunks

/// A marker, and what a comment says of it.
struct Marker {
    u16 id;
    u32 position;
    std::string name, note;
    bool used = false; ///< by the loop
};

/// Where the chunks that count stand, in whatever order they come.
class AiffChunks {
public:
    bool collect(ByteSource& source);
    const Chunk* find(std::string_view id) const {
        const auto found = std::find_if(chunks_.begin(), chunks_.end(),
                                        [key = fourcc(id)](const Chunk& c) { return c.id == key; });
        return found == chunks_.end() ? nullptr : &*found;
    }
    const std::vector<Chunk>& all() const { return chunks_; }
    bool compressed() const { return compressed_; }

private:
    bool wanted(u32 id) const;
    bool complete() const { return find("COMM") && find("SSND"); }

    std::vector<Chunk> chunks_;
    bool compressed_ = false;
};

/// A chunk could begin there: four printable characters, and a size that fits.
bool chunkStandsAt(ByteSource& source, u64 at) {
    Chunk chunk;
    if (!ChunkWalker(source, at, source.size(), std::endian::big).next(chunk)) return at >= source.size();
    for (u32 id = chunk.id; id != 0; id >>= 8) {
        if ((id & 0xFF) < 0x20 || (id & 0xFF) > 0x7E) return false;
    }
    return chunk.id >> 24 != 0 && chunk.statedSize <= chunk.size;
}

bool AiffChunks::wanted(u32 id) const {
    constexpr std::size_t kMostAnnotations = 100;
    constexpr std::string_view kIds[] = {"COMM", "SSND", "MARK", "INST", "NAME",
                                         "AUTH", "(c) ", "COMT", "ANNO"};
    if (id == fourcc("ANNO")) return chunks_.size() < kMostAnnotations;
    return std::any_of(std::begin(kIds), std::end(kIds),
                       [&](std::string_view known) { return id == fourcc(known) && !find(known); });
}

bool AiffChunks::collect(ByteSource& source) {
    constexpr u64 kHeaderBytes = 12, kSoundHeaderBytes = 8;
    Bytes header(kHeaderBytes);
    header.resize(source.readAt(0, header));
    ByteCursor in(header);
    const std::string_view id = in.text(4);
    const u64 formEnd = u64{in.u32be()} + 8;
    const std::string_view type = in.text(4);
    compressed_ = type == "AIFC";
    if (id != "FORM" || (type != "AIFF" && !compressed_)) return Fail(kContext, "Not an AIFF file");

    // The form's own size may say anything, but behind it there need not be chunks any more.
    ChunkWalker walker(source, kHeaderBytes, source.size(), std::endian::big, ChunkPadding::Doubtful);
    for (Chunk chunk; walker.next(chunk);) {
        if (chunk.start > formEnd && complete()) break;
        // A stream of unknown length: nothing is stated, and no chunk follows.
        if (chunk.id == fourcc("SSND") && chunk.statedSize <= kSoundHeaderBytes &&
            !chunkStandsAt(source, chunk.start + chunk.statedSize))
            walker.setSize(chunk, source.size());
        if (wanted(chunk.id)) chunks_.push_back(chunk);
    }
    if (!find("COMM")) return Fail(kContext, "Couldn't find COMM chunk!");
    return find("SSND") || Fail(kContext, "Couldn't find SSND chunk!");
}

// ---- The wave

class AiffParser {
public:
    explicit AiffParser(FileContext& file) : file_(file) {}
    bool parse();

private:
    Bytes contents(std::string_view id, std::size_t limit) {
        const Chunk* chunk = chunks_.find(id);
        return chunk ? readContents(*file_.source, *chunk, limit) : Bytes();
    }
    bool common();
    bool samples();
    Wave* importCompressed(const Compression& compression, u64 start, u64 bytes);
    void texts();
    void markers();
    void comments();
    void instrument();
    void loop(ByteCursor& in);
    void cuePoints();
    Marker* findMarker(u16 id);

    FileContext& file_;
    AiffChunks chunks_;
    Common common_;
    Wave* wave_ = nullptr;
    std::vector<Marker> markers_;
    std::unordered_map<u16, std::size_t> markerById_;
    std::string comments_;
};

bool AiffParser::common() {
    const Bytes bytes = contents("COMM", 64);
    ByteCursor in(bytes);
    common_.channels = in.u16be();
    common_.frames = in.u32be();
    common_.bits = in.u16be();
    const ByteSpan rate = in.bytes(kExtendedBytes);
    if (!in.ok()) return Fail(kContext, "The COMM chunk is too short");
    common_.rate = wholeRate(extendedNumber(rate.first<kExtendedBytes>()));
    if (chunks_.compressed() && in.left() >= 4) common_.compression = textOf(in.bytes(4));
    return true;
}

Wave* AiffParser::importCompressed(const Compression& compression, u64 start, u64 bytes) {
    if (compression.coding != PacketCoding::None) {
        PacketLayout layout{.coding = compression.coding,
                            .channels = common_.channels,
                            .rate = common_.rate,
                            .offset = start,
                            .bytes = bytes,
                            .frames = common_.frames};
        layout.countsPackets = true;
        return importPackets(file_, layout, kContext);
    }
    const bool linear = compression.code == 0;
    if (linear && (common_.bits == 0 || common_.bits > 32)) {
        Fail(kContext, "Unsupported number of bits per sample");
        return nullptr;
    }
    const u32 code = linear ? linearCode(common_.bits) : compression.code;
    const u32 flags = code == kPcm8 ? compression.flags & ~kByteswap : compression.flags;
    Wave* wave = importWhole(
        file_, {code | flags, common_.channels, common_.rate, start, bytes, common_.frames}, kContext);
    // Samples stand in the high bits of whole bytes.
    if (wave && linear) wave->bits = common_.bits;
    return wave;
}

bool AiffParser::samples() {
    const Compression* compression = findCompression(common_.compression);
    if (!compression) {
        wave_ = importCoded(file_, kMediaAiff, macText(bytesOf(common_.compression)));
        return wave_ != nullptr;
    }
    const Chunk& sound = *chunks_.find("SSND");
    const Bytes header = readContents(*file_.source, sound, 8);
    ByteCursor in(header);
    u64 offset = in.u32be();
    const u64 held = sound.size - header.size();
    if (offset > held) {
        runContext().diagnostics.warn(sound.start, "SSND", fmt::format("no samples at offset {}", offset));
        offset = 0;
    }
    wave_ = importCompressed(*compression, sound.start + header.size() + offset, held - offset);
    return wave_ != nullptr;
}

void AiffParser::texts() {
    const auto text = [&](std::string_view id) { return macText(contents(id, kTextBytes)); };
    if (const std::string name = text("NAME"); !name.empty()) wave_->SetName(name);
    wave_->artist = text("AUTH");
    wave_->copyright = text("(c) ");
    for (const Chunk& chunk : chunks_.all()) {
        if (chunk.id != fourcc("ANNO")) continue;
        const std::string note = macText(readContents(*file_.source, chunk, kTextBytes));
        if (!comments_.empty() && !note.empty()) comments_ += '\n';
        comments_ += note;
    }
}

Marker* AiffParser::findMarker(u16 id) {
    const auto found = markerById_.find(id);
    return found == markerById_.end() ? nullptr : &markers_[found->second];
}

void AiffParser::markers() {
    const Bytes bytes = contents("MARK", kMostTables);
    ByteCursor in(bytes);
    for (u32 count = in.u16be(); count > 0; --count) {
        Marker marker{in.u16be(), in.u32be(), {}, {}};
        marker.name = readCountedText(in);
        if (!in.ok()) break;
        markerById_.emplace(marker.id, markers_.size());
        markers_.push_back(std::move(marker));
    }
}

void AiffParser::comments() {
    const Bytes bytes = contents("COMT", kMostTables);
    ByteCursor in(bytes);
    for (u32 count = in.u16be(); count > 0; --count) {
        in.skip(4); // when it was written
        const u16 id = in.u16be();
        const std::size_t size = in.u16be();
        const std::string text = macText(in.bytes(size));
        if (size % 2 != 0 && in.left() > 0) in.skip(1);
        if (!in.ok()) break;
        if (text.empty()) continue;
        Marker* marker = id == 0 ? nullptr : findMarker(id);
        std::string& target = marker ? marker->note : comments_;
        if (!target.empty()) target += '\n';
        if (target.size() < kTextBytes) target += text;
    }
}

/// Two records of a mode and the markers of both ends: the loop that sounds as long as the key is held, and
/// the one after that. The first is taken for the wave's loop, however it goes on.
void AiffParser::loop(ByteCursor& in) {
    struct Loop {
        u16 mode, begin, end;
    };
    const auto next = [&in] { return Loop{in.u16be(), in.u16be(), in.u16be()}; };
    const Loop sustain = next(), release = next();
    const Loop& loop = sustain.mode != 0 ? sustain : release;
    if (!in.ok() || loop.mode == 0) return;
    Marker *begin = findMarker(loop.begin), *end = findMarker(loop.end);
    if (!begin || !end || begin->position >= end->position) {
        runContext().diagnostics.warn(in.offset(), "INST", "the loop's markers are missing or out of order");
        return;
    }
    begin->used = end->used = true;
    SampleParams& params = wave_->params;
    params.loopStart = begin->position;
    params.loopEnd = end->position;
    params.loopFlags = kLooped;
    if (loop.mode == 2) params.loopFlags |= kLoopBidirectional;
    const bool other = release.begin != loop.begin || release.end != loop.end || release.mode != loop.mode;
    if (release.mode != 0 && other) noteLoss(*wave_, "INST", "two loops: only the first is kept");
}

void AiffParser::instrument() {
    const Chunk* chunk = chunks_.find("INST");
    if (!chunk) return;
    const Bytes bytes = contents("INST", 20);
    ByteCursor in(bytes, chunk->start);
    const u8 baseNote = in.u8le();
    const i8 detune = in.s8();
    in.skip(4); // ranges of keys and velocities
    const i16 gain = in.s16be();
    if (!in.ok()) return;
    SampleParams& params = wave_->params;
    params.override = true;
    if (baseNote < 128) params.rootKey = baseNote;
    params.fineTune = detune;
    params.gainDb = gain;
    loop(in);
}

/// A marker that ends a range, by its name.
bool endsRange(const Marker& begin, const Marker& end) {
    return end.position >= begin.position && end.name.size() == begin.name.size() + kRangeEndMark.size() &&
           end.name.starts_with(begin.name) && end.name.ends_with(kRangeEndMark);
}

void AiffParser::cuePoints() {
    for (std::size_t i = 0; i < markers_.size(); ++i) {
        const Marker& marker = markers_[i];
        if (marker.used) continue;
        CuePoint& point = wave_->cuePoints.emplace_back();
        point.position = marker.position;
        point.label = marker.name;
        point.note = marker.note;
        const bool range = i + 1 < markers_.size() && endsRange(marker, markers_[i + 1]);
        if (range) point.length = markers_[++i].position - marker.position;
    }
}

bool AiffParser::parse() {
    if (!chunks_.collect(*file_.source) || !common() || !samples()) return false;
    texts();
    markers();
    comments();
    wave_->comments = comments_;
    instrument();
    cuePoints();
    return true;
}

} // namespace

bool aif_Imp(Collection&, FileContext& file, u32) {
    if (!file.source) return Fail(kContext, "Not an AIFF file");
    return AiffParser(file).parse();
}

} // namespace kv
