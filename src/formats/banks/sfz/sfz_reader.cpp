#include "formats/banks/sfz/sfz_reader.h"

#include <algorithm>
#include <map>

#include "base/run_context.h"
#include "formats/banks/sfz/sfz_mapping.h"
#include "formats/banks/sfz/sfz_report.h"
#include "formats/banks/sfz/sfz_samples.h"
#include "formats/banks/sfz/sfz_section.h"
#include "formats/banks/sfz/sfz_text.h"
#include "formats/framework/bank_contents.h"
#include "formats/framework/free_layers.h"
#include "model/collection.h"
#include "model/instrument.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"

namespace kv {
namespace {

constexpr std::size_t kMostRegions = 262'144;
constexpr std::size_t kMostLayers = 4096; // as many sounds as a key can have

enum class Section : u8 { None, Global, Master, Group, Region, Control, Skipped };

struct SectionName {
    std::string_view name;
    Section section;
};
constexpr SectionName kSections[] = {{"region", Section::Region},   {"group", Section::Group},
                                     {"master", Section::Master},   {"global", Section::Global},
                                     {"control", Section::Control}, {"effects", Section::Skipped},
                                     {"curve", Section::Skipped}};

/// Collects the comment lines at the top, up to a line of dashes.
class TopComment {
public:
    void add(std::string_view line) {
        constexpr std::size_t kRule = 80, kDashes = 10;
        line = sfzTrim(line);
        done_ |= line.size() >= kRule && line.find_first_not_of('-') >= kDashes;
        if (done_ || text_.size() >= kLimit || (text_.empty() && line.empty())) return;
        if (!text_.empty()) text_ += '\n';
        text_ += cutToCharacters(line, kLimit);
    }
    void end() { done_ = true; }
    std::string_view text() const {
        const std::size_t last = text_.find_last_not_of('\n');
        return std::string_view(text_).substr(0, last + 1);
    }

private:
    static constexpr std::size_t kLimit = 1500;
    std::string text_;
    bool done_ = false;
};

class SfzReader {
public:
    SfzReader(FileContext& file, Instrument& instrument)
        : folder_(file.path.parent_path()),
          text_(*file.source, file.path, folder_),
          samples_(folder_),
          instrument_(instrument),
          layers_(instrument) {}

    void read();

private:
    void beginSection(std::string_view name);
    void endSection();
    void opcode(std::string_view name, std::string_view value);
    void control(std::string_view name, std::string_view value);
    SfzSection* record();
    void buildRegion();

    SfzFolder folder_;
    SfzText text_;
    SfzSamples samples_;
    SfzReport report_;
    SfzSection global_, master_, group_, region_;
    Section section_ = Section::None;
    std::string prefix_; ///< of sample paths
    TopComment comment_;
    Instrument& instrument_;
    FreeLayers layers_;
    std::size_t regions_ = 0;
};

SfzSection* SfzReader::record() {
    switch (section_) {
        case Section::Global:
            return &global_;
        case Section::Master:
            return &master_;
        case Section::Group:
            return &group_;
        case Section::Region:
            return &region_;
        default:
            return nullptr;
    }
}

void SfzReader::read() {
    for (SfzToken token = text_.next(); token.kind != SfzTokenKind::End; token = text_.next()) {
        if (token.kind == SfzTokenKind::Comment) comment_.add(token.value);
        if (token.kind == SfzTokenKind::Section) beginSection(token.name);
        if (token.kind == SfzTokenKind::Opcode) opcode(token.name, token.value);
    }
    endSection();
    moveBlocksIntoWaves();
    instrument_.comment = comment_.text();
    report_.tell();
}

void SfzReader::beginSection(std::string_view name) {
    endSection();
    comment_.end();
    const auto* known = std::find_if(std::begin(kSections), std::end(kSections),
                                     [&](const SectionName& s) { return s.name == name; });
    section_ = known == std::end(kSections) ? Section::Skipped : known->section;
    if (section_ == Section::Skipped) report_.ignore(fmt::format("<{}>", name.substr(0, 64)));
    if (section_ == Section::Master) master_ = global_;
    if (section_ == Section::Group) group_ = master_;
    if (section_ == Section::Region) region_ = group_;
}

void SfzReader::endSection() {
    if (section_ == Section::Region && !region_.sample.empty()) buildRegion();
    // Sections that are left out pass on what stands above them.
    if (section_ == Section::Global) master_ = group_ = global_;
    if (section_ == Section::Master) group_ = master_;
    section_ = Section::None;
}

/// The offsets of keys only hold until the next section begins, so that no key ever sees them.
void SfzReader::control(std::string_view name, std::string_view value) {
    if (name != "default_path") return report_.ignore(name);
    prefix_ = value;
    // One that begins with a backslash counts from the root of the drive that the bank is on.
    if (prefix_.starts_with('\\')) prefix_.front() = '/';
}

void SfzReader::opcode(std::string_view name, std::string_view value) {
    if (section_ == Section::Control) return control(name, value);
    SfzSection* section = record();
    if (!section) return;
    if (name == "key") {
        for (u8 SfzSection::*member : {&SfzSection::lokey, &SfzSection::hikey, &SfzSection::pitch_keycenter})
            section->*member = sfzKey(value, section->*member);
        return;
    }
    const SfzOpcode* known = findSfzOpcode(name);
    if (known) known->set(*section, value);
    if (!known || !known->kept) report_.ignore(name);
}

void SfzReader::buildRegion() {
    if (regions_ >= kMostRegions || layers_.count() >= kMostLayers) return report_.tooMany();
    const Wave* wave = samples_.wave(prefix_, region_.sample);
    if (!wave) return;
    Region& region = *store().Create<Region>(kNextFreeNumber, numberOf(wave->id()));
    sfzReadRegion(region_, *wave, region);
    if (region_.bend_down != -i64{region_.bend_up}) report_.ignore("bend_down");
    layers_.place(region);
    ++regions_;
}

} // namespace

bool sfz_Imp(Collection& collection, FileContext& file, u32) {
    Instrument& instrument = *store().Create<Instrument>(kNextFreeNumber, 0U, 0U, collection.name().view());
    SfzReader(file, instrument).read();
    return true;
}

} // namespace kv
