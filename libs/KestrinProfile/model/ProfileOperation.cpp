#include <KestrinProfile/model/ProfileOperation.hpp>
#include <KestrinProfile/model/internal/RawValues.hpp>

namespace KestrinProfile {

namespace {

constexpr internal::RawValues<ProfileOperation, profileOperationCount> rawValues{{
    "test-operation-do-not-use",
    "personalization-bind-anonymous",
    "personalization-validator",
    "personalization-create-profile",
    "personalization-get-profiles",
    "personalization-edit-profile",
    "personalization-delete-profile",
    "personalization-history-get",
    "personalization-get-video-history",
    "personalization-history-add-video",
    "personalization-history-delete-video",
    "personalization-history-clear",
    "personalization-favorites-get",
    "personalization-favorites-add-show",
    "personalization-favorites-add-shows",
    "personalization-favorites-delete-show",
    "personalization-favorites-clear",
    "personalization-watchlist-get",
    "personalization-watchlist-add-video",
    "personalization-watchlist-delete-video",
    "personalization-watchlist-clear",
    "personalization-searchhistory-add",
    "personalization-searchhistory-delete",
}};

}  // namespace

std::string_view rawValue(ProfileOperation operation) {
    return rawValues.of(operation);
}

std::optional<ProfileOperation> profileOperation(std::string_view rawValue) {
    return rawValues.caseOf(rawValue);
}

}  // namespace KestrinProfile
