#include "wizards/loop_search.h"

#include <gmock/gmock.h>

#include <cmath>
#include <functional>
#include <random>

namespace kv {
namespace {

using Signal = std::function<f64(u32 frame)>;

f64 turn(f64 hertz, u32 frame) {
    return std::sin(2 * 3.14159265358979 * hertz * frame / 44100);
}

/// In steps of 16 bits, as most samples are.
std::vector<f32> samplesOf(const Signal& signal, u32 frames, f64 steps = 32768) {
    std::vector<f32> samples(frames);
    for (u32 i = 0; i < frames; ++i) samples[i] = static_cast<f32>(std::round(signal(i) * steps) / steps);
    return samples;
}

LoopFound find(const LoopScore& score, const LoopSearchRange& range) {
    return findLoop(score, range, [](u64, u64) { return true; });
}

/// What the search is defined by.
LoopFound findPlainly(const LoopScore& score, const LoopSearchRange& range) {
    LoopFound best{0, score.frames()};
    for (i64 end = range.high; end >= range.low; --end) {
        for (i64 start = end - range.leastLength; start >= range.leastStart; --start) {
            const f32 s = score(static_cast<u32>(start), static_cast<u32>(end));
            if (s > best.score) best = {static_cast<u32>(start), static_cast<u32>(end), s};
        }
    }
    return best;
}

/// Signals of all kinds: pure, noisy, soft, fading, with gaps.
std::vector<std::pair<const char*, Signal>> signals(std::minstd_rand& random) {
    const auto noise = [&random] { return std::uniform_real_distribution<f64>(-1, 1)(random); };
    return {
        {"sine of 100 frames", [](u32 i) { return turn(441, i); }},
        {"sine of no whole period", [](u32 i) { return 0.7 * turn(613.7, i); }},
        {"noise", [=](u32) { return noise(); }},
        {"soft noise", [=](u32) { return 0.004 * noise(); }},
        {"noise over and over",
         [=, again = std::vector<f64>()](u32 i) mutable {
             if (again.size() < 450) again.push_back(0.5 * noise());
             return again[i % 450];
         }},
        {"noise in bursts, with silence",
         [=](u32 i) { return i / 290 % 3 == 0   ? noise()
                             : i / 290 % 3 == 1 ? 0.0005 * noise()
                                                : 0; }},
        {"tone in noise", [=](u32 i) { return 0.5 * turn(440, i) + 0.1 * noise(); }},
        {"chord", [](u32 i) { return 0.3 * (turn(261.6, i) + turn(329.6, i) + turn(392.4, i)); }},
        {"fading tone in noise",
         [=](u32 i) { return std::exp(-i / 2000.0) * (0.8 * turn(1234.5, i) + 0.1 * noise()); }},
        {"tone with gaps", [](u32 i) { return i / 300 % 3 == 1 ? 0 : 0.5 * turn(700, i); }},
        {"gliding tone", [](u32 i) { return 0.9 * turn(300 + i * 0.01, i); }},
        {"offset", [=](u32 i) { return 0.5 + 0.001 * noise() + 0.1 * turn(50, i); }},
        {"one click", [](u32 i) { return i == 900 ? 1 : 0; }},
    };
}

TEST(LoopSearch, FindsWhatLookingAtAllPairsFinds) {
    std::minstd_rand random(4);
    for (const auto& [name, signal] : signals(random)) {
        for (const u32 frames : {1U, 2U, 7U, 161U, 700U, 1400U, 2401U}) {
            for (const f32 from : {0.75F, 0.0F, 1.0F}) {
                if (from == 0 && frames > 1000) continue; // takes the plain form too long
                SCOPED_TRACE(testing::Message() << name << ", " << frames << " frames from " << from);
                const LoopScore score(samplesOf(signal, frames));
                for (const f64 hertz : {0.0, 440.0}) {
                    const LoopSearchRange range = loopSearchRange(score, 44100, hertz, from);
                    const LoopFound expected = findPlainly(score, range), found = find(score, range);
                    EXPECT_EQ(found.score, expected.score);
                    EXPECT_EQ(found.start, expected.start);
                    EXPECT_EQ(found.end, expected.end);
                }
            }
        }
    }
}

TEST(LoopSearch, SinesLoopAtWholePeriods) {
    const LoopScore score(samplesOf([](u32 i) { return 0.9 * turn(441, i); }, 4000));
    const LoopSearchRange range = loopSearchRange(score, 44100, 441, 0.75F);
    EXPECT_EQ(range.low, 3000U);
    EXPECT_EQ(range.leastLength, 400U);
    const LoopFound loop = find(score, range);
    EXPECT_EQ((loop.end - loop.start) % 100, 0U);
    EXPECT_GE(loop.end - loop.start, 400U);
    // A period longer than a quarter of the wave doesn't make the loop any longer than that.
    EXPECT_EQ(loopSearchRange(score, 44100, 20, 0.75F).leastLength, 1000U);
}

TEST(LoopSearch, StopsWhenTold) {
    std::minstd_rand random(1);
    const LoopScore score(
        samplesOf([&](u32) { return std::uniform_real_distribution(-1.0, 1.0)(random); }, 2000));
    u64 calls = 0, before = 0;
    findLoop(score, loopSearchRange(score, 44100, 0, 0.5F), [&](u64 done, u64 total) {
        EXPECT_LE(before, done);
        EXPECT_LE(done, total);
        before = done;
        return ++calls < 5;
    });
    EXPECT_EQ(calls, 5U);
}

} // namespace
} // namespace kv
