#pragma once

#include <optional>

#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinConfigManager/TextMap.hpp>

namespace KestrinProfile {

/// The names of the request headers.
struct ProfileHeaders {
    static constexpr const char* jwt = "Authorization";
    static constexpr const char* profileID = "PXRO-PROFILE-ID";
};

/// The placeholders that the service's URL templates use.
struct ProfileMapping {
    static constexpr const char* uxid = "%UXID%";          ///< a profile identifier
    static constexpr const char* brand = "%BRANDNAME%";    ///< a brand identifier
    static constexpr const char* show = "%SHOWID%";        ///< a show identifier
    static constexpr const char* video = "%VIDEO%";        ///< a video identifier
    static constexpr const char* userName = "%USERNAME%";  ///< a profile name, percent-encoded
    static constexpr const char* search = "%SEARCH%";      ///< a search text, percent-encoded
};

/// What all request-parameter records share.
struct ProfileUtils {
    /// The headers that authorise a request: "Authorization" with "JWT " and the bind's token, and
    /// "PXRO-PROFILE-ID" with the bind's profile identifier.
    /// @param bind  absent: no headers at all, an empty map
    [[nodiscard]] static KestrinConfigManager::TextMap header(
        const std::optional<KestrinConfigManager::AnonymousBind>& bind);
};

}  // namespace KestrinProfile
