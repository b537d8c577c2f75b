#include "plugins/lv2_features.h"

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/parameters/parameters.h>
#include <lv2/state/state.h>

#include <algorithm>
#include <deque>
#include <map>
#include <mutex>
#include <string>

#include "plugins/effect_instance.h"

namespace kv {
namespace {

/// Numbers from 1 on in the order in which the URIs were asked for. Never goes away: plug-ins may ask when
/// the program ends.
class UriNumbers {
public:
    LV2_URID number(std::string_view uri) {
        const std::lock_guard lock(mutex_);
        const auto found = numbers_.find(uri);
        if (found != numbers_.end()) return found->second;
        uris_.emplace_back(uri);
        const auto number = static_cast<LV2_URID>(uris_.size());
        numbers_.emplace(uris_.back(), number);
        return number;
    }
    const char* uri(LV2_URID number) {
        const std::lock_guard lock(mutex_);
        return number > 0 && number <= uris_.size() ? uris_[number - 1].c_str() : nullptr;
    }

private:
    std::mutex mutex_;
    std::deque<std::string> uris_; ///< stay where they are when more come
    std::map<std::string_view, LV2_URID> numbers_;
};

UriNumbers& uriNumbers() {
    static UriNumbers& numbers = *new UriNumbers;
    return numbers;
}

LV2_URID mapUri(void*, const char* uri) {
    return uri ? uriNumbers().number(uri) : 0;
}
const char* unmapUri(void*, LV2_URID number) {
    return uriNumbers().uri(number);
}

LV2_URID_Map map{nullptr, mapUri};
LV2_URID_Unmap unmap{nullptr, unmapUri};
const LV2_Feature mapFeature{LV2_URID__map, &map};
const LV2_Feature unmapFeature{LV2_URID__unmap, &unmap};
// Without data: that they are listed is all. Every block has the same length, a power of 2.
const LV2_Feature boundedFeature{LV2_BUF_SIZE__boundedBlockLength, nullptr};
const LV2_Feature fixedFeature{LV2_BUF_SIZE__fixedBlockLength, nullptr};
const LV2_Feature powerOf2Feature{LV2_BUF_SIZE__powerOf2BlockLength, nullptr};
const LV2_Feature defaultStateFeature{LV2_STATE__loadDefaultState, nullptr};

constexpr std::string_view kOffered[] = {
    LV2_URID__map,
    LV2_URID__unmap,
    LV2_OPTIONS__options,
    LV2_BUF_SIZE__boundedBlockLength,
    LV2_BUF_SIZE__fixedBlockLength,
    LV2_BUF_SIZE__powerOf2BlockLength,
    LV2_STATE__loadDefaultState,
    LV2_CORE__hardRTCapable,
    LV2_CORE__inPlaceBroken, // inputs and outputs are always apart
    LV2_PARAMETERS__sampleRate,
    LV2_BUF_SIZE__minBlockLength,
    LV2_BUF_SIZE__maxBlockLength,
    LV2_BUF_SIZE__nominalBlockLength,
};

template <class T>
LV2_Options_Option option(const char* key, const char* type, const T& value) {
    return {LV2_OPTIONS_INSTANCE, 0, lv2Number(key), sizeof(T), lv2Number(type), &value};
}

} // namespace

LV2_URID lv2Number(const char* uri) {
    return uriNumbers().number(uri);
}
LV2_URID_Map& lv2Map() {
    return map;
}

bool isOfferedToLv2(std::string_view uri) {
    return std::find(std::begin(kOffered), std::end(kOffered), uri) != std::end(kOffered);
}

Lv2Features::Lv2Features(f64 sampleRate)
    : sampleRate_(static_cast<f32>(sampleRate)),
      blockLength_(kEffectBlock),
      options_{option(LV2_PARAMETERS__sampleRate, LV2_ATOM__Float, sampleRate_),
               option(LV2_BUF_SIZE__minBlockLength, LV2_ATOM__Int, blockLength_),
               option(LV2_BUF_SIZE__maxBlockLength, LV2_ATOM__Int, blockLength_),
               option(LV2_BUF_SIZE__nominalBlockLength, LV2_ATOM__Int, blockLength_),
               {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr}},
      optionsFeature_{LV2_OPTIONS__options, options_.data()},
      list_{&mapFeature,   &unmapFeature,    &optionsFeature_,     &boundedFeature,
            &fixedFeature, &powerOf2Feature, &defaultStateFeature, nullptr} {}

} // namespace kv
