#pragma once

#include <array>
#include <string_view>

namespace KestrinConfigManager::internal {

/// The names of the body forms in a configuration file, in the order of `BodyForm`.
inline constexpr std::array<std::string_view, 4> bodyFormNames{"automatic", "none", "json", "form"};

}  // namespace KestrinConfigManager::internal
