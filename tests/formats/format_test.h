#pragma once

#include <string>

#include "formats/framework/drivers.h"
#include "formats/table/format_table_rows.h"
#include "model/collection.h"
#include "model/wave.h"
#include "model/wave_data.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "test_support.h"

namespace kv::test {

/// Puts a chunk behind others.
inline void addChunk(ByteWriter& out, std::string_view id, ByteSpan contents) {
    out.text(id).u32le(static_cast<u32>(contents.size())).bytes(contents).fill(contents.size() % 2);
}

/// The contents of a fmt chunk of linear samples.
inline Bytes fmtContents(u16 tag, u16 channels, u32 rate, u16 bits) {
    ByteWriter out;
    const auto block = static_cast<u16>(channels * ((bits + 7) / 8));
    out.u16le(tag).u16le(channels).u32le(rate).u32le(rate * block).u16le(block).u16le(bits);
    return out.take();
}

/// A RIFF form around chunks.
inline Bytes riff(ByteSpan chunks, std::string_view id = "RIFF", std::string_view type = "WAVE") {
    ByteWriter out;
    out.text(id).u32le(static_cast<u32>(4 + chunks.size())).text(type).bytes(chunks);
    return out.take();
}

inline Bytes int16Bytes(std::span<const i16> samples) {
    ByteWriter out;
    for (const i16 s : samples) out.u16le(static_cast<u16>(s));
    return out.take();
}

/// A workspace that knows all formats, and a folder for its files.
class FormatTest : public testing::Test {
protected:
    FormatTest() {
        space.ui = &ui;
        space.formats = &formatTable();
    }
    /// Imports bytes as a file of that name; the one wave of it, or null.
    Wave* import(ByteSpan bytes, const std::string& name = "test.wav") {
        writeFile(folder / name, bytes);
        return Import(folder / name, true) ? store().First<Wave>() : nullptr;
    }
    /// A WAV file of the given chunks around 16-bit mono samples.
    Bytes wavWith(std::span<const i16> samples, ByteSpan moreChunks = {}) {
        ByteWriter chunks;
        addChunk(chunks, "fmt ", fmtContents(1, 1, 44100, 16));
        addChunk(chunks, "data", int16Bytes(samples));
        chunks.bytes(moreChunks);
        return riff(chunks.view());
    }
    int rowOf(std::string_view description) { return formatTable().RowByDescription(description); }
    std::filesystem::path exportAs(const std::string& name, u32 wanted = kAnyFormat, Item* item = nullptr) {
        const int row =
            formatTable().RowByExtension(std::filesystem::path(name).extension().string(), kWaveClass);
        EXPECT_TRUE(Export(row, folder / name, item ? item : store().First<Wave>(), wanted, 0, false))
            << space.error.context << ": " << space.error.message;
        return folder / name;
    }
    std::string failure() const { return space.error.context + ": " + space.error.message; }

    TempFolder folder;
    ScriptedUi ui;
    Workspace space;
    WorkspaceScope scope{space};
};

} // namespace kv::test
