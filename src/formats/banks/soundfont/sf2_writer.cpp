#include <array>
#include <cmath>
#include <memory>

#include "base/run_context.h"
#include "formats/banks/soundfont/sf2_mapping.h"
#include "formats/banks/soundfont/sf_bank_file.h"
#include "formats/banks/soundfont/sf_tables.h"
#include "formats/banks/soundfont/sf_writer.h"
#include "model/instrument.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "sf2_Exp";

void addPlaying(SfZone& zone, const Articulation& articulation, const Region& region, const Wave& wave) {
    zone.generators[kExclusiveClass] = region.keyGroup;
    sf2_AddPlaying(zone, articulation, effectiveParams(region), wave.params);
}

constexpr std::string_view kTooMany =
    "Save failed - Too many 'parameter values' !\n\nThe SF2 file format is by its construction limited to "
    "storing a maximum of 65536 of such parameter values... Remove some instruments then try saving "
    "again.\n";

void addSampleHeader(ByteWriter& to, const Wave& wave, u32 start, const SfLink& link) {
    const auto point = [&](f64 frame) { return start + saturate<u32>(std::floor(frame + 0.499)); };
    addSfName(to, wave.name());
    to.u32le(start).u32le(start + wave.frames);
    to.u32le(point(wave.params.loopStart)).u32le(point(wave.params.loopEnd));
    to.u32le(wave.sampleRate).u8le(wave.params.rootKey).u8le(static_cast<u8>(wave.params.fineTune));
    to.u16le(link.other).u16le(link.type);
}

ByteWriter sampleHeaders(const BankContents& contents, std::span<const SfLink> links) {
    ByteWriter headers;
    u32 start = 0;
    for (std::size_t i = 0; i < contents.waves.size(); ++i) {
        addSampleHeader(headers, *contents.waves[i], start, links[i]);
        start += contents.waves[i]->frames + kSfGapPoints;
    }
    addSfEnd(headers, "EOS");
    headers.fill(kSf2SampleBytes - kSfNameBytes);
    return headers;
}

} // namespace

bool sf2_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool, f32) {
    BankContents contents;
    if (!contents.gather(item)) return Fail(kContext, "The file format can not save this item");
    const bool wide = (formatWord & kCodeMask) == kPcm24;
    reportSfLosses(contents, wide);
    const SfVersionWriter version{instrumentZoneDefaults(), sf2_ZoneOf, addPlaying, kContext, kTooMany};
    SfBankLists lists(contents, version);
    if (!lists.build()) return false;
    const ByteWriter headers = sampleHeaders(contents, lists.links());
    SfBankFile bank{contents, item, kContext};
    bank.major = 2;
    bank.minor = wide ? 4 : 1;
    bank.wide = wide;
    bank.tables = lists.tables();
    bank.tables.push_back({"shdr", headers.view()});
    return bank.write(*file.sink);
}

} // namespace kv
