// Telling what a DLS bank has no place for.
#pragma once

#include "base/integers.h"

namespace kv {

class BankContents;

/// Notes as lost what of the items a file of the level can't hold: once for each instrument and field.
void reportDlsLosses(const BankContents& contents, int level, u32 formatWord);

} // namespace kv
