#include "shell/kelvane/loss_report.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <set>
#include <tuple>
#include <utility>

#include "base/run_context.h"
#include "formats/framework/drivers.h"
#include "model/articulation_fields.h"
#include "model/articulation_levels.h"
#include "model/instrument.h"
#include "model/key_name.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "shell/kelvane/json_writer.h"

namespace kv {
namespace {

void addParams(SoundSnapshot& snapshot, const SampleParams& p) {
    auto& fields = snapshot.fields;
    fields["tuning"] = p.rootKey - p.fineTune * 0.01;
    fields["gainDb"] = static_cast<f64>(p.gainDb);
    fields["loopFlags"] = p.loopFlags;
    if (p.looped()) {
        fields["loopStart"] = p.loopStart;
        fields["loopEnd"] = p.loopEnd;
    }
    fields["startOffset"] = p.startOffset;
    fields["endOffset"] = p.endOffset;
}

/// What is switched off, or moves nothing, has no effect to be lost.
bool isIdle(std::string_view field, const Articulation& a) {
    const auto about = [&](std::string_view name) { return field.starts_with(name); };
    if (about("filterEnable") || about("eqEnable")) return false;
    if (about("filter") || field.ends_with("Cutoff")) return !a.filterEnable;
    if (about("eq")) return !a.eqEnable;
    if (about("lfo1To") || about("lfo2To") || about("eg2To")) return false;
    if (about("lfo1")) {
        return a.lfo1ToVolume == 0 && a.lfo1ToPitch == 0 && a.lfo1ToCutoff == 0 && a.modToLfo1Volume == 0 &&
               a.modToLfo1Pitch == 0 && a.modToLfo1Cutoff == 0 && a.aftertouchToLfo1Volume == 0 &&
               a.aftertouchToLfo1Pitch == 0 && a.aftertouchToLfo1Cutoff == 0;
    }
    if (about("lfo2")) return a.lfo2ToPitch == 0 && a.modToLfo2Pitch == 0 && a.aftertouchToLfo2Pitch == 0;
    return about("eg2") && a.eg2ToPitch == 0 && a.eg2ToCutoff == 0;
}

void addArticulation(SoundSnapshot& snapshot, const Articulation& record) {
    for (const ArticulationField& field : articulationFields()) {
        if (!isIdle(field.name, record)) snapshot.fields[std::string(field.name)] = field.get(record);
    }
}

SoundSnapshot snapshotOf(const Instrument& instrument, const Layer& layer, const Region& region) {
    SoundSnapshot one;
    one.owner = instrument.name().str();
    one.patch = instrument.patch;
    const Wave* wave = RegionWave(region);
    if (wave) one.name = wave->name().str();
    one.keyLow = region.keyLow;
    one.keyHigh = region.keyHigh;
    one.velLow = region.velLow;
    one.velHigh = region.velHigh;
    one.fields = {{"keyGroup", region.keyGroup},
                  {"selfNonExclusive", region.selfNonExclusive},
                  {"trigger", region.trigger},
                  {"pedalUp", region.pedalUp},
                  {"pedalDown", region.pedalDown}};
    addParams(one, effectiveParams(region));
    addArticulation(one, resolveArticulation(&instrument, &layer, &region));
    // Formats tell one tuning by several numbers.
    one.fields["tuning"] -= one.fields["masterTune"];
    one.fields.erase("masterTune");
    return one;
}

/// A wave but for how it plays, which regions tell.
SoundSnapshot samplesOf(const Wave& wave) {
    SoundSnapshot one;
    one.name = wave.name().str();
    one.fields = {{"frames", wave.frames},
                  {"channels", wave.channels},
                  {"sampleRate", wave.sampleRate},
                  {"bits", wave.bits},
                  {"cuePoints", wave.cuePoints.size()}};
    return one;
}

SoundSnapshot snapshotOf(const Wave& wave) {
    SoundSnapshot one = samplesOf(wave);
    addParams(one, wave.params);
    return one;
}

std::string labelOf(const SoundSnapshot& one) {
    if (one.owner.empty()) return fmt::format("wave \"{}\"", one.name);
    return fmt::format("\"{}\" {}..{}, velocity {}..{}, \"{}\"", one.owner, KeyName(one.keyLow),
                       KeyName(one.keyHigh), one.velLow, one.velHigh, one.name);
}

/// Sampler formats round to cents, tenths of decibels and thousandths.
bool sameValue(double a, double b) {
    return std::abs(a - b) <= std::max({0.0051, std::abs(a) * 0.002, std::abs(b) * 0.002});
}

/// Where an item stands, so that it's found again; names may have been cut.
using Key = std::tuple<bool, u32, u32>;
Key keyOf(const SoundSnapshot& one) {
    const u32 ranges = u32{one.keyLow} << 24 | u32{one.keyHigh} << 16 | u32{one.velLow} << 8 | one.velHigh;
    return {one.owner.empty(), one.patch, ranges};
}

bool sameName(const SoundSnapshot& a, const SoundSnapshot& b) {
    constexpr std::size_t kShortest = 8;
    const std::string left = toLower(a.name), right = toLower(b.name);
    const std::size_t common = std::min({left.size(), right.size(), kShortest});
    return left.compare(0, common, right, 0, common) == 0;
}

std::size_t differences(const SoundSnapshot& a, const SoundSnapshot& b) {
    std::size_t count = sameName(a, b) ? 0 : 1000;
    for (const auto& [field, value] : a.fields) {
        const auto found = b.fields.find(field);
        count += found == b.fields.end() || !sameValue(value, found->second) ? 1 : 0;
    }
    return count;
}

} // namespace

namespace {

void addInstrument(Snapshot& snapshot, const Instrument& instrument) {
    for (const ItemId layerId : instrument.childIds) {
        const Layer* layer = store().Find<Layer>(layerId);
        if (!layer) continue;
        for (const ItemId id : layer->childIds) {
            if (const Region* region = store().Find<Region>(id))
                snapshot.push_back(snapshotOf(instrument, *layer, *region));
        }
    }
}

/// A file that holds one instrument tells it by no number, so that the number can only get lost.
void asSingleItem(Snapshot& snapshot) {
    for (SoundSnapshot& one : snapshot) {
        if (!one.owner.empty()) one.fields["patch"] = std::exchange(one.patch, 0);
    }
}

} // namespace

Snapshot takeSnapshot() {
    Snapshot snapshot;
    for (const Instrument& instrument : store().all<Instrument>()) addInstrument(snapshot, instrument);
    for (const Wave& wave : store().all<Wave>()) snapshot.push_back(snapshotOf(wave));
    return snapshot;
}

Snapshot takeSnapshot(const Item& item) {
    Snapshot snapshot;
    if (classOf(item.id()) == kCollectionClass) return takeSnapshot();
    if (classOf(item.id()) == kWaveClass) {
        snapshot.push_back(snapshotOf(static_cast<const Wave&>(item)));
    } else if (classOf(item.id()) == kInstrumentClass) {
        addInstrument(snapshot, static_cast<const Instrument&>(item));
        std::set<const Wave*> waves;
        for (const ItemId layerId : item.childIds) {
            const Layer* layer = store().Find<Layer>(layerId);
            for (const ItemId id : layer ? layer->childIds : std::vector<ItemId>()) {
                const Region* region = store().Find<Region>(id);
                const Wave* wave = region ? RegionWave(*region) : nullptr;
                if (wave && waves.insert(wave).second) snapshot.push_back(samplesOf(*wave));
            }
        }
    }
    asSingleItem(snapshot);
    return snapshot;
}

std::vector<Loss> compareSnapshots(const Snapshot& before, const Snapshot& after) {
    std::multimap<Key, const SoundSnapshot*> found;
    for (const SoundSnapshot& one : after) found.emplace(keyOf(one), &one);
    std::vector<Loss> losses;
    for (const SoundSnapshot& one : before) {
        const auto [begin, end] = found.equal_range(keyOf(one));
        auto best = end;
        std::size_t least = 1000; // with another name it is another item
        std::size_t tried = 0;
        for (auto at = begin; at != end && least > 0 && tried < 64; ++at, ++tried) {
            const std::size_t count = differences(one, *at->second);
            if (count < least) {
                least = count;
                best = at;
            }
        }
        if (best == end) {
            losses.push_back({labelOf(one), one.owner.empty() ? "wave" : "region", 0, 0, true});
            continue;
        }
        for (const auto& [field, value] : one.fields) {
            const auto kept = best->second->fields.find(field);
            const double now = kept == best->second->fields.end() ? 0 : kept->second;
            if (!sameValue(value, now)) losses.push_back({labelOf(one), field, value, now});
        }
        found.erase(best);
    }
    return losses;
}

bool findLosses(const Snapshot& before, bool whole, const std::filesystem::path& written,
                std::vector<Loss>& losses) {
    if (!store().PushLists()) return Fail("report", "Too many files are open at once");
    const Diagnostics kept = runContext().diagnostics;
    const bool read = Import(written, true);
    if (read) {
        Snapshot after = takeSnapshot();
        if (!whole) asSingleItem(after);
        const std::vector<Loss> found = compareSnapshots(before, after);
        losses.insert(losses.end(), found.begin(), found.end());
    }
    store().PopAndDiscard();
    runContext().diagnostics = kept;
    return read;
}

bool reportLosses(const std::vector<Loss>& losses, const std::string& file) {
    std::map<std::string, u32> counts;
    for (const Loss& loss : losses) ++counts[loss.field];
    if (file.empty()) {
        for (const auto& [field, count] : counts) fmt::print("{:6} {}\n", count, field);
        fmt::print("{} value{} lost\n", losses.size(), plural(losses.size()));
        return true;
    }
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(std::fopen(file.c_str(), "wb"), std::fclose);
    if (!out) return Fail("report", "Could not create file");
    JsonWriter json(out.get());
    json.beginObject();
    json.value("lost", losses.size());
    json.beginObject("counts");
    for (const auto& [field, count] : counts) json.value(field, count);
    json.endObject();
    json.beginArray("losses");
    for (const Loss& loss : losses) {
        json.beginLineObject({});
        json.value("item", loss.item);
        json.value("field", loss.field);
        json.value("missing", loss.missing);
        if (!loss.missing) {
            json.value("before", loss.before);
            json.value("after", loss.after);
        }
        json.endObject();
    }
    json.endArray();
    json.endObject();
    return true;
}

} // namespace kv
