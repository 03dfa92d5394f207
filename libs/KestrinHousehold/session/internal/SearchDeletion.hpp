#pragma once

#include <optional>
#include <string>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/rx/Observable.hpp>
#include <KestrinConfigManager/AnonymousBind.hpp>

namespace KestrinHousehold::internal {

/// What `KestrinProfile::Profile::deleteSearchHistory` does, for the profile of a bind instead of
/// the selected one, which may change between any two steps.
/// @param brandID  absent: the configured one
[[nodiscard]] HalvardSling::Observable<HalvardSling::Response> deleteSearchHistory(
    const KestrinConfigManager::AnonymousBind& bind, const std::optional<std::string>& brandID);

}  // namespace KestrinHousehold::internal
