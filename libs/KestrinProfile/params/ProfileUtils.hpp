#pragma once

#include <optional>

#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinConfigManager/TextMap.hpp>
#include <KestrinProfile/Export.hpp>
#include <KestrinProfile/model/ProfileMapping.hpp>

namespace KestrinProfile {

/// The names of the request headers.
struct ProfileHeaders {
    static constexpr const char* jwt = "Authorization";          ///< carries the bind's token
    static constexpr const char* profileID = "PXRO-PROFILE-ID";  ///< and this its profile
};

/// What all request-parameter records share.
struct KESTRIN_PROFILE_EXPORT ProfileUtils {
    /// The headers that authorise a request: "Authorization" with "JWT " and the bind's token, and
    /// "PXRO-PROFILE-ID" with the bind's profile identifier.
    /// @param bind  absent: no headers at all, an empty map
    [[nodiscard]] static KestrinConfigManager::TextMap header(
        const std::optional<KestrinConfigManager::AnonymousBind>& bind);
};

}  // namespace KestrinProfile
