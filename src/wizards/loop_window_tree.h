// The stretches around all possible loop starts, so that those like the one around a loop end are found
// without looking at all.
#pragma once

#include <array>
#include <vector>

#include "wizards/loop_score.h"

namespace kv {

/// A loop and its score.
struct LoopFound {
    u32 start = 0, end = 0;
    f32 score = 1e-32F;
    /// Takes a better one; of equal ones that with the later end, then with the later start.
    void offer(u32 start, u32 end, f32 score);
};

/// Scores are cosines of the angle between windows, seen as vectors of length 1: the better the score, the
/// nearer the vectors. A k-d tree keeps a few coordinates of each, along the directions in which the sound
/// moves most, and the length of what those leave over. Distances in these coordinates never exceed the true
/// ones, so boxes that are further away than the best score allows hold nothing better.
class LoopWindowTree {
public:
    /// For starts from `firstStart` to `lastStart`. Windows of starts and ends must lie within the sound.
    LoopWindowTree(const LoopScore& score, u32 firstStart, u32 lastStart, u32 lastEnd);

    /// Offers to `best` all starts up to `lastStart` that may score better than it with `end`, or as well.
    /// Answers how many windows and boxes it looked at.
    u64 search(u32 end, u32 lastStart, LoopFound& best) const;

private:
    static constexpr std::size_t kDirections = 7;
    static constexpr std::size_t kCoordinates = kDirections + 1; ///< with the length of the rest
    using Place = std::array<f32, kCoordinates>;
    struct Window {
        Place place;
        f32 level; ///< of the frame at the loop's end
        u32 start;
    };
    struct Node {
        Place least, most;
        f32 leastLevel, mostLevel;
        u32 firstStart;
        u32 first, last; ///< windows
        u32 right;       ///< the left child follows its parent; 0: none
    };
    struct Query;

    std::vector<std::array<f64, LoopScore::kWindow>> directions() const;
    void placeWindows(u32 first, u32 last);
    u32 build(u32 first, u32 last);
    f32 distance(const Node& node, const Query& query) const;
    void visit(u32 index, Query& query) const;
    void compare(u32 start, Query& query) const;

    const LoopScore& score_;
    u32 firstPlace_ = 0;
    std::vector<Place> places_; ///< by frame in the middle of the window, from `firstPlace_` on
    std::vector<f64> energies_; ///< likewise: sums of squares
    std::vector<Window> windows_;
    std::vector<Node> nodes_;
};

} // namespace kv
