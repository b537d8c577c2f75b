#pragma once

#include "formats/format_test.h"
#include "model/instrument.h"
#include "model/store.h"

namespace kv::test {

inline Bytes chunk(std::string_view id, ByteSpan contents) {
    ByteWriter out;
    addChunk(out, id, contents);
    return out.take();
}
inline Bytes chunk(std::string_view id, const ByteWriter& contents) {
    return chunk(id, contents.view());
}
inline Bytes join(std::initializer_list<Bytes> parts) {
    ByteWriter out;
    for (const Bytes& part : parts) out.bytes(part);
    return out.take();
}
inline Bytes list(std::string_view type, std::initializer_list<Bytes> parts) {
    return chunk("LIST", ByteWriter().text(type).bytes(join(parts)));
}

/// A bank put together by hand, so that the reader is not tested with what our writer thinks.
inline Bytes insh(u32 bank = 0, u32 program = 0) {
    return chunk("insh", ByteWriter().u32le(1).u32le(bank).u32le(program));
}
inline Bytes rgnh(u16 keyLow, u16 keyHigh, int layer = -1, u16 velLow = 0, u16 velHigh = 127, u16 options = 0,
                  u16 group = 0) {
    ByteWriter out;
    out.u16le(keyLow).u16le(keyHigh).u16le(velLow).u16le(velHigh).u16le(options).u16le(group);
    if (layer >= 0) out.u16le(static_cast<u16>(layer));
    return chunk("rgnh", out);
}
inline Bytes wlnk(u32 cue, u16 options = 0, u16 group = 0) {
    return chunk("wlnk", ByteWriter().u16le(options).u16le(group).u32le(1).u32le(cue));
}
struct TestWsmp {
    u16 key = 60;
    i16 tune = 0;
    i32 gain = 0;
    u32 options = 3, loops = 0, type = 0, start = 0, length = 0, headerBytes = 20;
};
inline Bytes wsmp(const TestWsmp& w) {
    ByteWriter out;
    out.u32le(w.headerBytes).u16le(w.key).u16le(static_cast<u16>(w.tune)).u32le(static_cast<u32>(w.gain));
    out.u32le(w.options).u32le(w.loops).fill(w.headerBytes > 20 ? w.headerBytes - 20 : 0);
    if (w.loops > 0) out.u32le(16).u32le(w.type).u32le(w.start).u32le(w.length);
    return chunk("wsmp", out);
}
/// One connection block: the attack of the volume envelope, in 1/65536 of a cent above 1 s.
inline Bytes attack(std::string_view id, i32 scale) {
    ByteWriter out;
    out.u32le(8).u32le(1).u16le(0).u16le(0).u16le(0x206).u16le(0).u32le(static_cast<u32>(scale));
    return chunk(id, out);
}
inline constexpr i32 kOneOctave = 1200 * 65536; // of time: twice or half of it
/// A condition that pushes a constant.
inline Bytes cdl(u32 value) {
    return chunk("cdl ", ByteWriter().u16le(0x10).u32le(value));
}
inline Bytes wave(std::size_t frames = 100, const Bytes& more = {}, u16 tag = 1) {
    const std::vector<i16> samples(frames, 7);
    return list("wave", {chunk("fmt ", fmtContents(tag, 1, 44100, 16)), more,
                         chunk("data", ByteSpan(int16Bytes(samples)))});
}
inline Bytes pool(std::initializer_list<Bytes> waves) {
    return list("wvpl", waves);
}
/// A cue table of the positions that the waves have.
inline Bytes ptbl(std::initializer_list<u32> positions) {
    ByteWriter out;
    out.u32le(8).u32le(static_cast<u32>(positions.size()));
    for (const u32 position : positions) out.u32le(position);
    return chunk("ptbl", out);
}
inline Bytes dls(std::initializer_list<Bytes> parts, std::string_view form = "DLS ") {
    return riff(join(parts), "RIFF", form);
}

class DlsTest : public FormatTest {
protected:
    bool read(const Bytes& bytes) {
        store().DeleteAllItems();
        ui.messages.clear();
        writeFile(folder / "bank.dls", bytes);
        return Import(folder / "bank.dls", true, formatTable().RowByImportDescription("DownLoadable Sounds"));
    }
    /// Reads a bank of one instrument and one wave.
    bool readInstrument(std::initializer_list<Bytes> parts, const Bytes& played = wave()) {
        return read(dls({list("lins", {list("ins ", parts)}), ptbl({0}), pool({played})}));
    }
    /// The key ranges of the regions, a layer at a time: "0-59 60-127 | 0-127".
    static std::string ranges() {
        std::string text;
        const Instrument* instrument = store().First<Instrument>();
        for (std::size_t i = 0; instrument && i < instrument->childIds.size(); ++i) {
            if (i > 0) text += " | ";
            std::string regions;
            for (const ItemId id : store().Find<Layer>(instrument->childIds[i])->childIds) {
                const Region& region = *store().Find<Region>(id);
                regions += (regions.empty() ? "" : " ") + std::to_string(region.keyLow) + "-" +
                           std::to_string(region.keyHigh);
            }
            text += regions;
        }
        return text;
    }
};

} // namespace kv::test
