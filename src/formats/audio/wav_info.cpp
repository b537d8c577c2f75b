#include "formats/audio/wav_info.h"

#include <algorithm>

#include "formats/framework/chunks.h"
#include "model/wave.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr int kMaxDepth = 16; // of LISTs within LISTs; real files have one

using TextSetter = void (*)(Wave&, std::string_view);
struct InfoRow {
    u32 id;
    TextSetter set;
};
constexpr InfoRow kInfo[] = {
    {fourcc("INAM"), [](Wave& w, std::string_view t) { w.SetName(t); }},
    {fourcc("IART"), [](Wave& w, std::string_view t) { w.artist = t; }},
    {fourcc("ICMT"), [](Wave& w, std::string_view t) { w.comments = t; }},
    {fourcc("ICOP"), [](Wave& w, std::string_view t) { w.copyright = t; }},
    {fourcc("IENG"), [](Wave& w, std::string_view t) { w.engineer = t; }},
    {fourcc("IPRD"), [](Wave& w, std::string_view t) { w.album = t; }},
    {fourcc("ISRC"),
     [](Wave& w, std::string_view t) {
         if (w.album.empty()) w.album = t;
     }},
};

void parseItem(FileContext& file, Wave& wave, u32 id, u64 start, u64 size) {
    const auto* row =
        std::find_if(std::begin(kInfo), std::end(kInfo), [id](const InfoRow& r) { return r.id == id; });
    if (row == std::end(kInfo) || size == 0) return;
    Bytes bytes(static_cast<std::size_t>(std::min<u64>(size, 6000)));
    bytes.resize(file.source ? file.source->readAt(start, bytes) : 0);
    std::string text = textFromBytes(bytes);
    text.resize(cutToCharacters(text, 1500).size());
    row->set(wave, text);
}

void parseList(FileContext& file, u64 start, u64 end, Wave& wave, std::endian order, int depth) {
    if (!file.source || depth > kMaxDepth) return;
    ChunkWalker walker(*file.source, start, end, order);
    for (Chunk item; walker.next(item);) {
        if (item.id == fourcc("LIST"))
            parseList(file, item.start + 4, item.end(), wave, order, depth + 1);
        else
            parseItem(file, wave, item.id, item.start, item.size);
    }
}

void writeText(ByteWriter& out, std::string_view id, std::string_view text, std::size_t size) {
    out.text(id).u32le(static_cast<u32>(size)).text(text.substr(0, size));
    out.fill(size - std::min(size, text.size()));
}

} // namespace

void wav_ParseInfoItem(FileContext& file, Wave& wave, u32 id, u64 size) {
    parseItem(file, wave, id, file.position, size);
}

void wav_ParseInfoList(FileContext& file, u64 start, u64 end, Wave& wave, std::endian order) {
    parseList(file, start, end, wave, order, 0);
}

void wav_WriteInfo(ByteWriter& out, const Wave& wave, bool withSoftware) {
    const std::size_t start = out.size();
    out.text("LIST").u32le(0).text("INFO");
    const std::string_view name = wave.name();
    writeText(out, "INAM", name, (name.size() + 2) & ~std::size_t{1}); // always with a terminator
    const std::pair<std::string_view, std::string_view> items[] = {
        {"ISFT", withSoftware ? "Kelvane Studio v11.4" : ""},
        {"IART", wave.artist},
        {"IPRD", wave.album},
        {"ICOP", wave.copyright},
        {"ICMT", wave.comments},
        {"IENG", wave.engineer},
    };
    for (const auto& [id, text] : items) {
        if (!text.empty()) writeText(out, id, text, (text.size() + 1) & ~std::size_t{1});
    }
    out.patchU32le(start + 4, static_cast<u32>(out.size() - start - 8));
}

} // namespace kv
