// Writing of DLS banks.
#pragma once

#include "base/file_context.h"

namespace kv {

class Item;

/// Sub-types of the rows for mobile devices; the others are levels from 1 to 4.
inline constexpr int kMobileDlsMinimal = -2, kMobileDlsFull = -3;

/// A bank laid out before it is written, for forms that hold one.
class DlsBankWriter {
public:
    DlsBankWriter(Item& item, int level, u32 formatWord);
    ~DlsBankWriter();
    DlsBankWriter(const DlsBankWriter&) = delete;
    DlsBankWriter& operator=(const DlsBankWriter&) = delete;

    /// Asks and tells what there is to be, and lays the bank out. False with the error pair set when it can't
    /// be written.
    bool prepare();
    /// Bytes of the whole form.
    u64 size() const;
    /// Samples go through block by block.
    bool write(ByteSink& sink) const;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

/// Writes a bank as a stream: sizes are known beforehand, samples go through block by block.
bool dls_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

} // namespace kv
