#include "wizards/algorithm_table.h"

namespace kv {

std::span<const Algorithm> algorithms() {
    return midiAlgorithms();
}

} // namespace kv
