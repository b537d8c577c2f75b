// Names and frequencies of MIDI keys.
#pragma once

#include <string>

#include "base/integers.h"

namespace kv {

struct AppSettings;

/// "C4" or "60" by the settings' choice; "-" above 127.
std::string KeyName(int key, const AppSettings& settings);
/// The same with the current workspace's settings.
std::string KeyName(int key);

/// Hz, in equal temperament with A4 = 440 Hz.
f64 keyToFrequency(f64 key);
/// The inverse; `hz` is above 0.
f64 frequencyToKey(f64 hz);

} // namespace kv
