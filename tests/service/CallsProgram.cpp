// Calls every operation without subscribing to what it returns, and writes a line before and after:
// what the process asks of the system in between is what a call costs. With a second argument it
// subscribes, too.
// Usage: CallsProgram CONFIGURATION [subscribe]

#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/service/Profile.hpp>

namespace {

using namespace KestrinProfile;
using KestrinConfigManager::ConfigurationManager;

bool write(std::string_view line) {
    return ::write(STDOUT_FILENO, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

bool configure(const char* file) {
    auto& manager = ConfigurationManager::sharedInstance();
    if (!manager.load(file).empty()) return false;
    for (const char* const profileID : {"parent", "kid"}) {
        manager.setBindProfileID(profileID);
        manager.setBindToken("token");
    }
    manager.selectProfile("kid");
    return true;
}

ProfileParams listParams() {
    ProfileParams params;
    params.videoID = "video";
    params.showID = "show";
    params.progress = 1;
    params.userName = "Ada";
    params.elements = {UserProfileElement("show", Types::show)};
    return params;
}

using Call = std::function<void(const Profile&, bool subscribes)>;

template <class T>
void use(const HalvardSling::Observable<T>& result, bool subscribes) {
    if (subscribes) result.subscribe([](const T&) {}, [](const std::exception_ptr&) {});
}

template <class Result, class Params>
Call calling(HalvardSling::Observable<Result> (Profile::*method)(Params) const,
             const Params& params) {
    return [=](const Profile& profile, bool subscribes) {
        use((profile.*method)(params), subscribes);
    };
}

std::vector<Call> calls() {
    const UserParams user({}, User("kid", "Ann", "cat", "kids"));
    std::vector<Call> all{
        calling(&Profile::requestAnonymousBind, std::optional<std::string>("other")),
        calling(&Profile::getProfiles, std::optional<KestrinConfigManager::AnonymousBind>()),
        calling(&Profile::validateProfileName, listParams()),
        calling(&Profile::addSearchHistory, SearchParams("text")),
        calling(&Profile::deleteSearchHistory, std::string("kestrin")),
    };
    for (const auto method : {&Profile::requestHistory, &Profile::requestVideoHistory,
                              &Profile::requestFavorites, &Profile::requestWatchList})
        all.push_back(calling(method, listParams()));
    for (const auto method :
         {&Profile::addHistoryVideo, &Profile::deleteVideoHistory, &Profile::clearHistory,
          &Profile::addFavoriteShow, &Profile::addFavoriteShows, &Profile::deleteFavoriteShow,
          &Profile::clearFavorites, &Profile::addWatchListVideo, &Profile::deleteWatchListVideo,
          &Profile::clearWatchList})
        all.push_back(calling(method, listParams()));
    all.push_back(calling(&Profile::createProfile, user));
    for (const auto method : {&Profile::editProfile, &Profile::deleteProfile})
        all.push_back(calling(method, user));
    return all;
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 2 || !configure(arguments[1])) return 1;
    const auto all = calls();
    if (all.size() != 22) return 1;
    const Profile profile;
    if (!write("calls from here\n")) return 1;
    for (const auto& call : all)
        call(profile, count > 2);
    if (!write("calls to here\n")) return 1;
    return 0;
}
