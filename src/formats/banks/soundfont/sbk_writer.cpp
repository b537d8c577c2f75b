#include <cmath>

#include "base/run_context.h"
#include "formats/banks/soundfont/sbk_mapping.h"
#include "formats/banks/soundfont/sf_bank_file.h"
#include "formats/banks/soundfont/sf_tables.h"
#include "formats/banks/soundfont/sf_writer.h"
#include "model/instrument.h"
#include "model/wave.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "sbk_Exp";
constexpr std::string_view kTooMany =
    "Save failed - Too many 'parameter' values!\nThe SBK format can handle a maximum of 65536 parameter "
    "values...\n";

void addPlaying(SfZone& zone, const Articulation& articulation, const Region& region, const Wave& wave) {
    zone.generators[kExclusiveClass] = region.keyGroup;
    sbk_AddPlaying(zone, articulation, effectiveParams(region), wave.params, wave.sampleRate);
}

} // namespace

bool sbk_Exp(Item& item, FileContext& file, u32, u32, bool, f32) {
    BankContents contents;
    if (!contents.gather(item)) return Fail(kContext, "The file format can not save this item");
    reportSfLosses(contents, false);
    const SfVersionWriter version{sbkInstrumentDefaults(), sbk_ZoneOf, addPlaying, kContext, kTooMany};
    SfBankLists lists(contents, version);
    if (!lists.build()) return false;

    ByteWriter names, headers;
    u32 start = 0;
    for (const Wave* wave : contents.waves) {
        const auto point = [&](f64 frame) { return start + saturate<u32>(std::floor(frame + 0.499)); };
        addSfName(names, wave->name());
        headers.u32le(start).u32le(start + wave->frames);
        headers.u32le(point(wave->params.loopStart)).u32le(point(wave->params.loopEnd));
        start += wave->frames + kSfGapPoints;
    }
    addSfEnd(names, "EOS");
    headers.fill(kSf1SampleBytes);

    SfBankFile bank{contents, item, kContext};
    bank.major = 1;
    bank.minor = 0;
    bank.lead = {{"snam", names.view()}};
    bank.tables = lists.tables();
    bank.tables.push_back({"shdr", headers.view()});
    return bank.write(*file.sink);
}

} // namespace kv
