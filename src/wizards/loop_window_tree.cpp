#include "wizards/loop_window_tree.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kv {
namespace {

constexpr u32 kWindow = LoopScore::kWindow, kHalf = kWindow / 2;
constexpr u32 kLeaf = 24;
constexpr u32 kWindowLooks = 8; // what comparing a window costs, in looks at places
constexpr u32 kLineLevels = 16; // levels in a line of the cache
constexpr f32 kFar = std::numeric_limits<f32>::infinity();

using Direction = std::array<f64, kWindow>;

f64 dot(const Direction& x, const Direction& y) {
    f64 sum = 0;
    for (u32 k = 0; k < kWindow; ++k) sum += x[k] * y[k];
    return sum;
}

/// Makes each direction one of length 1 at right angles to those ahead of it (Gram and Schmidt, twice over
/// for rounding).
void orthonormalise(std::vector<Direction>& directions) {
    for (std::size_t i = 0; i < directions.size(); ++i) {
        for (int pass = 0; pass < 2; ++pass) {
            for (std::size_t j = 0; j < i; ++j) {
                const f64 part = dot(directions[i], directions[j]);
                for (u32 k = 0; k < kWindow; ++k) directions[i][k] -= part * directions[j][k];
            }
            const f64 length = std::sqrt(dot(directions[i], directions[i]));
            // One that the others hold already adds nothing, and 0 is at right angles to all.
            for (f64& x : directions[i]) x = length > 1e-9 ? x / length : 0;
        }
    }
}

/// The product of two windows in floats, a few times as fast. Off by less than `kRoughness` times their
/// lengths.
f64 roughProduct(const f32* x, const f32* y) {
    f32 sums[16] = {};
    for (u32 k = 0; k < kWindow; k += 16) {
        for (u32 lane = 0; lane < 16; ++lane) sums[lane] += x[k + lane] * y[k + lane];
    }
    f32 sum = 0;
    for (const f32 part : sums) sum += part;
    return static_cast<f64>(sum);
}
constexpr f64 kRoughness = 2e-5;

/// Square of the greatest distance at which a window can still score as well: |u - v|^2 = 2 - 2 cos. Scores
/// are rounded to floats, places too.
f32 reachFor(f32 score) {
    constexpr f64 kScoreRounding = 3e-7, kPlaceRounding = 1e-5;
    const f64 reach = std::sqrt(2 - 2 * static_cast<f64>(score) + kScoreRounding) + kPlaceRounding;
    return static_cast<f32>(reach * reach);
}

} // namespace

void LoopFound::offer(u32 newStart, u32 newEnd, f32 newScore) {
    const bool later = newScore == score && (newEnd > end || (newEnd == end && newStart > start));
    if (newScore > score || later) *this = {newStart, newEnd, newScore};
}

struct LoopWindowTree::Query {
    const Place& place;
    f32 level;
    u32 end, lastStart;
    LoopFound& best;
    f32 reach; ///< square
    u64 looks = 0;
};

/// The principal directions of all windows, nearly: powers of the matrix of their autocorrelation.
std::vector<Direction> LoopWindowTree::directions() const {
    constexpr u32 kMostFrames = 1 << 17; // enough to tell
    constexpr int kPowers = 12;
    const u32 frames = std::min(score_.frames() - kWindow, kMostFrames);
    Direction correlation{};
    for (u32 k = 0; k < kWindow; ++k) correlation[k] = score_.product(0, k, frames);
    std::vector<Direction> found(kDirections);
    for (std::size_t i = 0; i < found.size(); ++i) {
        for (u32 k = 0; k < kWindow; ++k)
            found[i][k] = std::cos(3.14159265358979 / kWindow * (k + 0.5) * static_cast<f64>(i));
    }
    orthonormalise(found);
    for (int power = 0; power < kPowers; ++power) {
        for (Direction& direction : found) {
            Direction product{};
            for (u32 row = 0; row < kWindow; ++row) {
                for (u32 k = 0; k < kWindow; ++k)
                    product[row] += correlation[row > k ? row - k : k - row] * direction[k];
            }
            direction = product;
        }
        orthonormalise(found);
    }
    return found;
}

void LoopWindowTree::placeWindows(u32 first, u32 last) {
    constexpr u32 kBlock = 1024;
    const std::vector<Direction> axes = directions();
    const std::vector<f32>& levels = score_.levels();
    firstPlace_ = first;
    places_.resize(std::size_t{last} - first + 1);
    energies_.resize(places_.size());
    std::array<f64, kBlock> sums{}, squares{};
    std::array<f64, kBlock + kWindow> block{};
    for (u32 at = first; at <= last; at += kBlock) {
        const u32 count = std::min(kBlock, last - at + 1);
        const auto from = levels.begin() + (at - kHalf);
        std::copy(from, from + std::min<std::ptrdiff_t>(count + kWindow - 1, levels.end() - from),
                  block.begin());
        squares.fill(0);
        for (u32 i = 0; i < count; ++i)
            energies_[at - first + i] = score_.product(at + i - kHalf, at + i - kHalf, kWindow);
        for (std::size_t axis = 0; axis < axes.size(); ++axis) {
            sums.fill(0);
            for (u32 k = 0; k < kWindow; ++k) {
                const f64 weight = axes[axis][k];
                for (u32 i = 0; i < kBlock; ++i) sums[i] += weight * block[i + k];
            }
            for (u32 i = 0; i < count; ++i) {
                const f64 length = std::sqrt(energies_[at - first + i]);
                const f64 part = length > 0 ? sums[i] / length : 0;
                places_[at - first + i][axis] = static_cast<f32>(part);
                squares[i] += part * part;
            }
        }
        for (u32 i = 0; i < count; ++i)
            places_[at - first + i].back() = static_cast<f32>(std::sqrt(std::max(1 - squares[i], 0.0)));
    }
}

LoopWindowTree::LoopWindowTree(const LoopScore& score, u32 firstStart, u32 lastStart, u32 lastEnd)
    : score_(score) {
    placeWindows(firstStart, lastEnd);
    windows_.reserve(std::size_t{lastStart} - firstStart + 1);
    for (u32 start = firstStart; start <= lastStart; ++start)
        windows_.push_back({places_[start - firstPlace_], score.levels()[start], start});
    build(0, static_cast<u32>(windows_.size()));
}

u32 LoopWindowTree::build(u32 first, u32 last) {
    Node node{};
    node.least.fill(kFar);
    node.most.fill(-kFar);
    node.leastLevel = kFar;
    node.mostLevel = -kFar;
    node.firstStart = UINT32_MAX;
    node.first = first;
    node.last = last;
    for (u32 i = first; i < last; ++i) {
        const Window& window = windows_[i];
        for (std::size_t c = 0; c < kCoordinates; ++c) {
            node.least[c] = std::min(node.least[c], window.place[c]);
            node.most[c] = std::max(node.most[c], window.place[c]);
        }
        node.leastLevel = std::min(node.leastLevel, window.level);
        node.mostLevel = std::max(node.mostLevel, window.level);
        node.firstStart = std::min(node.firstStart, window.start);
    }
    const auto index = static_cast<u32>(nodes_.size());
    nodes_.push_back(node);
    if (last - first <= kLeaf) return index;

    // Where the windows differ most; levels within a few steps of each other divide as well as places do.
    constexpr f32 kLevelWeight = 0.2F / LoopScore::kMostStep;
    f32 widest = (node.mostLevel - node.leastLevel) * kLevelWeight;
    std::size_t axis = kCoordinates;
    for (std::size_t c = 0; c < kCoordinates; ++c) {
        if (node.most[c] - node.least[c] <= widest) continue;
        widest = node.most[c] - node.least[c];
        axis = c;
    }
    const auto key = [&](const Window& w) { return axis == kCoordinates ? w.level : w.place[axis]; };
    const u32 middle = first + (last - first) / 2;
    const auto at = [&](u32 i) { return windows_.begin() + static_cast<std::ptrdiff_t>(i); };
    std::nth_element(at(first), at(middle), at(last),
                     [&](const Window& x, const Window& y) { return key(x) < key(y); });
    build(first, middle);
    const u32 right = build(middle, last);
    nodes_[index].right = right;
    return index;
}

/// The square of the least distance of anything in the box; infinite if nothing in it will do.
f32 LoopWindowTree::distance(const Node& node, const Query& query) const {
    constexpr f32 kStep = LoopScore::kMostStep * 1.001F; // the score makes the exact test
    if (node.firstStart > query.lastStart || query.level < node.leastLevel - kStep ||
        query.level > node.mostLevel + kStep)
        return kFar;
    f32 sum = 0;
    for (std::size_t c = 0; c < kCoordinates; ++c) {
        const f32 off = std::max({node.least[c] - query.place[c], query.place[c] - node.most[c], 0.0F});
        sum += off * off;
    }
    return sum;
}

void LoopWindowTree::visit(u32 index, Query& query) const {
    const Node& node = nodes_[index];
    if (node.right != 0) {
        query.looks += 2;
        u32 near = index + 1, far = node.right;
        f32 nearDistance = distance(nodes_[near], query), farDistance = distance(nodes_[far], query);
        if (farDistance < nearDistance) {
            std::swap(near, far);
            std::swap(nearDistance, farDistance);
        }
        if (nearDistance <= query.reach) visit(near, query);
        if (farDistance <= query.reach) visit(far, query);
        return;
    }
    // All of a leaf's windows are asked for before any is looked at: they stand all over the memory.
    std::array<u32, kLeaf> chosen{};
    u32 count = 0;
    for (u32 i = node.first; i < node.last; ++i) {
        const Window& window = windows_[i];
        if (window.start > query.lastStart || std::abs(window.level - query.level) > LoopScore::kMostStep)
            continue;
        f32 sum = 0;
        for (std::size_t c = 0; c < kCoordinates; ++c) {
            const f32 off = window.place[c] - query.place[c];
            sum += off * off;
        }
        if (sum > query.reach) continue;
        chosen[count++] = window.start;
        for (u32 k = 0; k < kWindow; k += kLineLevels)
            __builtin_prefetch(score_.levels().data() + (window.start - kHalf + k));
    }
    for (u32 i = 0; i < count; ++i) compare(chosen[i], query);
    query.looks += node.last - node.first + count * kWindowLooks;
}

void LoopWindowTree::compare(u32 start, Query& query) const {
    const f64 e0 = energies_[start - firstPlace_], e1 = energies_[query.end - firstPlace_];
    if (!(e0 > 0) || !(e1 > 0)) return;
    const f32 *x = score_.levels().data() + (start - kHalf),
              *y = score_.levels().data() + (query.end - kHalf);
    if (roughProduct(x, y) < (static_cast<f64>(query.best.score) - kRoughness) * std::sqrt(e0 * e1)) return;
    const f64 product = score_.product(start - kHalf, query.end - kHalf, kWindow);
    query.best.offer(start, query.end, LoopScore::correlation(product, e0, e1));
    query.reach = reachFor(query.best.score);
}

u64 LoopWindowTree::search(u32 end, u32 lastStart, LoopFound& best) const {
    Query query{places_[end - firstPlace_], score_.levels()[end], end, lastStart, best, reachFor(best.score)};
    if (distance(nodes_.front(), query) <= query.reach) visit(0, query);
    return query.looks;
}

} // namespace kv
