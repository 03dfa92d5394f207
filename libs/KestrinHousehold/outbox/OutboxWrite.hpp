#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <KestrinHousehold/Export.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>
#include <KestrinProfile/model/UserProfileElement.hpp>

namespace KestrinHousehold {

/// One change of a profile's lists, as an `Outbox` keeps it. It holds no token.
struct KESTRIN_HOUSEHOLD_EXPORT OutboxWrite {
    std::string profileID;  ///< whose lists; it is sent under this profile
    std::string brandID;    ///< the lists of which brand; may be empty
    /// One of `addVideoToHistory`, `removeVideoFromHistory`, `clearHistory`, `addFavoriteShow`,
    /// `addFavoriteShows`, `removeFavoriteShow`, `clearFavorites`, `addVideoToWatchList`,
    /// `removeFromWatchList`, `clearWatchList`, `addSearchHistory`, `deleteSearchHistory`.
    KestrinProfile::ProfileOperation operation = KestrinProfile::ProfileOperation::testOperation;
    /// The video, the show or the search text; empty for an operation on a whole list and for
    /// `addFavoriteShows`.
    std::string itemID;
    /// What `addFavoriteShows` adds; only identifier and type are kept.
    std::vector<KestrinProfile::UserProfileElement> shows{};
    std::optional<std::int64_t> progress{};  ///< of `addVideoToHistory`, which needs it; 0 or more
    std::optional<bool> isComplete{};        ///< of `addVideoToHistory`; absent: stays as it is

    friend bool operator==(const OutboxWrite&, const OutboxWrite&) = default;
};

/// Why a write cannot be kept, for people, e.g. "the write names no profile"; absent if it can.
[[nodiscard]] KESTRIN_HOUSEHOLD_EXPORT std::optional<std::string> problemOf(
    const OutboxWrite& write);

}  // namespace KestrinHousehold
