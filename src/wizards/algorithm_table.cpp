#include "wizards/algorithm_table.h"

namespace kv {

std::span<const Algorithm> algorithms() {
    static const std::vector<Algorithm> kAll = [] {
        std::vector<Algorithm> all;
        for (const auto part : {audioAlgorithms(), midiAlgorithms()})
            all.insert(all.end(), part.begin(), part.end());
        return all;
    }();
    return kAll;
}

} // namespace kv
