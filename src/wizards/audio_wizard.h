// What a run of the audio wizard works on and remembers, apart from its window.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "wizards/algorithm.h"

namespace kv {

/// The name that stands for the algorithm of the last run.
inline constexpr std::string_view kRepeatLast = "Repeat last";

/// The waves of a run: those selected, or all when nothing or anything else is, which the user is told. The
/// range is on for a single wave with a selection. False when there is no wave at all, which is told too.
bool chooseWaves(std::span<Item* const> selected, WizardItems& items);
/// Every wave of the store. False when there is none, which the user is told.
bool chooseAllWaves(WizardItems& items);

/// Takes a range as it is typed into the fields "from" and "to". Below 0 counts as 0; for a single wave a
/// start at or beyond its end is 0, and an end beyond it is its end.
void setTypedRange(WizardItems& items, i64 from, i64 to);

/// The rows that make sense for the items. One that is picked turns the range on or off by its flags.
std::vector<const Algorithm*> offeredAlgorithms(const WizardItems& items);
void pickAlgorithm(WizardItems& items, const Algorithm& algorithm);

/// "Audio processing wizard - Adjust volume - the wave's name".
std::string wizardTitle(const WizardItems& items, const Algorithm& algorithm);

/// The values that an algorithm was last run with, else its initial ones.
AlgorithmCall lastCallOf(const Algorithm& algorithm);

/// Runs an algorithm and remembers it, its values, and the range if that is on. What fails isn't remembered.
bool runAndRemember(const AlgorithmCall& call, const WizardItems& items, std::string& text);

/// The algorithm of the last run for "Repeat last", with its values. Its range becomes the selection of the
/// first wave, limited to that, and the range of the items. Null, with the items as they are, before any run.
const Algorithm* repeatLast(WizardItems& items);

} // namespace kv
