#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinProfile/model/ProfileOperation.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "HouseholdFixture.hpp"

namespace {

using KestrinConfigManager::AnonymousBind;
using KestrinHousehold::CallOptions;
using KestrinProfile::Profile;
using KestrinProfile::ProfileParams;
using KestrinProfile::SearchParams;
using KestrinProfile::Types;
using KestrinProfile::User;
using KestrinProfile::UserParams;
using KestrinProfile::UserProfileElement;
using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::HouseholdFixture;
using TestSupport::Observed;
using namespace std::chrono_literals;

class Session : public HouseholdFixture {
  protected:
    /// What a request says, without what is anew for each.
    static std::string text(const TransportRequest& request) {
        std::string all = request.method + ' ' + request.url + '\n';
        for (const auto& [name, value] : request.headers)
            all += std::string(name) + ": " + std::string(value) + '\n';
        return all + (request.body ? *request.body : "");
    }

    template <class T>
    static void run(const HalvardSling::Observable<T>& operation) {
        operation.subscribe([](const T&) {}, [](const std::exception_ptr&) {});
    }
};

TEST_F(Session, SendsWhatProfileSendsForEachOperation) {
    manager.storeBind({"p", "t"});
    manager.selectProfile("p");
    transport->alwaysAnswer([](const TransportRequest&) { return reply(200); });
    const auto household = this->household();
    const auto session = household.session("p");
    const AnonymousBind bind("p", "t");
    const Profile profile;
    const User anna("a", "Anna", "cat", "kids");

    const auto params = [&](auto set) {
        ProfileParams made(bind);
        set(made);
        return made;
    };
    const auto plain = params([](ProfileParams&) {});
    const auto video = params([](ProfileParams& made) { made.videoID = "v"; });
    const auto show = params([](ProfileParams& made) { made.showID = "s"; });
    const auto watched = params([](ProfileParams& made) {
        made.videoID = "v";
        made.progress = 62;
        made.isComplete = true;
    });
    const auto named = params([](ProfileParams& made) { made.userName = "Anna"; });
    const std::vector elements{UserProfileElement("s1", Types::show)};

    const auto compare = [&](const auto& ours, const auto& theirs) {
        run(ours);
        run(theirs);
        const auto requests = transport->requests();
        ASSERT_GE(requests.size(), 2U);
        EXPECT_EQ(text(requests.back()), text(requests[requests.size() - 2]));
    };
    compare(session.validateProfileName("Anna"), profile.validateProfileName(named));
    compare(session.createProfile(anna), profile.createProfile(UserParams(bind, anna)));
    compare(session.profiles(), profile.getProfiles(bind));
    compare(session.editProfile(anna), profile.editProfile(UserParams(bind, anna)));
    compare(session.deleteProfile("a"), profile.deleteProfile(UserParams(bind, anna)));
    compare(session.history(), profile.requestHistory(plain));
    compare(session.videoHistory("v"), profile.requestVideoHistory(video));
    compare(session.addHistoryVideo("v", 62s, true), profile.addHistoryVideo(watched));
    compare(session.deleteVideoHistory("v"), profile.deleteVideoHistory(video));
    compare(session.clearHistory(), profile.clearHistory(plain));
    compare(session.favorites(), profile.requestFavorites(plain));
    compare(session.addFavoriteShow("s"), profile.addFavoriteShow(show));
    compare(session.addFavoriteShows(elements),
            profile.addFavoriteShows(ProfileParams(bind, "kestrin", elements)));
    compare(session.deleteFavoriteShow("s"), profile.deleteFavoriteShow(show));
    compare(session.clearFavorites(), profile.clearFavorites(plain));
    compare(session.watchList(), profile.requestWatchList(plain));
    compare(session.addWatchListVideo("v"), profile.addWatchListVideo(video));
    compare(session.deleteWatchListVideo("v"), profile.deleteWatchListVideo(video));
    compare(session.clearWatchList(), profile.clearWatchList(plain));
    compare(session.addSearchHistory("text"),
            profile.addSearchHistory(SearchParams("text", Types::none, bind)));
    compare(session.deleteSearchHistory(), profile.deleteSearchHistory("kestrin"));
    EXPECT_EQ(transport->requests().size(), 2U * 21U);
    EXPECT_THAT(Observed(session.bind()).values(), ElementsAre(bind));
    EXPECT_EQ(transport->requests().size(), 2U * 21U);
}

TEST_F(Session, SendsNothingBeforeItIsSubscribedTo) {
    const auto household = this->household();
    static_cast<void>(household.session("p").history());
    EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(Session, IsTheParentsUnlessItNamesAProfile) {
    const auto household = this->household();
    EXPECT_EQ(household.session().profileID(), "parent");
    EXPECT_EQ(household.session("p").profileID(), "p");
}

TEST_F(Session, HasAnotherBrandIfItIsTold) {
    manager.storeBind({"p", "t"});
    const auto household = this->household();
    CallOptions options;
    options.brandID = "other";
    run(household.session("p").with(options).deleteSearchHistory());
    run(household.session("p").with(options).history());
    for (const auto& request : transport->requests())
        EXPECT_THAT(request.url, testing::HasSubstr("brand=other"));
    EXPECT_EQ(transport->requests().size(), 2U);
}

}  // namespace
