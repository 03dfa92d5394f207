#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include <KestrinConfigManager/APIParams.hpp>
#include <KestrinHousehold/outbox/HouseholdDelivery.hpp>
#include <KestrinHousehold/outbox/OutboxError.hpp>
#include <KestrinHousehold/outbox/internal/Supersession.hpp>
#include <KestrinHousehold/session/internal/ConfiguredService.hpp>
#include <KestrinHousehold/session/internal/ProfileCall.hpp>
#include <KestrinHousehold/session/internal/SearchDeletion.hpp>
#include <KestrinProfile/params/ProfileParams.hpp>
#include <KestrinProfile/params/SearchParams.hpp>
#include <KestrinProfile/service/Profile.hpp>

namespace KestrinHousehold {

using HalvardSling::Observable;
using HalvardSling::Response;
using internal::Change;
using internal::List;
using internal::ListChange;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::APIParams;
using KestrinProfile::Profile;
using KestrinProfile::ProfileOperation;
using KestrinProfile::ProfileParams;
using KestrinProfile::SearchParams;

namespace {

ProfileParams paramsOf(const OutboxWrite& write, ListChange kind, const AnonymousBind& bind) {
    ProfileParams params(bind, write.brandID);
    if (kind.change == Change::clear) return params;
    (kind.list == List::favorites ? params.showID : params.videoID) = write.itemID;
    params.isComplete = write.isComplete;
    if (write.progress) params.progress = static_cast<std::intptr_t>(*write.progress);
    if (!write.shows.empty()) params.elements = write.shows;
    return params;
}

Observable<Response> sent(const OutboxWrite& write, ListChange kind, const AnonymousBind& bind) {
    const Profile profile;
    auto params = paramsOf(write, kind, bind);
    switch (write.operation) {
        case ProfileOperation::addVideoToHistory:
            return profile.addHistoryVideo(std::move(params));
        case ProfileOperation::removeVideoFromHistory:
            return profile.deleteVideoHistory(std::move(params));
        case ProfileOperation::clearHistory:
            return profile.clearHistory(std::move(params));
        case ProfileOperation::addFavoriteShow:
            return profile.addFavoriteShow(std::move(params));
        case ProfileOperation::addFavoriteShows:
            return profile.addFavoriteShows(std::move(params));
        case ProfileOperation::removeFavoriteShow:
            return profile.deleteFavoriteShow(std::move(params));
        case ProfileOperation::clearFavorites:
            return profile.clearFavorites(std::move(params));
        case ProfileOperation::addVideoToWatchList:
            return profile.addWatchListVideo(std::move(params));
        case ProfileOperation::removeFromWatchList:
            return profile.deleteWatchListVideo(std::move(params));
        case ProfileOperation::clearWatchList:
            return profile.clearWatchList(std::move(params));
        case ProfileOperation::addSearchHistory:
            return profile.addSearchHistory(
                SearchParams(write.itemID, KestrinProfile::Types::none, bind, write.brandID));
        default:
            return internal::deleteSearchHistory(bind, write.brandID);
    }
}

/// What `ProfileParams` says without an operation, which only `Profile` can set. `Profile` itself
/// decodes what it reads, and its records do not have the reply's Date.
class LookUpParams final : public APIParams {
  public:
    explicit LookUpParams(ProfileParams params) : params_(std::move(params)) {}

    [[nodiscard]] std::optional<KestrinConfigManager::TextMap> headers() const override {
        return params_.headers();
    }
    [[nodiscard]] std::optional<HalvardSling::JSONDictionary> dictionaryRepresentation()
        const override {
        return std::nullopt;
    }
    [[nodiscard]] std::optional<KestrinConfigManager::TextMap> URLMapping() const override {
        return params_.URLMapping();
    }
    [[nodiscard]] bool hasValidParams() const override { return true; }

  private:
    ProfileParams params_;
};

ProfileOperation lookUpOf(ListChange kind) {
    if (kind.list == List::favorites) return ProfileOperation::getFavorites;
    if (kind.list == List::watchList) return ProfileOperation::getWatchList;
    return kind.change == Change::clear ? ProfileOperation::getHistory
                                        : ProfileOperation::getVideoProgress;
}

/// Nothing is sent for an operation that changes no list.
Observable<Response> noChange(const OutboxWrite& write) {
    return rxcpp::observable<>::error<Response>(
        OutboxError(OutboxError::Case::invalidWrite, problemOf(write).value_or("")));
}

/// A call of a profile that is sent once.
template <class Request>
Observable<Response> call(const std::shared_ptr<internal::HouseholdState>& household,
                          const std::string& profileID, ProfileOperation operation,
                          Request request) {
    CallOptions options;
    options.repeats = false;
    const auto actor = std::make_shared<const internal::Actor>(
        internal::Actor{household, household->bindOf(profileID)});
    return internal::callOf<Response>(actor, std::move(options), operation, std::move(request));
}

}  // namespace

HouseholdDelivery::HouseholdDelivery(const Household& household) : household_(household.state_) {}

HouseholdDelivery::~HouseholdDelivery() = default;

Observable<Response> HouseholdDelivery::send(const OutboxWrite& write) {
    const auto kind = internal::listChangeOf(write.operation);
    if (!kind) return noChange(write);
    return call(household_, write.profileID, write.operation,
                [write, kind = *kind](const AnonymousBind& bind, const auto& /*brandID*/) {
                    return sent(write, kind, bind);
                });
}

Observable<Response> HouseholdDelivery::lookUp(const OutboxWrite& write) {
    const auto kind = internal::listChangeOf(write.operation);
    if (!kind) return noChange(write);
    const auto operation = lookUpOf(*kind);
    return call(
        household_, write.profileID, operation,
        [write, kind = *kind, operation](const AnonymousBind& bind, const auto& /*brandID*/) {
            return internal::responsesOf(operation, LookUpParams(paramsOf(write, kind, bind)));
        });
}

}  // namespace KestrinHousehold
