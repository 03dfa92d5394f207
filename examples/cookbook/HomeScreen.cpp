#include <vector>

#include <gmock/gmock.h>

#include <rxcpp/operators/rx-flat_map.hpp>
#include <rxcpp/operators/rx-zip.hpp>

#include <HalvardSling/rx/Executor.hpp>
#include <KestrinHousehold/session/Household.hpp>

#include "household/HouseholdFixture.hpp"

namespace {

using HalvardSling::Observable;
using KestrinHousehold::ProfileSession;
using KestrinProfile::User;
using KestrinProfile::UserProfile;

// [home screen]
struct Home {
    std::vector<User> profiles;
    UserProfile history;
    UserProfile favorites;
    UserProfile watchList;
};

/// The household's profiles, and then the three lists of one of them at once.
Observable<Home> home(const ProfileSession& session) {
    return session.profiles() |
           rxcpp::operators::flat_map([session](const std::vector<User>& profiles) {
               const auto together = [profiles](const UserProfile& history,
                                                const UserProfile& favorites,
                                                const UserProfile& watchList) {
                   return Home{profiles, history, favorites, watchList};
               };
               // Calls may end on several threads: the transport's, the scheduler's.
               const rxcpp::serialize_one_worker oneAtATime(rxcpp::schedulers::make_immediate());
               return session.history() |
                      rxcpp::operators::zip(oneAtATime, together, session.favorites(),
                                            session.watchList());
           });
}
// [end]

// [screen]
/// Shows the watch list as long as it is open.
class WatchListScreen {
  public:
    /// @param userInterface  has functions called on the thread that draws
    WatchListScreen(const ProfileSession& session, HalvardSling::Executor userInterface) {
        (session.watchList() | HalvardSling::deliverOn(std::move(userInterface)))
            .subscribe(
                subscription_, [this](const UserProfile& list) { show(list); },
                [this](const std::exception_ptr& error) { showError(error); }, [] {});
    }
    WatchListScreen(const WatchListScreen&) = delete;
    WatchListScreen& operator=(const WatchListScreen&) = delete;

    /// Cancels the request; nothing is called after that.
    ~WatchListScreen() { subscription_.unsubscribe(); }

    void show(const UserProfile& list) { videos = list.elements ? list.elements->size() : 0; }
    void showError(const std::exception_ptr&) { hasFailed = true; }

    std::size_t videos = 0;
    bool hasFailed = false;

  private:
    rxcpp::composite_subscription subscription_;
};
// [end]

// [switch]
/// Who watches. Whatever was begun before goes on under the profile it began with.
class Viewer {
  public:
    explicit Viewer(const KestrinHousehold::Household& household)
        : household_(household), session_(household.session()) {}

    void select(const User& user) { session_ = household_.session(user.profileID.value()); }

    [[nodiscard]] const ProfileSession& session() const { return session_; }

  private:
    const KestrinHousehold::Household& household_;
    ProfileSession session_;
};
// [end]

using testing::ElementsAre;
using testing::UnorderedElementsAre;

class HomeScreenRecipe : public TestSupport::HouseholdFixture {
  protected:
    HomeScreenRecipe() {
        manager.storeBind({"parent", "t1"});
        manager.storeBind({"kid", "t2"});
    }

    KestrinHousehold::Household home_ = household();
};

TEST_F(HomeScreenRecipe, AsksForTheProfilesAndThenForThreeListsAtOnce) {
    const TestSupport::Observed<Home> shown(home(home_.session()));
    EXPECT_THAT(sent(), ElementsAre("personalization-get-profiles with JWT t1"));
    answer(reply(200, R"({"data":[{"profileId":"kid","username":"Anna"}]})"));
    ASSERT_EQ(transport->waiting().size(), 3U);
    for (const auto transfer : transport->waiting())
        transport->answer(transfer, reply(200, R"({"data":[]})"));
    const auto values = shown.values();
    ASSERT_EQ(values.size(), 1U);
    EXPECT_EQ(values.front().profiles.at(0).username, "Anna");
}

TEST_F(HomeScreenRecipe, ShowsNothingOnceItIsClosed) {
    std::vector<std::function<void()>> queue;
    {
        const WatchListScreen screen(home_.session(),
                                     [&](std::function<void()> task) { queue.push_back(std::move(task)); });
        EXPECT_EQ(transport->waiting().size(), 1U);
    }
    EXPECT_EQ(transport->cancelled(), 1U);
    EXPECT_TRUE(queue.empty());
}

TEST_F(HomeScreenRecipe, ShowsTheListOnTheThreadThatDraws) {
    std::vector<std::function<void()>> queue;
    const WatchListScreen screen(home_.session(),
                                 [&](std::function<void()> task) { queue.push_back(std::move(task)); });
    answer(reply(200, R"({"data":[]})"));
    for (std::size_t i = 0; i < queue.size(); ++i) queue[i]();
    EXPECT_FALSE(screen.hasFailed);
}

TEST_F(HomeScreenRecipe, LetsACallEndUnderTheProfileItBeganWith) {
    Viewer viewer(home_);
    const TestSupport::Observed first(viewer.session().history());
    viewer.select(User("kid"));
    const TestSupport::Observed second(viewer.session().history());
    EXPECT_THAT(sent(), UnorderedElementsAre("personalization-history-get with JWT t1",
                                             "personalization-history-get with JWT t2"));
}

}  // namespace
