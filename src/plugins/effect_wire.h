// Descriptions of effects as they come through a pipe.
#pragma once

#include <optional>

#include "plugins/effect_info.h"

namespace kv {

inline constexpr char kFieldEnd = '\x1F', kRecordEnd = '\x1E'; ///< the control characters meant for it

/// A text without control characters, as UTF-8.
std::string cleanText(std::string_view text);

/// A LADSPA effect as fields; without the end of the record.
std::string packEffect(const EffectInfo& effect);
/// Nothing when fields are missing or wrong.
std::optional<EffectInfo> unpackEffect(std::string_view record);

} // namespace kv
