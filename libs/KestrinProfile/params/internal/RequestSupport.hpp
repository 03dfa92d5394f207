#pragma once

#include <optional>
#include <string>

#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinConfigManager/TextMap.hpp>

namespace KestrinProfile::internal {

/// The bind that was given; if none was, the one that the shared configuration manager holds,
/// which may be absent too.
/// @param parent  whether to ask for the parent profile's bind or for the selected profile's
[[nodiscard]] std::optional<KestrinConfigManager::AnonymousBind> givenOrHeld(
    std::optional<KestrinConfigManager::AnonymousBind> bind, bool parent);

/// The brand of the shared configuration manager's current configuration; absent if there is no
/// configuration or it names no brand.
[[nodiscard]] std::optional<std::string> currentBrandID();

/// Sets a placeholder's value; an absent value leaves the placeholder out.
void fill(KestrinConfigManager::TextMap& mapping, const char* placeholder,
          const std::optional<std::string>& value);

/// Sets "%UXID%" to a bind's profile identifier; an absent bind leaves it out.
void fill(KestrinConfigManager::TextMap& mapping,
          const std::optional<KestrinConfigManager::AnonymousBind>& bind);

}  // namespace KestrinProfile::internal
