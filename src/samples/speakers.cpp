#include "samples/speakers.h"

#include <iterator>

namespace kv {
namespace {

struct Speaker {
    std::string_view name, shortName;
};
constexpr Speaker kSpeakers[] = {
    {"front-left", "l"},         {"front-right", "r"},         {"front-center", "c"},
    {"low-frequency", "lfe"},    {"back-left", "rl"},          {"back-right", "rr"},
    {"front-left-center", "cl"}, {"front-right-center", "cr"}, {"back-center", "rc"},
    {"side-left", "sl"},         {"side-right", "sr"},         {"top-center", "t"},
    {"top-front-left", "tfl"},   {"top-front-center", "tfc"},  {"top-front-right", "tfr"},
    {"top-back-left", "trl"},    {"top-back-center", "trc"},   {"top-back-right", "trr"},
};

struct Layout {
    u32 channels, mask;
};
constexpr Layout kLayouts[] = {
    {1, 0x4},   {2, 0x3},   {3, 0x7},   {4, 0x33},     {5, 0x37},     {6, 0x3F},
    {7, 0x70F}, {8, 0x63F}, {9, 0x73F}, {10, 0x2D03F}, {12, 0x2D63F},
};

} // namespace

std::string_view SpeakerName(u32 bit, bool shortName) {
    for (std::size_t i = 0; i < std::size(kSpeakers); ++i) {
        if (bit == 1U << i) return shortName ? kSpeakers[i].shortName : kSpeakers[i].name;
    }
    return shortName ? "x" : "unknown";
}

u32 DefaultChannelMask(u32 channels) {
    for (const Layout& layout : kLayouts) {
        if (layout.channels == channels) return layout.mask;
    }
    return channels >= 32 ? 0xFFFFFFFF : (1U << channels) - 1;
}

u32 NthSpeaker(u32 n, u32 mask) {
    for (u32 bit = 1; bit < 1U << std::size(kSpeakers); bit <<= 1) {
        if ((mask & bit) != 0 && n-- == 0) return bit;
    }
    return 0;
}

} // namespace kv
