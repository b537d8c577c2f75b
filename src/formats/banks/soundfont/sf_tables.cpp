#include "formats/banks/soundfont/sf_tables.h"

#include <algorithm>

#include "base/run_context.h"
#include "model/collection.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr int kDeepestList = 4;
/// Indices into the tables have 16 bits, so no more records than these can be reached.
constexpr std::size_t kReachable = 65536 + 1;

struct TableRow {
    u32 id;
    std::size_t recordBytes;
    SfRecords& (*at)(SfFile&);
};
const TableRow kTables[] = {
    {fourcc("phdr"), 38, [](SfFile& f) -> SfRecords& { return f.presets.names; }},
    {fourcc("pbag"), 4, [](SfFile& f) -> SfRecords& { return f.presets.bags; }},
    {fourcc("pmod"), 10, [](SfFile& f) -> SfRecords& { return f.presets.modulators; }},
    {fourcc("pgen"), 4, [](SfFile& f) -> SfRecords& { return f.presets.generators; }},
    {fourcc("inst"), 22, [](SfFile& f) -> SfRecords& { return f.instruments.names; }},
    {fourcc("ibag"), 4, [](SfFile& f) -> SfRecords& { return f.instruments.bags; }},
    {fourcc("imod"), 10, [](SfFile& f) -> SfRecords& { return f.instruments.modulators; }},
    {fourcc("igen"), 4, [](SfFile& f) -> SfRecords& { return f.instruments.generators; }},
    {fourcc("shdr"), 0, [](SfFile& f) -> SfRecords& { return f.samples; }}, // its size is the version's
    {fourcc("snam"), kSfNameBytes, [](SfFile& f) -> SfRecords& { return f.names; }},
};

void takeText(ByteSource& source, const Chunk& chunk, Collection& collection) {
    const auto text = [&] { return textFromBytes(readContents(source, chunk, 65536)); };
    switch (chunk.id) {
        case fourcc("INAM"):
            if (const std::string name = text(); !name.empty()) collection.SetName(name, false);
            break;
        case fourcc("IENG"):
            collection.engineer = text();
            break;
        case fourcc("ICOP"):
            collection.copyright = text();
            break;
        case fourcc("ICMT"):
            collection.comments = text();
            break;
        default:
            break;
    }
}

} // namespace

std::vector<SfGroup> SfGroups::groups(const Layout& layout) const {
    std::vector<SfGroup> list;
    std::size_t end = 0;
    bool ended = false;
    for (; end < names.count() && !ended; ++end) {
        ByteCursor record = names[end];
        const ByteSpan name = record.bytes(kSfNameBytes);
        ended = textOf(name).starts_with(layout.end);
        SfGroup group;
        group.name = textFromBytes(name);
        if (layout.presets) {
            group.program = record.u16le();
            group.bank = record.u16le();
        }
        group.bags.begin = record.u16le();
        list.push_back(std::move(group));
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
        // The bag behind the last one only closes it.
        list[i].bags.end =
            i + 1 < list.size() ? list[i + 1].bags.begin : std::max<std::size_t>(bags.count(), 1) - 1;
        list[i].bags.end = std::min(list[i].bags.end, bags.count());
    }
    if (!list.empty() && (ended || list.back().bags.begin >= list.back().bags.end)) list.pop_back();
    return list;
}

bool SfGroups::read(std::size_t bag, Generator target, SfZone& zone, u64& work) const {
    const auto range = [&](bool second, std::size_t count) -> SfSpan {
        const auto index = [&](std::size_t at) -> std::size_t {
            if (at >= bags.count()) return count;
            ByteCursor record = bags[at];
            const u16 first = record.u16le();
            return second ? record.u16le() : first;
        };
        return {index(bag), std::min(index(bag + 1), count)};
    };
    const SfSpan gens = range(false, generators.count());
    const SfSpan mods = range(true, modulators.count());
    if (gens.begin > gens.end) return false;
    ++work;
    for (std::size_t i = mods.begin; i < mods.end; ++i, ++work) {
        ByteCursor record = modulators[i];
        SfModulator modulator;
        modulator.source = record.u16le();
        modulator.destination = record.u16le();
        modulator.amount = record.s16le();
        modulator.amountSource = record.u16le();
        if (const std::optional<SlotAmount> amount = slotOf(modulator))
            zone.slots[amount->slot] = amount->amount;
        else
            ++dropped;
    }
    for (std::size_t i = gens.begin; i < gens.end; ++i, ++work) {
        ByteCursor record = generators[i];
        const u16 number = record.u16le();
        const i16 amount = record.s16le();
        if (number == target)
            zone.target = static_cast<u16>(amount);
        else if (number < kGeneratorCount)
            zone.generators[number] = amount;
    }
    return true;
}

bool SfFile::read(FileContext& file, Collection& collection) {
    std::array<std::byte, 12> header{};
    if (!file.source || file.source->readAt(0, header) != header.size()) return false;
    ByteCursor cursor(header);
    const u32 riff = cursor.u32le();
    const u64 end = u64{cursor.u32le()} + 8;
    form = cursor.u32le();
    if (riff != fourcc("RIFF") || (form != fourcc("sfbk") && form != fourcc("sfpk"))) return false;
    walk(*file.source, 12, end, 0, collection);
    // A wrong size in the header must not hide the tables.
    if (presets.names.count() == 0 || samples.count() == 0) {
        walk(*file.source, 12, file.source->size(), 0, collection);
    }
    return true;
}

void SfFile::walk(ByteSource& source, u64 start, u64 end, int depth, Collection& collection) {
    ChunkWalker walker(source, start, end, std::endian::little, ChunkPadding::Doubtful);
    for (Chunk chunk; walker.next(chunk);) {
        if (chunk.id != fourcc("LIST"))
            take(source, chunk, collection);
        else if (depth < kDeepestList && chunk.size >= 4)
            walk(source, chunk.start + 4, chunk.end(), depth + 1, collection);
    }
}

void SfFile::take(ByteSource& source, const Chunk& chunk, Collection& collection) {
    if (chunk.id == fourcc("ifil")) {
        const Bytes bytes = readContents(source, chunk, 4);
        ByteCursor cursor(bytes);
        major = cursor.u16le();
        minor = cursor.u16le();
        versionSeen = cursor.ok();
    } else if (chunk.id == fourcc("smpl")) {
        smpl = chunk;
        if (chunk.size < chunk.statedSize)
            runContext().diagnostics.warn(chunk.start, "smpl", "the sample data is cut short");
    } else if (chunk.id == fourcc("sm24")) {
        sm24 = chunk;
    } else {
        takeText(source, chunk, collection);
    }
    for (const TableRow& row : kTables) {
        if (row.id != chunk.id) continue;
        const std::size_t size = row.recordBytes != 0 ? row.recordBytes
                                 : major == 1         ? kSf1SampleBytes
                                                      : kSf2SampleBytes;
        if (chunk.size % size != 0)
            runContext().diagnostics.warn(chunk.start, "records", "a record table with a broken record");
        row.at(*this).assign(readContents(source, chunk, kReachable * size), size);
    }
}

} // namespace kv
