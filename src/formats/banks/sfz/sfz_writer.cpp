#include "formats/banks/sfz/sfz_writer.h"

#include <algorithm>
#include <map>
#include <optional>
#include <tuple>
#include <vector>

#include "base/run_context.h"
#include "formats/banks/sfz/sfz_losses.h"
#include "formats/banks/sfz/sfz_region_text.h"
#include "formats/banks/sfz/sfz_sample_files.h"
#include "formats/framework/drivers.h"
#include "model/articulation_levels.h"
#include "model/instrument.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kContext = "sfz_Exp";
constexpr u32 kSubFolder = 1;

/// An instrument of one wave, for as long as it is written.
class WaveInstrument {
public:
    explicit WaveInstrument(const Wave& wave)
        : made_(*store().Create<Instrument>(kNextFreeNumber, numberOf(wave.id()), 1U, wave.name().view(),
                                            false)) {}
    ~WaveInstrument() { store().Delete(&made_); }
    WaveInstrument(const WaveInstrument&) = delete;
    WaveInstrument& operator=(const WaveInstrument&) = delete;
    Instrument& instrument() { return made_; }

private:
    Instrument& made_;
};

bool alternates(const Region& region) {
    return (region.trigger & 15) == 2;
}

/// The layers whose regions take turns, by what makes regions rivals.
class Sequences {
public:
    void add(const Region& region, int layer) {
        if (!alternates(region)) return;
        for (int key = region.keyLow; key <= region.keyHigh; ++key) {
            std::vector<int>& layers = layers_[rivals(region, key)];
            if (layers.empty() || layers.back() != layer) layers.push_back(layer);
        }
    }
    /// Fills in the region's turn when it has one.
    void tell(const Region& region, int layer, SfzRegionContext& to) const {
        if (!alternates(region)) return;
        const std::vector<int>& layers = layers_.at(rivals(region, (region.keyLow + region.keyHigh) / 2));
        if (layers.size() < 2) return;
        to.sequenceLength = static_cast<int>(layers.size());
        to.sequencePosition =
            static_cast<int>(std::lower_bound(layers.begin(), layers.end(), layer) - layers.begin()) + 1;
    }

private:
    using Rivals = std::tuple<int, u8, u8, bool, bool>;
    static Rivals rivals(const Region& region, int key) {
        return {key, region.velLow, region.velHigh, region.pedalUp != 0, region.pedalDown != 0};
    }
    std::map<Rivals, std::vector<int>> layers_; ///< in ascending order
};

class SfzWriter {
public:
    SfzWriter(const Instrument& instrument, FileContext& file, SfzSampleFiles& samples)
        : instrument_(instrument), file_(file), samples_(samples) {}

    bool write() {
        for (std::size_t i = 0; i < instrument_.childIds.size(); ++i) {
            for (const Region* region : regionsOf(i)) sequences_.add(*region, static_cast<int>(i));
        }
        if (!writeHead()) return false;
        for (std::size_t i = 0; i < instrument_.childIds.size(); ++i) {
            if (!writeLayer(i)) return false;
        }
        return true;
    }

private:
    bool writeHead() {
        constexpr std::size_t kRule = 77;
        if (!WriteTextLine(file_, std::string(kRule, '/'))) return failed();
        std::string_view left = instrument_.comment;
        if (left.empty()) left = "sfz created by Kelvane Studio v11.4";
        while (!left.empty()) {
            const std::size_t end = std::min(left.find_first_of("\r\n"), left.size());
            if (!WriteTextLine(file_, fmt::format("//// {}", left.substr(0, end)))) return failed();
            left.remove_prefix(end);
            left.remove_prefix(left.starts_with("\r\n") ? 2 : left.empty() ? 0 : 1);
        }
        return true;
    }

    bool writeLayer(std::size_t index) {
        const std::vector<const Region*> regions = regionsOf(index);
        const Layer* layer = store().Find<Layer>(instrument_.childIds[index]);
        if (!layer) return true;
        if (!WriteTextLine(file_, "") || !WriteTextLine(file_, "<group>")) return failed();
        for (const Region* region : regions) {
            Wave& wave = *RegionWave(*region);
            const Articulation sounding = resolveArticulation(&instrument_, layer, region);
            SfzRegionContext context{samples_.pathOf(wave), wave, sounding, regions.size() == 1};
            sequences_.tell(*region, static_cast<int>(index), context);
            if (!WriteTextLine(file_, "") || !WriteTextLine(file_, "<region>") ||
                !file_.write(bytesOf(sfzRegionText(*region, context)))) {
                return failed();
            }
        }
        return true;
    }

    /// The regions of a layer that play waves.
    std::vector<const Region*> regionsOf(std::size_t index) const {
        std::vector<const Region*> regions;
        const Layer* layer = store().Find<Layer>(instrument_.childIds[index]);
        if (!layer) return regions;
        for (const ItemId id : layer->childIds) {
            const Region* region = store().Find<Region>(id);
            if (region && RegionWave(*region)) regions.push_back(region);
        }
        return regions;
    }

    static bool failed() { return Fail(kContext, "Writing to file failed"); }

    const Instrument& instrument_;
    FileContext& file_;
    SfzSampleFiles& samples_;
    Sequences sequences_;
};

bool writableWord(u32 formatWord, bool perWave) {
    constexpr u32 kPlain = kPcm8 | kPcm16 | kPcm24 | kPcm32;
    const u32 code = formatWord & kCodeMask;
    if (code == kCompressed) return Fail(kContext, "This version can't write Ogg Vorbis samples yet");
    if (perWave ? code == 0 : (code & kPlain) != 0) return true;
    return Fail(kContext, "Unsupported data format");
}

} // namespace

bool sfz_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32) {
    std::optional<WaveInstrument> temporary;
    Instrument* instrument = nullptr;
    if (classOf(item.id()) == kInstrumentClass)
        instrument = static_cast<Instrument*>(&item);
    else if (classOf(item.id()) == kWaveClass)
        instrument = &temporary.emplace(static_cast<const Wave&>(item)).instrument();
    else
        return Fail(kContext, "The file format can not save this item");
    if (!writableWord(formatWord, perWave)) return false;
    if (file.path == "-") return Fail(kContext, "Sample files need a folder to stand in");

    fs::path folder = file.path.parent_path();
    std::string prefix;
    if (subType == kSubFolder) {
        const std::string name = sfzFileName(file.path.stem().native());
        prefix = name + '\\';
        folder /= name;
        std::error_code error;
        fs::create_directories(folder, error);
        if (error) return Fail(kContext, "Could not create file");
    }
    reportSfzLosses(*instrument);
    SfzSampleFiles samples(folder, prefix, formatWord, perWave);
    return SfzWriter(*instrument, file, samples).write();
}

} // namespace kv
