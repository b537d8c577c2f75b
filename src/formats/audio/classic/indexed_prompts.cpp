// Indexed files of spoken prompts with annotations, as Dialogic's telephone cards play them. Layout: J. West
// in comp.speech, 1993; what stands in them: the manual of BarbaBatch. A header of six integers, a directory
// of three for each prompt, and Dialogic ADPCM; integers have four bytes, little-endian.
#include <algorithm>

#include "base/run_context.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/classic/classic_kit.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr std::size_t kHeaderBytes = 24, kEntryBytes = 12;
constexpr u32 kMostEntries = 4096;
constexpr std::size_t kMostTextBytes = 255;

enum Private : std::size_t { kPromptBytes };

std::unique_ptr<SampleBlocks> openPrompt(const Wave& wave, FileContext& file) {
    return openCoded(file.source, file.position, file.position + wave.sourcePrivate[kPromptBytes],
                     wave.frames, dialogicForm());
}

const WaveReader promptReader{"vap_ImpWave", loadThroughBlocks, openPrompt};

std::string annotation(ByteSource& source, u32 offset) {
    if (offset < kHeaderBytes) return {};
    Bytes text(kMostTextBytes);
    text.resize(source.readAt(offset, text));
    return fieldText(text);
}

void makePrompt(u32 rate, u32 offset, u32 bytes, std::string_view text) {
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &promptReader);
    wave->sourceOffset = offset;
    wave->sourcePrivate[kPromptBytes] = bytes;
    wave->dataFormat = wave->preferredFormat = kAdpcm4;
    wave->bits = 4;
    wave->sampleRate = rate;
    wave->frames = saturate<u32>(static_cast<f64>(dialogicForm().framesIn(bytes)));
    if (!text.empty()) wave->SetName(text);
}

} // namespace

bool vap_Imp(Collection&, FileContext& file, u32) {
    constexpr std::string_view kContext = "vap_Imp";
    const Bytes head = headOf(file, kHeaderBytes);
    ByteCursor in(head);
    const u32 entries = in.u32le();
    const u32 rate = in.u32le();
    if (head.size() < kHeaderBytes || entries == 0 || rate == 0)
        return Fail(kContext, "Not an index of prompts");
    const u64 there = (file.size() - kHeaderBytes) / kEntryBytes;
    Bytes directory(static_cast<std::size_t>(std::min<u64>({entries, there, kMostEntries})) * kEntryBytes);
    directory.resize(file.source->readAt(kHeaderBytes, directory));

    bool any = false;
    ByteCursor entry(directory);
    while (entry.left() >= kEntryBytes) {
        const u32 offset = entry.u32le();
        const u32 bytes = entry.u32le();
        const u32 textAt = entry.u32le();
        if (bytes == 0 || offset < kHeaderBytes + kEntryBytes || offset >= file.size()) continue; // not used
        if (CancelRequested()) return Fail(kContext, "Cancelled");
        makePrompt(rate, offset, static_cast<u32>(std::min<u64>(bytes, file.size() - offset)),
                   annotation(*file.source, textAt));
        any = true;
    }
    return any || Fail(kContext, "The file has no prompts");
}

bool vap_Exp(Item& item, FileContext& file, u32, u32, bool, f32) {
    constexpr std::string_view kContext = "vap_Exp";
    const SampleExport out = openExport(kContext, item, kMonoBit | kPcm16, false);
    if (!out) return false;
    const CodedWriter writer = dialogicWriter();
    const std::string text = Utf8ToAnsi(out.wave->name()).substr(0, kMostTextBytes - 1);
    const u64 start = kHeaderBytes + kEntryBytes;
    const u64 bytes = writer.bytesFor(out.blocks->frames());
    const u64 end = start + bytes + text.size() + 1;
    if (!sizeFits(kContext, end)) return false;
    reportLosses(*out.wave, kKeepsRate);

    ByteWriter head;
    head.u32le(1).u32le(out.wave->sampleRate).u32le(1).u32le(0).u32le(static_cast<u32>(end)).u32le(0);
    head.u32le(static_cast<u32>(start)).u32le(static_cast<u32>(bytes)).u32le(static_cast<u32>(start + bytes));
    if (!file.write(head.view())) return Fail(kContext, "Writing to file failed");
    if (!writeCoded(*out.blocks, writer, *file.sink)) return false;
    ByteWriter tail;
    tail.text(text).u8le(0);
    return file.write(tail.view()) || Fail(kContext, "Writing to file failed");
}

} // namespace kv
