#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include <KestrinProfile/model/ProfileMapping.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>
#include <internal/Table.hpp>

namespace KestrinProfile::internal {

/// All that the library knows about an operation of the service.
struct OperationRow {
    /// Which record carries the parameters.
    enum class Record { none, bind, list, search, user };

    /// What the request does to what the service keeps.
    enum class Effect { read, write, removal };

    /// What the body is made of.
    enum class Body {
        none,
        profileID,
        searchMark,    ///< the same for every search
        type,          ///< the content kind; no body without one
        watchedVideo,  ///< completion, content kind and progress, whichever are present
        elements,      ///< entries; no body without a list of them
        user,          ///< a user; no body without one
    };

    /// What has to be present beside the bind.
    enum class Need {
        nothing,
        userName,  ///< and not empty
        video,
        watchedVideo,  ///< a video, and a progress that is not negative
        show,
        elements,  ///< at least one
        user,
        identifiedUser,  ///< with a profile identifier, which the URL then carries, not the bind's
    };

    ProfileOperation operation;
    std::string_view rawValue;
    Record record;
    Effect effect;
    Body body;
    Need need;
    /// The placeholder without which the request would not say what it is about, as neither headers
    /// nor body do; empty if there is none. (Headers say whose list is meant.)
    std::string_view placeholder = {};
};

/// The one table from which names are converted, the records answer and configurations are checked.
inline constexpr auto operationTable = [] {
    using enum ProfileOperation;
    using R = OperationRow::Record;
    using E = OperationRow::Effect;
    using B = OperationRow::Body;
    using N = OperationRow::Need;
    using M = ProfileMapping;
    // clang-format off
    return std::array<OperationRow, profileOperationCount>{{
        {testOperation, "test-operation-do-not-use", R::none, E::read, B::none, N::nothing},
        {anonymousBind, "personalization-bind-anonymous", R::bind, E::write, B::profileID, N::nothing},
        {validate, "personalization-validator", R::list, E::read, B::none, N::userName, M::userName},
        {createProfile, "personalization-create-profile", R::user, E::write, B::user, N::user},
        {getProfiles, "personalization-get-profiles", R::user, E::read, B::none, N::nothing},
        {editProfile, "personalization-edit-profile", R::user, E::write, B::user, N::identifiedUser, M::uxid},
        {deleteProfile, "personalization-delete-profile", R::user, E::removal, B::none, N::identifiedUser, M::uxid},
        {getHistory, "personalization-history-get", R::list, E::read, B::none, N::nothing},
        {getVideoProgress, "personalization-get-video-history", R::list, E::read, B::none, N::video, M::video},
        {addVideoToHistory, "personalization-history-add-video", R::list, E::write, B::watchedVideo, N::watchedVideo, M::video},
        {removeVideoFromHistory, "personalization-history-delete-video", R::list, E::removal, B::none, N::video, M::video},
        {clearHistory, "personalization-history-clear", R::list, E::removal, B::none, N::nothing},
        {getFavorites, "personalization-favorites-get", R::list, E::read, B::none, N::nothing},
        {addFavoriteShow, "personalization-favorites-add-show", R::list, E::write, B::type, N::show, M::show},
        {addFavoriteShows, "personalization-favorites-add-shows", R::list, E::write, B::elements, N::elements},
        {removeFavoriteShow, "personalization-favorites-delete-show", R::list, E::removal, B::none, N::show, M::show},
        {clearFavorites, "personalization-favorites-clear", R::list, E::removal, B::none, N::nothing},
        {getWatchList, "personalization-watchlist-get", R::list, E::read, B::none, N::nothing},
        {addVideoToWatchList, "personalization-watchlist-add-video", R::list, E::write, B::type, N::video, M::video},
        {removeFromWatchList, "personalization-watchlist-delete-video", R::list, E::removal, B::none, N::video, M::video},
        {clearWatchList, "personalization-watchlist-clear", R::list, E::removal, B::none, N::nothing},
        {addSearchHistory, "personalization-searchhistory-add", R::search, E::write, B::searchMark, N::nothing, M::search},
        {deleteSearchHistory, "personalization-searchhistory-delete", R::search, E::removal, B::searchMark, N::nothing, M::brand},
    }};
    // clang-format on
}();

static_assert(KestrinInternal::isInOrder(operationTable, &OperationRow::operation));

/// The row of an operation; of an absent one, the row of an operation without body and need.
[[nodiscard]] constexpr const OperationRow& rowOf(std::optional<ProfileOperation> operation) {
    return operationTable.at(
        static_cast<std::size_t>(operation.value_or(ProfileOperation::testOperation)));
}

}  // namespace KestrinProfile::internal
