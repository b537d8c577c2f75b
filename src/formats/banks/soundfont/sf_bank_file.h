// The file of a SoundFont: texts, sample data and tables, written from front to end.
#pragma once

#include <vector>

#include "base/byte_sink.h"
#include "formats/banks/soundfont/sf_bank_lists.h"

namespace kv {

/// Points of silence behind each sample, for players that read ahead.
inline constexpr u32 kSfGapPoints = 46;

struct SfBankFile {
    const BankContents& contents;
    const Item& item; ///< what is saved
    std::string_view context;
    u16 major = 2, minor = 1;
    bool wide = false;                      ///< 24 bits
    std::vector<SfBankLists::Table> lead{}; ///< chunks ahead of the samples, in their list
    std::vector<SfBankLists::Table> tables{};

    /// False with the error pair set when samples can't be read, or the bank is too large for its form.
    bool write(ByteSink& sink) const;

private:
    ByteWriter texts() const;
    bool writePoints(ByteSink& sink) const;
    bool writeLowBytes(ByteSink& sink) const;
};

/// Tells what of the items the format has no place for.
void reportSfLosses(const BankContents& contents, bool wide);

} // namespace kv
