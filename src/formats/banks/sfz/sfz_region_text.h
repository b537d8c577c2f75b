// A region as lines of opcodes.
#pragma once

#include <string>
#include <string_view>

namespace kv {

struct Articulation;
class Region;
class Wave;

/// What of a region stands elsewhere.
struct SfzRegionContext {
    std::string_view path; ///< of the sample
    const Wave& wave;
    const Articulation& articulation; ///< that the region sounds with
    bool alone;                       ///< the only region of its layer
    int sequenceLength = 0;           ///< layers that take turns; 0: none do
    int sequencePosition = 0;         ///< from 1
};

/// The lines behind the header of a region, each with its line end.
std::string sfzRegionText(const Region& region, const SfzRegionContext& context);

} // namespace kv
