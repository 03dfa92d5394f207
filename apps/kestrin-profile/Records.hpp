#pragma once

#include <string>
#include <string_view>

#include <HalvardSling/json/JSONDictionary.hpp>

namespace KestrinProfileCLI {

/// A value as a cell of a table has it; "-" if there is none.
/// @param key  as that of a column
[[nodiscard]] std::string cellOf(const HalvardSling::JSONDictionary& record, std::string_view key);

}  // namespace KestrinProfileCLI
