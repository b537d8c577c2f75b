// Any bytes as the text of a bank: its tokens lie within it, its opcodes fill records, records become regions
// that can be written and read again.
#include "formats/banks/sfz/sfz_mapping.h"
#include "formats/banks/sfz/sfz_region_text.h"
#include "formats/banks/sfz/sfz_text.h"
#include "model/instrument.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "require.h"

namespace {

using namespace kv;
using fuzz::require;

/// Reads all opcodes of a text into one record.
SfzSection sectionOf(ByteSpan bytes) {
    SfzFolder folder("/nonexistent");
    MemorySource source(bytes);
    SfzText text(source, "/nonexistent/fuzz.sfz", folder);
    SfzSection section;
    std::size_t tokens = 0;
    for (SfzToken token = text.next(); token.kind != SfzTokenKind::End; token = text.next()) {
        ++tokens;
        if (token.kind != SfzTokenKind::Opcode) continue;
        if (const SfzOpcode* opcode = findSfzOpcode(token.name)) opcode->set(section, token.value);
    }
    require(tokens <= 2 * bytes.size() + 1, "a token takes bytes");
    return section;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Workspace space;
    const WorkspaceScope scope(space);
    const SfzSection section = sectionOf(std::as_bytes(std::span(data, size)));
    Wave& wave = *store().Create<Wave>(kNextFreeNumber, nullptr, "wave");
    wave.frames = 1000;
    wave.sourceFile = kMemoryOnly;
    // What is written once has the limits of the format, and is written alike from then on but for rounding.
    SfzSection last = section;
    for (int generation = 0; generation < 2; ++generation) {
        Region& region = *store().Create<Region>(kNextFreeNumber, numberOf(wave.id()));
        sfzReadRegion(last, wave, region);
        region.FixUp();
        require(region.keyLow <= region.keyHigh && region.keyHigh < 128, "keys in order");
        require(region.keyGroup <= 15, "key groups are numbered to 15");
        const std::string text =
            sfzRegionText(region, {"wave.wav", wave, region.articulation, generation == 0});
        for (const char* wrong : {"=nan", "=-nan", "=inf", "=-inf"})
            require(text.find(wrong) == text.npos, "finite numbers");
        last = sectionOf(bytesOf(text));
        require(last.sample == "wave.wav", "the path comes back");
        require(last.lokey == region.keyLow && last.hikey == region.keyHigh, "the keys come back");
        require(last.pitch_keycenter == effectiveParams(region).rootKey, "the root comes back");
    }
    return 0;
}
