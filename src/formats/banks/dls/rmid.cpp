#include "formats/banks/dls/rmid.h"

#include <algorithm>

#include "base/run_context.h"
#include "formats/banks/dls/dls_reader.h"
#include "formats/banks/dls/dls_records.h"
#include "formats/banks/dls/dls_writer.h"
#include "formats/framework/chunks.h"
#include "formats/songs/smf.h"
#include "midi/midi_song.h"
#include "model/collection.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr std::string_view kReads = "rmid_Imp", kWrites = "rmid_Exp";
constexpr int kDeepestForm = 4, kDeepestList = 16;
constexpr u32 kFormBytes = 12;

// ---- Reading

/// The texts of a form and where they go.
struct TextRow {
    std::string_view id;
    Text<128> Song::*field;
};
constexpr TextRow kTexts[] = {
    {"IART", &Song::artist},   {"ICMT", &Song::comments}, {"ICOP", &Song::copyright},
    {"IENG", &Song::engineer}, {"IPRD", &Song::product},
};

class RmidReader {
public:
    RmidReader(FileContext& file, Collection& collection, int depth)
        : file_(file), collection_(collection), depth_(depth) {}

    bool walk(u64 start, u64 end, int list);
    bool foundSomething() const { return song_ || bankSeen_; }

private:
    bool take(const Chunk& chunk, int list);
    bool bank(const Chunk& chunk);
    void text(const Chunk& chunk);
    std::string textOfChunk(const Chunk& chunk, u64 skipped, std::size_t limit) const;

    FileContext& file_;
    Collection& collection_;
    int depth_;
    Song* song_ = nullptr;
    bool bankSeen_ = false;
};

bool RmidReader::walk(u64 start, u64 end, int list) {
    ChunkWalker walker(*file_.source, start, end, std::endian::little, ChunkPadding::Doubtful);
    for (Chunk chunk; walker.next(chunk);) {
        if (!take(chunk, list)) return false;
    }
    return true;
}

bool RmidReader::take(const Chunk& chunk, int list) {
    switch (chunk.id) {
        case fourcc("data"):
            return song_ || mid_Parse(file_, song_, chunk.start, chunk.end(), collection_);
        case fourcc("LIST"):
            return list >= kDeepestList || walk(chunk.start + 4, chunk.end(), list + 1);
        case fourcc("RIFF"):
            return bank(chunk);
        default:
            if (song_) text(chunk);
            return true;
    }
}

bool RmidReader::bank(const Chunk& chunk) {
    if (depth_ >= kDeepestForm || textOf(readContents(*file_.source, chunk, 4)) != "DLS ") return true;
    bankSeen_ = true;
    return readDlsChunks(file_, chunk.start - 8, chunk.end(), collection_, depth_ + 1);
}

/// The text up to its end mark.
std::string RmidReader::textOfChunk(const Chunk& chunk, u64 skipped, std::size_t limit) const {
    const u64 size = chunk.size - std::min(chunk.size, skipped);
    const Bytes bytes = readContents(*file_.source, {chunk.id, chunk.start + skipped, size, size}, limit);
    std::string_view text = textOf(bytes);
    text = text.substr(0, text.find('\0'));
    return textFromBytes(std::as_bytes(std::span(text)));
}

void RmidReader::text(const Chunk& chunk) {
    constexpr std::size_t kMostInfo = 1500, kMostName = 128;
    if (chunk.id == fourcc("INAM")) return song_->SetName(textOfChunk(chunk, 0, kMostInfo), false);
    if (chunk.id == fourcc("DISP")) {
        constexpr u32 kPlainText = 1;
        const Bytes kind = readContents(*file_.source, chunk, 4);
        if (ByteCursor(kind).u32le() == kPlainText && chunk.size > 4)
            song_->SetName(textOfChunk(chunk, 4, kMostName), false);
        return;
    }
    for (const TextRow& row : kTexts) {
        if (fourcc(row.id) == chunk.id) song_->*row.field = textOfChunk(chunk, 0, kMostInfo);
    }
}

} // namespace

bool readRmidForm(FileContext& file, u64 start, u64 end, Collection& collection, int depth) {
    const Bytes header = readContents(*file.source, {0, start, kFormBytes, 0}, kFormBytes);
    ByteCursor in(header);
    const std::string_view id = in.text(4);
    const u32 size = in.u32le();
    const std::string_view type = in.text(4);
    if (!in.ok() || id != "RIFF" || type != "RMID") return Fail(kReads, "Not a RIFF-RMID file");
    RmidReader reader(file, collection, depth);
    if (!reader.walk(start + kFormBytes, std::min(end, start + 8 + size), 0)) return false;
    return reader.foundSomething() || Fail(kReads, "Invalid or corrupt Midi file");
}

bool rmid_Imp(Collection& collection, FileContext& file, u32) {
    return file.source ? readRmidForm(file, 0, file.size(), collection, 0)
                       : Fail(kReads, "Not a RIFF-RMID file");
}

// ---- Writing

namespace {

/// The song whose texts go with an item.
const Song* songOf(const Item& item) {
    if (classOf(item.id()) == kSongClass) return static_cast<const Song*>(&item);
    return classOf(item.id()) == kTrackClass ? FindParentSong(static_cast<const Track&>(item)) : nullptr;
}

void addText(ByteWriter& to, std::string_view id, std::string_view text) {
    if (text.empty()) return;
    const std::size_t size = text.size() + 1;
    to.text(id).u32le(static_cast<u32>(size + size % 2)).text(text).fill(1 + size % 2);
}

ByteWriter textsOf(const Item& item) {
    ByteWriter to;
    to.text("LIST").u32le(0).text("INFO");
    if (const Song* song = songOf(item)) {
        for (const TextRow& row : kTexts) {
            if (row.id == "IPRD") addText(to, "INAM", item.name());
            addText(to, row.id, song->*row.field);
        }
    }
    addText(to, "ISFT", "Kelvane Studio v11.4");
    to.patchU32le(4, static_cast<u32>(to.size() - 8));
    return to;
}

/// A form: its song, its texts, and `bank` if there is one.
bool writeForm(const Item& item, FileContext& file, DlsBankWriter* bank) {
    SmfPlan song;
    if (!song.make(item, SmfPlan::kAllGroups, kWrites)) return false;
    const ByteWriter texts = textsOf(item);
    const u64 songBytes = song.size(), padding = songBytes % 2;
    const u64 total = 4 + 8 + songBytes + padding + texts.size() + (bank ? bank->size() : 0);
    if (total > UINT32_MAX) return Fail(kWrites, "The samples are too long for a bank of this format");
    ByteWriter head;
    head.text("RIFF").u32le(static_cast<u32>(total)).text("RMID");
    head.text("data").u32le(static_cast<u32>(songBytes));
    ByteWriter tail;
    tail.fill(padding).bytes(texts.view());
    const auto failed = [] { return Fail(kWrites, "Writing to file failed"); };
    if (!file.write(head.view())) return failed();
    if (!song.write(file)) return false;
    if (!file.write(tail.view())) return failed();
    return !bank || bank->write(*file.sink);
}

} // namespace

Bytes rmidForm(const Item& item) {
    MemorySink sink;
    FileContext file;
    file.sink = &sink;
    return writeForm(item, file, nullptr) ? sink.take() : Bytes();
}

bool rmid_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool, f32) {
    if (subType == 0) return writeForm(item, file, nullptr);
    constexpr u32 kForms = kCodeMask & ~kMidiData; // of samples; none: each wave in its own
    DlsBankWriter bank(*store().First<Collection>(), static_cast<int>(subType),
                       (formatWord & kForms) | kMonoBit);
    return bank.prepare() && writeForm(item, file, &bank);
}

} // namespace kv
