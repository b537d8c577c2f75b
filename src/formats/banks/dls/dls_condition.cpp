// Document: "Downloadable Sounds Level 2.2" (MIDI Manufacturers Association, 2006), conditional chunks.
#include "formats/banks/dls/dls_condition.h"

#include <algorithm>
#include <array>

namespace kv {
namespace {

/// What a player can be asked, with our answers.
struct Query {
    u32 first;
    u16 second, third;
    u64 rest; ///< the eight bytes behind, first one highest
    u32 answer;
};
constexpr u64 kLevel1Ids = 0xA7600000F875AC12, kMakerIds = 0xA1EF00600833DBD8;
constexpr Query kQueries[] = {
    {0x178F2F24, 0xC364, 0x11D1, kLevel1Ids, 0},             // GM in hardware
    {0x178F2F25, 0xC364, 0x11D1, kLevel1Ids, 0},             // GS in hardware
    {0x178F2F26, 0xC364, 0x11D1, kLevel1Ids, 0},             // XG in hardware
    {0x178F2F27, 0xC364, 0x11D1, kLevel1Ids, 1},             // plays level 1
    {0x178F2F28, 0xC364, 0x11D1, kLevel1Ids, 0x7FFFFFFF},    // sample memory in bytes
    {0xF14599E5, 0x4689, 0x11D2, 0xAFA600AA0024D8B6, 1},     // plays level 2
    {0xB03E1181, 0x8095, 0x11D2, kMakerIds, 0},              // maker
    {0xB03E1182, 0x8095, 0x11D2, kMakerIds, 0},              // product
    {0x2A91F713, 0xA4BF, 0x11D2, 0xBBDF00600833DBD8, 48000}, // playback rate in Hz
};

const Query* readQuery(ByteCursor& in) {
    const u32 first = in.u32le();
    const u16 second = in.u16le(), third = in.u16le();
    const u64 rest = in.u64be();
    const auto* row = std::ranges::find_if(kQueries, [&](const Query& q) {
        return q.first == first && q.second == second && q.third == third && q.rest == rest;
    });
    return row == std::end(kQueries) ? nullptr : row;
}

enum Operator : u16 { kNot = 0x0F, kConst = 0x10, kQuery = 0x11, kSupported = 0x12 };

/// Operators 1 to 14, of the top word x and the one below, y.
using Binary = u32 (*)(u32 x, u32 y);
constexpr Binary kBinary[] = {
    [](u32 x, u32 y) { return x & y; },
    [](u32 x, u32 y) { return x | y; },
    [](u32 x, u32 y) { return x ^ y; },
    [](u32 x, u32 y) { return x + y; },
    [](u32 x, u32 y) { return x - y; },
    [](u32 x, u32 y) { return x * y; },
    [](u32 x, u32 y) { return y == 0 ? 0 : x / y; },
    [](u32 x, u32 y) { return u32{x != 0 && y != 0}; },
    [](u32 x, u32 y) { return u32{x != 0 || y != 0}; },
    [](u32 x, u32 y) { return u32{x < y}; },
    [](u32 x, u32 y) { return u32{x <= y}; },
    [](u32 x, u32 y) { return u32{x > y}; },
    [](u32 x, u32 y) { return u32{x >= y}; },
    [](u32 x, u32 y) { return u32{x == y}; },
};

class Stack {
public:
    void push(u32 word) {
        if (depth_ == words_.size())
            ok_ = false;
        else
            words_[depth_++] = word;
    }
    u32 pop() {
        if (depth_ == 0) {
            ok_ = false;
            return 0;
        }
        return words_[--depth_];
    }
    void fail() { ok_ = false; }
    bool ok() const { return ok_; }
    bool empty() const { return depth_ == 0; }

private:
    std::array<u32, 20> words_{};
    std::size_t depth_ = 0;
    bool ok_ = true;
};

void step(u16 code, ByteCursor& in, Stack& stack) {
    if (code >= 1 && code <= std::size(kBinary)) {
        const u32 x = stack.pop(), y = stack.pop();
        return stack.push(kBinary[code - 1](x, y));
    }
    switch (code) {
        case kNot:
            return stack.push(u32{stack.pop() == 0});
        case kConst:
            return stack.push(in.u32le());
        case kQuery: {
            const Query* query = readQuery(in);
            return stack.push(query ? query->answer : 0);
        }
        case kSupported:
            return stack.push(u32{readQuery(in) != nullptr});
        default:
            stack.fail();
    }
}

} // namespace

bool dlsConditionHolds(ByteSpan program) {
    ByteCursor in(program);
    Stack stack;
    while (in.left() > 0) {
        const u16 code = in.u16le();
        if (in.ok()) step(code, in, stack);
        if (!in.ok() || !stack.ok()) return true;
    }
    return stack.empty() || stack.pop() != 0;
}

} // namespace kv
