#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <KestrinProfile/service/Profile.hpp>

namespace TestSupport {

/// A parameter record with something for each placeholder of a list's operation.
inline KestrinProfile::ProfileParams wholeListParams() {
    KestrinProfile::ProfileParams params;
    params.videoID = "video";
    params.showID = "show";
    params.progress = 1;
    params.userName = "Ada";
    params.elements = {KestrinProfile::UserProfileElement("show", KestrinProfile::Types::show)};
    return params;
}

/// Something to do with an operation of `Profile`.
using UseOfOperation = std::function<void(const KestrinProfile::Profile&)>;

/// Every operation of `Profile`, each with all its parameters.
/// @param use  is called with a function that calls the operation and returns what that returns
template <class Use>
std::vector<UseOfOperation> usesOfAllOperations(Use use) {
    using namespace KestrinProfile;
    const auto calling = [&use](auto method, const auto& params) -> UseOfOperation {
        return [use, method, params](const Profile& profile) {
            // What is handed over is the caller's.
            auto copy = params;
            use([&] { return (profile.*method)(std::move(copy)); });
        };
    };
    const UserParams user({}, User("kid", "Ann", "cat", "kids"));
    const auto list = wholeListParams();
    std::vector<UseOfOperation> all{
        calling(&Profile::requestAnonymousBind, std::optional<std::string>("other")),
        calling(&Profile::getProfiles, std::optional<KestrinConfigManager::AnonymousBind>()),
        calling(&Profile::validateProfileName, list),
        calling(&Profile::createProfile, user),
        calling(&Profile::editProfile, user),
        calling(&Profile::deleteProfile, user),
        calling(&Profile::addSearchHistory, SearchParams("text")),
        calling(&Profile::deleteSearchHistory, std::string("kestrin")),
    };
    for (const auto method : {&Profile::requestHistory, &Profile::requestVideoHistory,
                              &Profile::requestFavorites, &Profile::requestWatchList})
        all.push_back(calling(method, list));
    for (const auto method :
         {&Profile::addHistoryVideo, &Profile::deleteVideoHistory, &Profile::clearHistory,
          &Profile::addFavoriteShow, &Profile::addFavoriteShows, &Profile::deleteFavoriteShow,
          &Profile::clearFavorites, &Profile::addWatchListVideo, &Profile::deleteWatchListVideo,
          &Profile::clearWatchList})
        all.push_back(calling(method, list));
    return all;
}

}  // namespace TestSupport
