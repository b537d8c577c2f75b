// What is offered to LV2 plug-ins: numbers for URIs, and as options the sample rate and the length of blocks.
#pragma once

#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>

#include <array>
#include <string_view>

#include "base/integers.h"

namespace kv {

/// The number of a URI, which it keeps as long as the program runs.
LV2_URID lv2Number(const char* uri);
/// What gives plug-ins these numbers.
LV2_URID_Map& lv2Map();

/// A feature that a plug-in may require, or an option that it may.
bool isOfferedToLv2(std::string_view uri);

/// The features of one instance. Plug-ins keep pointers into it.
class Lv2Features {
public:
    explicit Lv2Features(f64 sampleRate);
    Lv2Features(const Lv2Features&) = delete;
    Lv2Features& operator=(const Lv2Features&) = delete;

    const LV2_Feature* const* list() const { return list_.data(); }

private:
    f32 sampleRate_;
    i32 blockLength_;
    std::array<LV2_Options_Option, 5> options_;
    LV2_Feature optionsFeature_;
    std::array<const LV2_Feature*, 8> list_;
};

} // namespace kv
