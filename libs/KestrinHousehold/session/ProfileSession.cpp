#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

#include <rxcpp/operators/rx-tap.hpp>

#include <KestrinHousehold/session/ProfileSession.hpp>
#include <KestrinHousehold/session/internal/Forbidden.hpp>
#include <KestrinHousehold/session/internal/ProfileCall.hpp>
#include <KestrinHousehold/session/internal/SearchDeletion.hpp>
#include <KestrinProfile/service/Profile.hpp>

namespace KestrinHousehold {

using HalvardSling::Observable;
using HalvardSling::Response;
using KestrinConfigManager::AnonymousBind;
using KestrinProfile::Profile;
using KestrinProfile::ProfileOperation;
using KestrinProfile::ProfileParams;
using KestrinProfile::SearchParams;
using KestrinProfile::User;
using KestrinProfile::UserParams;
using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;

namespace {

using Brand = std::optional<std::string>;

/// What an operation on a list is about.
struct ListFields {
    std::optional<std::string> videoID{};
    std::optional<std::string> showID{};
    std::optional<std::string> userName{};
    std::optional<std::intptr_t> progress{};
    std::optional<bool> isComplete{};
    std::optional<std::vector<UserProfileElement>> elements{};
};

template <class T>
struct ListRequest {
    Observable<T> (Profile::*method)(ProfileParams) const;
    ListFields fields;

    Observable<T> operator()(const AnonymousBind& bind, const Brand& brandID) const {
        ProfileParams params = brandID ? ProfileParams(bind, brandID) : ProfileParams(bind);
        params.videoID = fields.videoID;
        params.showID = fields.showID;
        params.userName = fields.userName;
        params.progress = fields.progress;
        params.isComplete = fields.isComplete;
        params.elements = fields.elements;
        return (Profile().*method)(std::move(params));
    }
};

template <class T>
struct UserRequest {
    Observable<T> (Profile::*method)(UserParams) const;
    User user;

    Observable<T> operator()(const AnonymousBind& bind, const Brand& /*brandID*/) const {
        return (Profile().*method)(UserParams(bind, user));
    }
};

template <class T>
Observable<T> callList(const std::shared_ptr<const internal::Actor>& actor,
                       const CallOptions& options, ProfileOperation operation,
                       Observable<T> (Profile::*method)(ProfileParams) const,
                       ListFields fields = {}) {
    return internal::callOf<T>(actor, options, operation,
                               ListRequest<T>{method, std::move(fields)});
}

std::intptr_t wholeSeconds(std::chrono::seconds time) {
    using Limits = std::numeric_limits<std::intptr_t>;
    return static_cast<std::intptr_t>(
        std::clamp<std::int64_t>(time.count(), Limits::min(), Limits::max()));
}

ListFields video(std::string videoID) {
    ListFields fields;
    fields.videoID = std::move(videoID);
    return fields;
}

ListFields show(std::string showID) {
    ListFields fields;
    fields.showID = std::move(showID);
    return fields;
}

}  // namespace

ProfileSession::ProfileSession(std::shared_ptr<const internal::Actor> actor)
    : actor_(std::move(actor)) {}

const std::string& ProfileSession::profileID() const noexcept {
    return actor_->bind->profileID();
}

ProfileSession ProfileSession::with(CallOptions options) const {
    ProfileSession session(actor_);
    session.options_ = std::move(options);
    return session;
}

ProfileSession ProfileSession::withoutRepeats() const {
    ProfileSession session = *this;
    session.options_.repeats = false;
    return session;
}

ProfileSession ProfileSession::withDeadline(std::chrono::nanoseconds deadline) const {
    ProfileSession session = *this;
    session.options_.deadline = deadline;
    return session;
}

Observable<AnonymousBind> ProfileSession::bind() const {
    return internal::callOf<AnonymousBind>(actor_, options_, ProfileOperation::anonymousBind,
                                           [](const AnonymousBind& bind, const Brand& /*brandID*/) {
                                               return rxcpp::observable<>::just(bind);
                                           });
}

Observable<AnonymousBind> ProfileSession::renewBind() const {
    return rxcpp::observable<>::create<AnonymousBind>(
        [session = *this](const rxcpp::subscriber<AnonymousBind>& subscriber) {
            session.actor_->bind->giveUp();
            session.bind().subscribe(subscriber);
        });
}

Observable<Response> ProfileSession::validateProfileName(std::string name) const {
    ListFields fields;
    fields.userName = std::move(name);
    return callList(actor_, options_, ProfileOperation::validate, &Profile::validateProfileName,
                    std::move(fields));
}

Observable<User> ProfileSession::createProfile(User user) const {
    return internal::callOf<User>(actor_, options_, ProfileOperation::createProfile,
                                  UserRequest<User>{&Profile::createProfile, std::move(user)});
}

Observable<std::vector<User>> ProfileSession::profiles() const {
    return internal::callOf<std::vector<User>>(
        actor_, options_, ProfileOperation::getProfiles,
        [](const AnonymousBind& bind, const Brand& /*brandID*/) {
            return Profile().getProfiles(bind);
        });
}

Observable<Response> ProfileSession::editProfile(User user) const {
    return internal::callOf<Response>(
        actor_, options_, ProfileOperation::editProfile,
        UserRequest<Response>{&Profile::editProfile, std::move(user)});
}

Observable<Response> ProfileSession::deleteProfile(std::string profileID) const {
    const auto forget = [household = actor_->household, profileID] {
        household->forget(profileID);
    };
    const auto forgetWhatIsNotThere = [forget](const std::exception_ptr& error) {
        if (internal::hasStatus(error, 404)) forget();  // a repeat, after a reply that was lost
    };
    return internal::callOf<Response>(
               actor_, options_, ProfileOperation::deleteProfile,
               UserRequest<Response>{&Profile::deleteProfile, User(std::move(profileID))}) |
           rxcpp::operators::tap([forget](const Response&) { forget(); }, forgetWhatIsNotThere);
}

Observable<UserProfile> ProfileSession::history() const {
    return callList(actor_, options_, ProfileOperation::getHistory, &Profile::requestHistory);
}

Observable<UserProfile> ProfileSession::videoHistory(std::string videoID) const {
    return callList(actor_, options_, ProfileOperation::getVideoProgress,
                    &Profile::requestVideoHistory, video(std::move(videoID)));
}

Observable<Response> ProfileSession::addHistoryVideo(std::string videoID,
                                                     std::chrono::seconds progress,
                                                     std::optional<bool> isComplete) const {
    ListFields fields = video(std::move(videoID));
    fields.progress = wholeSeconds(progress);
    fields.isComplete = isComplete;
    return callList(actor_, options_, ProfileOperation::addVideoToHistory,
                    &Profile::addHistoryVideo, std::move(fields));
}

Observable<Response> ProfileSession::deleteVideoHistory(std::string videoID) const {
    return callList(actor_, options_, ProfileOperation::removeVideoFromHistory,
                    &Profile::deleteVideoHistory, video(std::move(videoID)));
}

Observable<Response> ProfileSession::clearHistory() const {
    return callList(actor_, options_, ProfileOperation::clearHistory, &Profile::clearHistory);
}

Observable<UserProfile> ProfileSession::favorites() const {
    return callList(actor_, options_, ProfileOperation::getFavorites, &Profile::requestFavorites);
}

Observable<Response> ProfileSession::addFavoriteShow(std::string showID) const {
    return callList(actor_, options_, ProfileOperation::addFavoriteShow, &Profile::addFavoriteShow,
                    show(std::move(showID)));
}

Observable<Response> ProfileSession::addFavoriteShows(std::vector<UserProfileElement> shows) const {
    ListFields fields;
    fields.elements = std::move(shows);
    return callList(actor_, options_, ProfileOperation::addFavoriteShows,
                    &Profile::addFavoriteShows, std::move(fields));
}

Observable<Response> ProfileSession::deleteFavoriteShow(std::string showID) const {
    return callList(actor_, options_, ProfileOperation::removeFavoriteShow,
                    &Profile::deleteFavoriteShow, show(std::move(showID)));
}

Observable<Response> ProfileSession::clearFavorites() const {
    return callList(actor_, options_, ProfileOperation::clearFavorites, &Profile::clearFavorites);
}

Observable<UserProfile> ProfileSession::watchList() const {
    return callList(actor_, options_, ProfileOperation::getWatchList, &Profile::requestWatchList);
}

Observable<Response> ProfileSession::addWatchListVideo(std::string videoID) const {
    return callList(actor_, options_, ProfileOperation::addVideoToWatchList,
                    &Profile::addWatchListVideo, video(std::move(videoID)));
}

Observable<Response> ProfileSession::deleteWatchListVideo(std::string videoID) const {
    return callList(actor_, options_, ProfileOperation::removeFromWatchList,
                    &Profile::deleteWatchListVideo, video(std::move(videoID)));
}

Observable<Response> ProfileSession::clearWatchList() const {
    return callList(actor_, options_, ProfileOperation::clearWatchList, &Profile::clearWatchList);
}

Observable<Response> ProfileSession::addSearchHistory(std::string search) const {
    return internal::callOf<Response>(
        actor_, options_, ProfileOperation::addSearchHistory,
        [search = std::move(search)](const AnonymousBind& bind, const Brand& brandID) {
            using KestrinProfile::Types;
            return Profile().addSearchHistory(brandID
                                                  ? SearchParams(search, Types::none, bind, brandID)
                                                  : SearchParams(search, Types::none, bind));
        });
}

Observable<Response> ProfileSession::deleteSearchHistory() const {
    return internal::callOf<Response>(actor_, options_, ProfileOperation::deleteSearchHistory,
                                      &internal::deleteSearchHistory);
}

}  // namespace KestrinHousehold
