#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>

#include <KestrinProfile/Export.hpp>

namespace KestrinProfile {

/// The operations of the personalization service. The ordinal of a case is its position.
enum class ProfileOperation {
    testOperation,
    anonymousBind,
    validate,
    createProfile,
    getProfiles,
    editProfile,
    deleteProfile,
    getHistory,
    getVideoProgress,
    addVideoToHistory,
    removeVideoFromHistory,
    clearHistory,
    getFavorites,
    addFavoriteShow,
    addFavoriteShows,
    removeFavoriteShow,
    clearFavorites,
    getWatchList,
    addVideoToWatchList,
    removeFromWatchList,
    clearWatchList,
    addSearchHistory,
    deleteSearchHistory,
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

template <>
struct std::hash<KestrinProfile::ProfileOperation> {
    /// The ordinal of the case.
    [[nodiscard]] std::size_t operator()(KestrinProfile::ProfileOperation value) const noexcept {
        return static_cast<std::size_t>(value);
    }
};
