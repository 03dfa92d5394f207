// Sessions over HTTP, against the development service.

#include <atomic>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinHousehold/session/Household.hpp>
#include <KestrinProfile/model/User.hpp>

#include "support/Observed.hpp"
#include "support/Program.hpp"
#include "support/Waiting.hpp"

namespace {

using KestrinHousehold::Household;
using KestrinHousehold::HouseholdEvent;
using KestrinHousehold::HouseholdOptions;
using KestrinProfile::User;
using KestrinProfile::UserProfile;
using testing::ElementsAre;
using TestSupport::Observed;
using TestSupport::Program;
using TestSupport::Tally;
using TestSupport::TemporaryDirectory;
using namespace std::chrono_literals;

class SessionService : public testing::Test {
  protected:
    SessionService() {
        manager.dropBinds();
        startService();
    }

    ~SessionService() override {
        HalvardSling::setDefaultTransport(nullptr);
        manager.dropBinds();
        manager.removeConfiguration();
    }

    void startService() {
        service = std::make_unique<Program>(
            std::vector<std::string>{KESTRIN_SERVER, "--port", "0", "--database", directory / "db",
                                     "--write-config", configuration, "--quiet"});
        ASSERT_THAT(service->firstLine(), testing::HasSubstr("ready")) << service->errors();
        ASSERT_TRUE(manager.load(configuration).empty());
    }

    void stopService() {
        service->signal(SIGTERM);
        ASSERT_EQ(service->wait(), 0);
    }

    std::string create(const Household& household, const std::string& name) {
        const auto users =
            Observed(household.session().createProfile(User::withoutProfileID(name, "", "")))
                .values();
        EXPECT_EQ(users.size(), 1U);
        return users.empty() ? "" : users.front().profileID.value_or("");
    }

    template <class T>
    static void expectDone(const HalvardSling::Observable<T>& call) {
        EXPECT_TRUE(Observed<T>(call).completed());
    }

    using Elements = std::vector<KestrinProfile::UserProfileElement>;

    static std::vector<std::string> idsOf(const HalvardSling::Observable<UserProfile>& call) {
        std::vector<std::string> all;
        for (const auto& list : Observed<UserProfile>(call).values())
            for (const auto& element : list.elements.value_or(Elements()))
                all.push_back(element.id.value_or(""));
        return all;
    }

    KestrinConfigManager::ConfigurationManager& manager =
        KestrinConfigManager::ConfigurationManager::sharedInstance();
    TemporaryDirectory directory;
    std::string configuration = directory / "config.json";
    std::unique_ptr<Program> service;
};

TEST_F(SessionService, KeepsTheListsOfTwoProfilesApart) {
    const Household household;
    const auto anna = household.session(create(household, "Anna"));
    const auto bob = household.session(create(household, "Bob"));
    expectDone(anna.addHistoryVideo("v1", 62s));
    expectDone(bob.addHistoryVideo("v2", 5s, true));
    expectDone(anna.addFavoriteShow("s1"));
    expectDone(anna.addSearchHistory("text"));
    manager.selectProfile(bob.profileID());
    expectDone(anna.deleteSearchHistory());
    EXPECT_THAT(idsOf(anna.history()), ElementsAre("v1"));
    EXPECT_THAT(idsOf(bob.history()), ElementsAre("v2"));
    EXPECT_THAT(idsOf(anna.favorites()), ElementsAre("s1"));
    EXPECT_THAT(idsOf(bob.favorites()), testing::IsEmpty());
    EXPECT_EQ(Observed(household.session().profiles()).values().at(0).size(), 3U);
    expectDone(household.session().deleteProfile(anna.profileID()));
    EXPECT_EQ(Observed(household.session().profiles()).values().at(0).size(), 2U);
}

TEST_F(SessionService, RenewsABindThatTheServiceDoesNotTake) {
    std::atomic<int> renewals = 0;
    HouseholdOptions options;
    options.log = [&](const HouseholdEvent& event) {
        renewals += event.kind == HouseholdEvent::Kind::bindRenewed ? 1 : 0;
    };
    const Household first;
    const std::string anna = create(first, "Anna");
    manager.storeBind({anna, "stale"});
    const Household household(options);
    const auto session = household.session(anna);
    std::vector<Observed<UserProfile>> lists;
    for (int i = 0; i < 20; ++i)
        lists.emplace_back(session.history());
    for (const auto& list : lists)
        EXPECT_TRUE(list.completed());
    EXPECT_EQ(renewals, 1);
}

TEST_F(SessionService, RepeatsUntilTheServiceIsBack) {
    Tally repeats;
    HouseholdOptions options;
    options.retry.maxAttempts = 1'000'000;
    options.retry.firstDelay = 1ms;
    options.retry.longestDelay = 50ms;
    options.retry.deadline = std::chrono::hours(1);
    options.retry.budget = {1, 1e6, 1e6};
    options.log = [&](const HouseholdEvent& event) {
        if (event.kind == HouseholdEvent::Kind::repeat) repeats.add();
    };
    const Household household(options);
    const auto session = household.session();
    expectDone(session.addFavoriteShow("s1"));
    stopService();
    const Observed<UserProfile> list(session.favorites());
    ASSERT_TRUE(repeats.reaches(2));
    EXPECT_FALSE(list.endedAtOnce());
    startService();  // elsewhere; an attempt goes by the configuration that there is then
    EXPECT_TRUE(list.completed());
    expectDone(session.addFavoriteShow("s2"));
}

TEST_F(SessionService, EndsItsCallsWithItsHousehold) {
    std::vector<Observed<UserProfile>> lists;
    {
        const Household household;
        for (int i = 0; i < 50; ++i)
            lists.emplace_back(household.session().history());
    }
    for (const auto& list : lists)
        EXPECT_TRUE(list.ended());
}

}  // namespace
