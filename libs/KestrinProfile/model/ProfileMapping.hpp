#pragma once

namespace KestrinProfile {

/// The placeholders that the service's URL templates use.
struct ProfileMapping {
    static constexpr const char* uxid = "%UXID%";          ///< a profile identifier
    static constexpr const char* brand = "%BRANDNAME%";    ///< a brand identifier
    static constexpr const char* show = "%SHOWID%";        ///< a show identifier
    static constexpr const char* video = "%VIDEO%";        ///< a video identifier
    static constexpr const char* userName = "%USERNAME%";  ///< a profile name, percent-encoded
    static constexpr const char* search = "%SEARCH%";      ///< a search text, percent-encoded
};

}  // namespace KestrinProfile
