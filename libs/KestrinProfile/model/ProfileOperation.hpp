#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>

#include <KestrinProfile/Export.hpp>

namespace KestrinProfile {

/// The operations of the personalization service. The ordinal of a case is its position.
enum class ProfileOperation {
    testOperation,           ///< no operation of the service's: for tests
    anonymousBind,           ///< obtains a profile's bind
    validate,                ///< asks whether a name may be given to a profile
    createProfile,           ///< creates a profile
    getProfiles,             ///< lists the household's profiles
    editProfile,             ///< changes a profile's name, avatar, group or default mark
    deleteProfile,           ///< deletes a profile with its lists
    getHistory,              ///< the viewing history
    getVideoProgress,        ///< the history's entry of one video
    addVideoToHistory,       ///< records how far a video was watched
    removeVideoFromHistory,  ///< removes a video from the history
    clearHistory,            ///< empties the history
    getFavorites,            ///< the favourite shows
    addFavoriteShow,         ///< adds a favourite show
    addFavoriteShows,        ///< adds several
    removeFavoriteShow,      ///< removes one
    clearFavorites,          ///< removes all
    getWatchList,            ///< the videos to watch
    addVideoToWatchList,     ///< adds a video to them
    removeFromWatchList,     ///< removes one
    clearWatchList,          ///< removes all
    addSearchHistory,        ///< records a search text
    deleteSearchHistory,     ///< deletes all of a brand
};

/// How many operations there are.
inline constexpr std::size_t profileOperationCount =
    static_cast<std::size_t>(ProfileOperation::deleteSearchHistory) + 1;

/// The service's name of an operation, under which the configuration knows it, e.g.
/// "personalization-history-get". The names follow no one pattern; they are the service's.
[[nodiscard]] KESTRIN_PROFILE_EXPORT std::string_view rawValue(ProfileOperation operation);

/// The operation with exactly this name; absent for any other text.
[[nodiscard]] KESTRIN_PROFILE_EXPORT std::optional<ProfileOperation> profileOperation(
    std::string_view rawValue);

}  // namespace KestrinProfile

/// Operations as keys.
template <>
struct std::hash<KestrinProfile::ProfileOperation> {
    /// The ordinal of the case.
    [[nodiscard]] std::size_t operator()(KestrinProfile::ProfileOperation value) const noexcept {
        return static_cast<std::size_t>(value);
    }
};
