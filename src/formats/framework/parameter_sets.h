// Parameter sets by name: what outside machines and formats can do.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "model/parameter_set.h"

namespace kv {

inline constexpr std::string_view kCustomSet = "Custom set";

std::size_t namedParameterSets();
std::string_view parameterSetName(std::size_t index);
/// Of the set with these very switches, or "Custom set".
std::string_view parameterSetName(const ParameterSet& set);

/// The switches by index as digits 0 and 1.
std::string parameterSetText(const ParameterSet& set);
/// By name, ignoring case, or from digits; nothing for any other text.
std::optional<ParameterSet> parameterSetOf(std::string_view text);

} // namespace kv
