#include "model/stereo.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "base/run_context.h"
#include "model/articulation_levels.h"
#include "model/instrument.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/wave_data.h"
#include "model/workspace.h"

namespace kv {
namespace {

/// The stereo wave that a mono wave went into.
using Pairs = std::unordered_map<ItemId, Wave*>;

Wave* pairOf(const Pairs& pairs, const Wave& wave) {
    const auto found = pairs.find(wave.id());
    return found == pairs.end() ? nullptr : found->second;
}

template <class T>
bool interleave(std::span<const T> left, std::span<const T> right, SampleBuffer<T>& to) {
    const std::size_t frames = std::max(left.size(), right.size());
    if (!to.allocate(frames * 2)) return Fail("Wave data", "Out of memory");
    for (std::size_t i = 0; i < frames; ++i) {
        to.data()[2 * i] = i < left.size() ? left[i] : T{0};
        to.data()[2 * i + 1] = i < right.size() ? right[i] : T{0};
    }
    return true;
}

/// A stereo wave of two mono ones, with all else from `first`. Null with the error pair set when their
/// samples can't be read.
Wave* join(Wave& first, Wave& second, bool firstIsLeft, std::string_view name) {
    if (!first.LoadData() || !second.LoadData()) return nullptr;
    Wave& left = firstIsLeft ? first : second;
    Wave& right = firstIsLeft ? second : first;
    Wave* stereo = store().Create<Wave>(first, kNextFreeNumber, name);
    const bool asFloat = left.samplesFloat || right.samplesFloat;
    const bool done = asFloat ? interleave<f32>(GetFloatData(left), GetFloatData(right), stereo->samplesFloat)
                              : interleave<i16>(GetInt16Data(left), GetInt16Data(right), stereo->samples16);
    if (!done) {
        store().Delete(stereo);
        return nullptr;
    }
    stereo->channels = 2;
    stereo->frames = std::max(left.frames, right.frames);
    stereo->sourceFile = kMemoryOnly;
    stereo->reloadable = false;
    FreeData(left, true);
    FreeData(right, true);
    stereo->FixUp();
    return stereo;
}

char lower(char c) {
    return static_cast<char>(c | 0x20);
}
bool isSide(char c) {
    return lower(c) == 'l' || lower(c) == 'r';
}
bool isSeparator(char c) {
    return c == ' ' || c == '-';
}

/// The name ends in a separator and a side's letter.
bool namesSide(std::string_view name) {
    return name.size() >= 4 && isSide(name.back()) && isSeparator(name[name.size() - 2]);
}

std::string partnerName(std::string name) {
    const char c = name.back();
    name.back() = static_cast<char>(lower(c) == 'l' ? c + ('r' - 'l') : c - ('r' - 'l'));
    return name;
}

/// Without the letter, the separator, and blanks or one more separator before them.
std::string_view stemOfSide(std::string_view name) {
    name.remove_suffix(2);
    if (name.ends_with('-')) {
        name.remove_suffix(1);
    } else {
        while (name.ends_with(' ')) name.remove_suffix(1);
    }
    return name;
}

/// The same for names whose side may have a number behind it.
std::string stemOfPan(std::string_view name) {
    std::string_view cut = name;
    while (!cut.empty() && cut.back() >= '0' && cut.back() <= '9') cut.remove_suffix(1);
    if (cut.size() < 3 || !isSide(cut.back()) || !isSeparator(cut[cut.size() - 2])) return std::string(name);
    return std::string(stemOfSide(cut));
}

u32 rangesOf(const Region& region) {
    return u32{region.keyLow} << 24 | u32{region.keyHigh} << 16 | u32{region.velLow} << 8 | region.velHigh;
}

void play(Region& region, const Wave& stereo) {
    region.childIds.assign(1, stereo.id());
    if (!region.params.override) {
        region.params = stereo.params;
        region.params.override = false;
    }
}

void remove(Layer& layer, Region& region) {
    layer.RemoveChildAt(layer.IndexOfChild(region.id()));
    store().Delete(&region);
}

void dropEmptyLayers(Instrument& instrument) {
    for (std::size_t i = instrument.childIds.size(); i-- > 0;) {
        Layer* layer = store().Find<Layer>(instrument.childIds[i]);
        if (layer && !layer->childIds.empty()) continue;
        instrument.RemoveChildAt(static_cast<int>(i));
        store().Delete(layer);
    }
}

/// A region with where it stands.
struct Place {
    std::size_t layerIndex;
    Layer* layer;
    Region* region;
};

std::vector<Place> placesOf(const Instrument& instrument) {
    std::vector<Place> places;
    for (std::size_t i = 0; i < instrument.childIds.size(); ++i) {
        Layer* layer = store().Find<Layer>(instrument.childIds[i]);
        if (!layer) continue;
        for (const ItemId id : layer->childIds) {
            if (Region* region = store().Find<Region>(id)) places.push_back({i, layer, region});
        }
    }
    return places;
}

// ---- By name

u32 joinByName(Pairs& pairs) {
    using Key = std::tuple<u32, u32, u8, std::string>;
    const auto keyOf = [](const Wave& wave, std::string name) {
        return Key(wave.frames, wave.sampleRate, wave.params.rootKey, std::move(name));
    };
    std::vector<Wave*> waves;
    for (Wave& wave : store().all<Wave>()) {
        if (wave.channels == 1 && namesSide(wave.name().view())) waves.push_back(&wave);
    }
    std::multimap<Key, std::size_t> places;
    for (std::size_t i = 0; i < waves.size(); ++i)
        places.emplace(keyOf(*waves[i], waves[i]->name().str()), i);
    u32 made = 0;
    for (std::size_t i = 0; i < waves.size(); ++i) {
        Wave& first = *waves[i];
        if (pairOf(pairs, first)) continue;
        const auto [begin, end] = places.equal_range(keyOf(first, partnerName(first.name().str())));
        const auto later = std::find_if(begin, end, [&](const auto& entry) {
            return entry.second > i && !pairOf(pairs, *waves[entry.second]);
        });
        if (later == end) continue;
        Wave& second = *waves[later->second];
        Wave* stereo =
            join(first, second, lower(first.name().view().back()) == 'l', stemOfSide(first.name().view()));
        if (!stereo) {
            ShowLastError();
            continue;
        }
        pairs[first.id()] = pairs[second.id()] = stereo;
        ++made;
    }
    return made;
}

u32 mergeNamedRegions(Instrument& instrument, const Pairs& pairs) {
    u32 merged = 0;
    std::unordered_set<const Region*> gone;
    const std::vector<Place> places = placesOf(instrument);
    // Later regions by what they play and where.
    std::map<std::pair<ItemId, u32>, std::vector<std::size_t>> byPlace;
    for (std::size_t i = 0; i < places.size(); ++i) {
        const Wave* wave = RegionWave(*places[i].region);
        const Wave* stereo = wave ? pairOf(pairs, *wave) : nullptr;
        if (stereo) byPlace[{stereo->id(), rangesOf(*places[i].region)}].push_back(i);
    }
    for (const auto& [key, found] : byPlace) {
        for (std::size_t a = 0; a < found.size(); ++a) {
            const Place& first = places[found[a]];
            if (gone.contains(first.region)) continue;
            const auto partner =
                std::find_if(found.begin() + static_cast<std::ptrdiff_t>(a), found.end(), [&](std::size_t i) {
                    return places[i].layerIndex > first.layerIndex && !gone.contains(places[i].region) &&
                           RegionWave(*places[i].region) != RegionWave(*first.region);
                });
            const bool alone = partner == found.end();
            const bool secondStays =
                !alone && places[*partner].region->phaseMaster != 0 && first.region->phaseMaster == 0;
            const Place& kept = secondStays ? places[*partner] : first;
            gone.insert(first.region);
            if (!alone) gone.insert(places[*partner].region);
            play(*kept.region, *store().Find<Wave>(key.first));
            if (alone) continue;
            (kept.region->articulation.enabled ? kept.region->articulation : kept.layer->articulation)
                .panDefault = 0;
            const Place& other = secondStays ? first : places[*partner];
            remove(*other.layer, *other.region);
            ++merged;
        }
    }
    dropEmptyLayers(instrument);
    return merged;
}

// ---- By pan

u32 mergePannedRegions(Instrument& instrument, Pairs& pairs, bool keepNames, u32& made) {
    constexpr f32 kHard = 0.9F;
    u32 merged = 0;
    std::unordered_set<const Region*> gone;
    const std::vector<Place> places = placesOf(instrument);
    std::map<u32, std::vector<std::size_t>> byRanges;
    for (std::size_t i = 0; i < places.size(); ++i) byRanges[rangesOf(*places[i].region)].push_back(i);
    const auto panOf = [&](const Place& place) {
        return resolveArticulation(&instrument, place.layer, place.region).panDefault;
    };
    for (std::size_t i = 0; i < places.size(); ++i) {
        const Place& first = places[i];
        if (gone.contains(first.region)) continue;
        Wave* wave = RegionWave(*first.region);
        const f32 pan = panOf(first);
        if (!wave || wave->channels != 1 || std::abs(pan) < kHard) continue;
        const std::vector<std::size_t>& alike = byRanges[rangesOf(*first.region)];
        const auto partner = std::find_if(alike.begin(), alike.end(), [&](std::size_t at) {
            const Place& place = places[at];
            if (place.layerIndex <= first.layerIndex || gone.contains(place.region)) return false;
            const Wave* other = RegionWave(*place.region);
            return other && other != wave && other->channels == 1 && panOf(place) == -pan;
        });
        if (partner == alike.end()) continue;
        const Place& second = places[*partner];
        Wave& other = *RegionWave(*second.region);
        Wave* stereo = pairOf(pairs, *wave);
        if (!stereo || stereo != pairOf(pairs, other)) {
            const std::string stem = stemOfPan(wave->name().view());
            stereo = join(*wave, other, pan < 0, keepNames ? stem : stem + " S");
            if (!stereo) {
                ShowLastError();
                continue;
            }
            pairs[wave->id()] = pairs[other.id()] = stereo;
            ++made;
        }
        if (!first.region->articulation.enabled) {
            first.region->articulation = resolveArticulation(&instrument, first.layer, first.region);
        }
        first.region->articulation.panDefault = 0;
        first.region->phaseGroup = first.region->phaseMaster = 0;
        play(*first.region, *stereo);
        gone.insert(first.region);
        gone.insert(second.region);
        remove(*second.layer, *second.region);
        ++merged;
    }
    dropEmptyLayers(instrument);
    return merged;
}

bool concerns(const Item& item, const Instrument& instrument) {
    return classOf(item.id()) != kInstrumentClass || item.id() == instrument.id();
}

} // namespace

u32 MergeStereo(const Item& item, u32& stereoCount, bool byName, bool byPan, bool keepNames) {
    Pairs pairs;
    stereoCount = byName ? joinByName(pairs) : 0;
    u32 merged = 0;
    for (Instrument& instrument : store().all<Instrument>()) {
        if (!pairs.empty()) merged += mergeNamedRegions(instrument, pairs);
    }
    for (Instrument& instrument : store().all<Instrument>()) {
        if (byPan && concerns(item, instrument))
            merged += mergePannedRegions(instrument, pairs, keepNames, stereoCount);
    }
    return merged;
}

// ---- Splitting

namespace {

template <class T>
bool takeChannel(const SampleBuffer<T>& from, u32 channels, u32 channel, SampleBuffer<T>& to) {
    const std::span<const T> samples = from.span();
    if (!to.allocate(samples.size() / channels)) return Fail("Wave data", "Out of memory");
    for (std::size_t i = 0; i < to.size(); ++i) to.data()[i] = samples[i * channels + channel];
    return true;
}

/// Makes the wave its left channel; answers a new wave of the right one, or null with the error pair set.
Wave* splitWave(Wave& wave) {
    if (!wave.LoadData()) return nullptr;
    std::string stem = wave.name().str();
    if (stem.ends_with(" S") || stem.ends_with("-S")) stem.resize(stem.size() - 2);
    std::array<SampleBuffer<f32>, 2> floats;
    std::array<SampleBuffer<i16>, 2> integers;
    for (u32 channel = 0; channel < 2; ++channel) {
        const bool done = wave.samplesFloat
                              ? takeChannel(wave.samplesFloat, wave.channels, channel, floats[channel])
                              : takeChannel(wave.samples16, wave.channels, channel, integers[channel]);
        if (!done) return nullptr;
    }
    Wave* right = store().Create<Wave>(wave, kNextFreeNumber, stem + " R");
    wave.SetName(stem + " L");
    Wave* const sides[] = {&wave, right};
    for (std::size_t i = 0; i < 2; ++i) {
        sides[i]->channels = 1;
        sides[i]->samplesFloat = std::move(floats[i]);
        sides[i]->samples16 = std::move(integers[i]);
        sides[i]->sourceFile = kMemoryOnly;
        sides[i]->reloadable = false;
        sides[i]->FixUp();
    }
    return right;
}

u8 freePhaseGroup(const Instrument& instrument) {
    std::array<bool, 256> used{};
    for (const Place& place : placesOf(instrument)) used[place.region->phaseGroup] = true;
    const auto* found = std::find(used.begin() + 1, used.end(), false);
    return static_cast<u8>(found == used.end() ? 255 : found - used.begin());
}

/// Gives the split regions of a layer their right sides in a new layer behind it.
void doubleLayer(Instrument& instrument, std::size_t index, const Pairs& rightOf) {
    Layer& layer = *store().Find<Layer>(instrument.childIds[index]);
    Layer* second = nullptr;
    for (const ItemId id : layer.childIds) {
        Region* region = store().Find<Region>(id);
        const Wave* wave = region ? RegionWave(*region) : nullptr;
        const Wave* right = wave ? pairOf(rightOf, *wave) : nullptr;
        if (!right) continue;
        if (!second) {
            second = store().Create<Layer>(kNextFreeNumber);
            second->articulation = layer.articulation;
        }
        // Without a record of its own or the layer's, the region gets the one that it sounds with.
        if (!region->articulation.enabled && !layer.articulation.enabled) {
            region->articulation = resolveArticulation(&instrument, &layer, region);
            region->articulation.enabled = true;
        }
        Region* copy = store().Create<Region>(*region, kNextFreeNumber);
        copy->childIds.assign(1, right->id());
        second->AddChild(copy->id());
        const bool own = region->articulation.enabled;
        (own ? region->articulation : layer.articulation).panDefault = -1;
        (own ? copy->articulation : second->articulation).panDefault = 1;
        region->phaseGroup = copy->phaseGroup = freePhaseGroup(instrument);
        copy->phaseMaster = 1;
    }
    if (second) {
        instrument.childIds.insert(instrument.childIds.begin() + static_cast<std::ptrdiff_t>(index) + 1,
                                   second->id());
    }
}

} // namespace

u32 SplitStereo(const Item& item) {
    std::unordered_set<ItemId> wanted;
    if (classOf(item.id()) == kInstrumentClass) {
        for (const Place& place : placesOf(static_cast<const Instrument&>(item))) {
            if (const Wave* wave = RegionWave(*place.region)) wanted.insert(wave->id());
        }
    } else {
        for (const Wave& wave : store().all<Wave>()) wanted.insert(wave.id());
    }
    Pairs rightOf;
    for (Wave& wave : store().all<Wave>()) {
        if (wave.channels != 2 || !wanted.contains(wave.id())) continue;
        if (Wave* right = splitWave(wave))
            rightOf[wave.id()] = right;
        else
            ShowLastError();
    }
    for (Instrument& instrument : store().all<Instrument>()) {
        for (std::size_t i = instrument.childIds.size(); i-- > 0;) {
            if (store().Find<Layer>(instrument.childIds[i]) && !rightOf.empty())
                doubleLayer(instrument, i, rightOf);
        }
    }
    return static_cast<u32>(rightOf.size());
}

} // namespace kv
