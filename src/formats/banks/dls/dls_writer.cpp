#include "formats/banks/dls/dls_writer.h"

#include <algorithm>
#include <optional>

#include "base/run_context.h"
#include "formats/banks/dls/dls_bank_file.h"
#include "formats/banks/dls/dls_losses.h"
#include "formats/banks/dls/dls_records.h"

namespace kv {
namespace {

constexpr std::size_t kMostMelodic1 = 16, kMostRegions = 128, kNoLimit = SIZE_MAX;

void leaveOutDrumKits(BankContents& contents) {
    const std::size_t removed = std::erase_if(
        contents.instruments, [](const Instrument* instrument) { return instrument->drumKit(); });
    if (removed == 0) return;
    ShowMessage({},
                "Warning!\n\nMobile DLS does not support the drum-kit flag - the drum kit(s) will not be "
                "saved (manually change them into a melodic instruments and try again)");
}

std::size_t playedRegions(const Instrument& instrument) {
    std::size_t count = 0;
    forEachLayer(instrument, [&](const Layer& layer, std::size_t) {
        forEachRegion(layer, [&](const Region&, const Wave&) { ++count; });
    });
    return count;
}

/// Asks what to do with too many regions, and lifts the limits unless some are to be skipped.
void settleLimits(DlsBankFile::Plan& plan) {
    const bool exceeded = std::ranges::any_of(plan.contents.instruments, [&](const Instrument* instrument) {
        return playedRegions(*instrument) > (instrument->drumKit() ? plan.mostDrums : plan.mostMelodic);
    });
    static constexpr std::string_view kButtons[] = {"Yes", "No"};
    constexpr std::string_view kQuestion =
        "The collection contains instruments with more regions than what is allowed by the DLS level 1 "
        "specification.\n\nDo you want to write all regions anyway?\n(if you answer No, then some regions "
        "will "
        "be skipped)";
    if (!exceeded || Ask(kProductTitle, kQuestion, kButtons, 0) == 0)
        plan.mostMelodic = plan.mostDrums = kNoLimit;
}

struct MobileLimit {
    int level;
    u64 bytes;
    std::string_view warning;
};
constexpr MobileLimit kMobileLimits[] = {
    {kMobileDlsMinimal, 7168,
     "Warning!\n\nThe waveform data in this collection requires > 7 KB in uncompressed format which more "
     "than is "
     "supported by 'minimal' mobile DLS!"},
    {kMobileDlsFull, 15360,
     "Warning!\n\nThe waveform data in this collection requires > 15 KB in uncompressed format which more "
     "than "
     "is supported by 'full' mobile DLS!"},
};

} // namespace

struct DlsBankWriter::Parts {
    Parts(Item& saved, int bankLevel, u32 word) : item(saved), level(bankLevel), formatWord(word) {}

    Item& item;
    int level;
    u32 formatWord;
    BankContents contents;
    std::optional<DlsBankFile> file;
};

DlsBankWriter::DlsBankWriter(Item& item, int level, u32 formatWord)
    : parts_(std::make_unique<Parts>(item, level, formatWord)) {}
DlsBankWriter::~DlsBankWriter() = default;

bool DlsBankWriter::prepare() {
    const int level = parts_->level;
    BankContents& contents = parts_->contents;
    if (!contents.gather(parts_->item)) return Fail("dls_Exp", "The file format can not save this item");
    if (level < 0) leaveOutDrumKits(contents);
    DlsBankFile::Plan plan{contents,
                           parts_->item,
                           level,
                           parts_->formatWord,
                           level < kDlsLevel2 ? kMostMelodic1 : kMostRegions,
                           kMostRegions};
    settleLimits(plan);
    reportDlsLosses(contents, level, parts_->formatWord);
    DlsBankFile& bank = parts_->file.emplace(plan);
    if (!bank.prepare()) return false;
    for (const MobileLimit& row : kMobileLimits) {
        if (row.level == level && bank.sampleBytes() > row.bytes) ShowMessage({}, row.warning);
    }
    return true;
}

u64 DlsBankWriter::size() const {
    return parts_->file->size();
}

bool DlsBankWriter::write(ByteSink& sink) const {
    return parts_->file->write(sink);
}

bool dls_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool, f32) {
    DlsBankWriter bank(item, static_cast<i32>(subType), formatWord);
    return bank.prepare() && bank.write(*file.sink);
}

} // namespace kv
