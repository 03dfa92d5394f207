#pragma once

#include <algorithm>
#include <string_view>
#include <utility>

#include <KestrinConfigManager/BindStore.hpp>

namespace KestrinConfigManager::internal {

/// The place of a profile's bind among others; their end if it has none.
[[nodiscard]] auto find(auto& binds, std::string_view profileID) {
    return std::ranges::find(binds, profileID, &AnonymousBind::profileID);
}

/// Adds a bind, in the place of one of the same profile.
inline void put(HeldBinds& held, AnonymousBind bind) {
    const auto former = find(held.binds, bind.profileID);
    if (former == held.binds.end())
        held.binds.push_back(std::move(bind));
    else
        *former = std::move(bind);
}

}  // namespace KestrinConfigManager::internal
