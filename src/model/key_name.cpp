#include "model/key_name.h"

#include <cmath>

#include "model/workspace.h"

namespace kv {
namespace {
constexpr f64 kKey0Hz = 8.17579891565;
}

std::string KeyName(int key, const AppSettings& settings) {
    constexpr std::string_view kNotes[] = {"C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B"};
    if (key < 0 || key > 127) return "-";
    if (!settings.app.bShowNoteNames) return std::to_string(key);
    std::string name(kNotes[key % 12]);
    return name += std::to_string(settings.app.cOctMidC - 5 + key / 12);
}

std::string KeyName(int key) {
    return KeyName(key, settings());
}

f64 keyToFrequency(f64 key) {
    return kKey0Hz * std::exp2(key / 12);
}
f64 frequencyToKey(f64 hz) {
    return 12 * std::log2(hz / kKey0Hz);
}

} // namespace kv
