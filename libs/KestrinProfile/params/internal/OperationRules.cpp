#include <array>
#include <cstddef>

#include <KestrinProfile/params/internal/OperationRules.hpp>

namespace KestrinProfile::internal {

namespace {

using enum ProfileOperation;
using Body = OperationRules::Body;
using Need = OperationRules::Need;

constexpr std::array<OperationRules, profileOperationCount> table{{
    {testOperation, Body::none, Need::nothing},
    {anonymousBind, Body::none, Need::nothing},
    {validate, Body::none, Need::userName},
    {createProfile, Body::user, Need::user},
    {getProfiles, Body::none, Need::nothing},
    {editProfile, Body::user, Need::identifiedUser},
    {deleteProfile, Body::none, Need::identifiedUser},
    {getHistory, Body::none, Need::nothing},
    {getVideoProgress, Body::none, Need::video},
    {addVideoToHistory, Body::watchedVideo, Need::watchedVideo},
    {removeVideoFromHistory, Body::none, Need::video},
    {clearHistory, Body::none, Need::nothing},
    {getFavorites, Body::none, Need::nothing},
    {addFavoriteShow, Body::type, Need::show},
    {addFavoriteShows, Body::elements, Need::elements},
    {removeFavoriteShow, Body::none, Need::show},
    {clearFavorites, Body::none, Need::nothing},
    {getWatchList, Body::none, Need::nothing},
    {addVideoToWatchList, Body::type, Need::video},
    {removeFromWatchList, Body::none, Need::video},
    {clearWatchList, Body::none, Need::nothing},
    {addSearchHistory, Body::none, Need::nothing},
    {deleteSearchHistory, Body::none, Need::nothing},
}};

constexpr bool isInOrder() {
    for (std::size_t ordinal = 0; ordinal < table.size(); ++ordinal)
        if (static_cast<std::size_t>(table[ordinal].operation) != ordinal) return false;
    return true;
}
static_assert(isInOrder());

}  // namespace

const OperationRules& rules(std::optional<ProfileOperation> operation) {
    // The first row stands in for an absent operation: it has no body and needs nothing.
    return table.at(static_cast<std::size_t>(operation.value_or(testOperation)));
}

}  // namespace KestrinProfile::internal
