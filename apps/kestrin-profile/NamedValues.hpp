#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace KestrinProfileCLI {

/// Values by their names.
using NamedValues = std::map<std::string, std::string, std::less<>>;

/// What is typed as NAME=VALUE, each once.
/// @param taker   what takes them, for messages
/// @param known   the names that there are
/// @param advice  where they are listed
/// @throws CommandError if one is something else
[[nodiscard]] NamedValues namedValuesOf(const std::vector<std::string>& words,
                                        std::string_view taker,
                                        std::span<const std::string_view> known,
                                        const std::string& advice);

}  // namespace KestrinProfileCLI
