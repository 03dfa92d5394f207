#include <utility>

#include <KestrinHousehold/outbox/LaterSession.hpp>
#include <KestrinProfile/params/ProfileParams.hpp>

namespace KestrinHousehold {

using KestrinProfile::ProfileOperation;
using Kept = LaterSession::Kept;

LaterSession::LaterSession(const ProfileSession& session, std::shared_ptr<Outbox> outbox)
    : outbox_(std::move(outbox)),
      profileID_(session.profileID()),
      brandID_(session.options().brandID.value_or(
          KestrinProfile::ProfileParams().brandID.value_or(std::string()))) {}

OutboxWrite LaterSession::write(ProfileOperation operation, std::string itemID) const {
    return {profileID_, brandID_, operation, std::move(itemID)};
}

Kept LaterSession::addHistoryVideo(std::string videoID, std::chrono::seconds position,
                                   std::optional<bool> isComplete) const {
    auto made = write(ProfileOperation::addVideoToHistory, std::move(videoID));
    made.progress = position.count();
    made.isComplete = isComplete;
    return outbox_->add(std::move(made));
}

Kept LaterSession::addFavoriteShows(std::vector<KestrinProfile::UserProfileElement> shows) const {
    auto made = write(ProfileOperation::addFavoriteShows);
    made.shows = std::move(shows);
    return outbox_->add(std::move(made));
}

Kept LaterSession::deleteVideoHistory(std::string videoID) const {
    return outbox_->add(write(ProfileOperation::removeVideoFromHistory, std::move(videoID)));
}

Kept LaterSession::clearHistory() const {
    return outbox_->add(write(ProfileOperation::clearHistory));
}

Kept LaterSession::addFavoriteShow(std::string showID) const {
    return outbox_->add(write(ProfileOperation::addFavoriteShow, std::move(showID)));
}

Kept LaterSession::deleteFavoriteShow(std::string showID) const {
    return outbox_->add(write(ProfileOperation::removeFavoriteShow, std::move(showID)));
}

Kept LaterSession::clearFavorites() const {
    return outbox_->add(write(ProfileOperation::clearFavorites));
}

Kept LaterSession::addWatchListVideo(std::string videoID) const {
    return outbox_->add(write(ProfileOperation::addVideoToWatchList, std::move(videoID)));
}

Kept LaterSession::deleteWatchListVideo(std::string videoID) const {
    return outbox_->add(write(ProfileOperation::removeFromWatchList, std::move(videoID)));
}

Kept LaterSession::clearWatchList() const {
    return outbox_->add(write(ProfileOperation::clearWatchList));
}

Kept LaterSession::addSearchHistory(std::string search) const {
    return outbox_->add(write(ProfileOperation::addSearchHistory, std::move(search)));
}

Kept LaterSession::deleteSearchHistory() const {
    return outbox_->add(write(ProfileOperation::deleteSearchHistory));
}

}  // namespace KestrinHousehold
