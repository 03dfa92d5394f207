#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinHousehold/outbox/HouseholdDelivery.hpp>
#include <KestrinHousehold/outbox/LaterSession.hpp>
#include <KestrinHousehold/outbox/MemoryOutboxStore.hpp>

#include "HouseholdFixture.hpp"
#include "OutboxSupport.hpp"

using namespace HouseholdTest;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinHousehold::HouseholdDelivery;
using KestrinHousehold::LaterSession;
using KestrinHousehold::MemoryOutboxStore;
using testing::SizeIs;

namespace {

class HouseholdDeliveryTest : public TestSupport::HouseholdFixture {
  protected:
    /// Binds are obtained; everything else is answered with no content.
    HouseholdDeliveryTest() {
        transport->alwaysAnswer([this](const TransportRequest& request) -> TransportResult {
            if (request.url.find("/binds") != std::string::npos)
                return reply(200, R"({"profileId": "p1", "token": "t"})");
            const std::scoped_lock lock(mutex);
            requests.push_back(request.method + " " + request.url);
            bodies.push_back(request.body ? *request.body : "");
            return reply(request.method == "GET" ? 200 : 204, listOf({}));
        });
    }

    std::mutex mutex;
    std::vector<std::string> requests;
    std::vector<std::string> bodies;
};

}  // namespace

TEST_F(HouseholdDeliveryTest, SendsEachWriteAsTheSessionWould) {
    const Household house = household();
    HouseholdDelivery delivery(house);
    const auto session = house.session("p1").with({true, {}, "b"});
    const std::vector<UserProfileElement> some{UserProfileElement("s1", Types::show)};
    const std::vector<std::pair<OutboxWrite, Observable<Response>>> pairs{
        {progress("v1", 62, true, "p1"), session.addHistoryVideo("v1", 62s, true)},
        {write(Op::removeVideoFromHistory, "v1", "p1"), session.deleteVideoHistory("v1")},
        {write(Op::clearHistory, "", "p1"), session.clearHistory()},
        {write(Op::addFavoriteShow, "s1", "p1"), session.addFavoriteShow("s1")},
        {{"p1", "b", Op::addFavoriteShows, "", some}, session.addFavoriteShows(some)},
        {write(Op::removeFavoriteShow, "s1", "p1"), session.deleteFavoriteShow("s1")},
        {write(Op::clearFavorites, "", "p1"), session.clearFavorites()},
        {write(Op::addVideoToWatchList, "v1", "p1"), session.addWatchListVideo("v1")},
        {write(Op::removeFromWatchList, "v1", "p1"), session.deleteWatchListVideo("v1")},
        {write(Op::clearWatchList, "", "p1"), session.clearWatchList()},
        {write(Op::addSearchHistory, "x y", "p1"), session.addSearchHistory("x y")},
        {write(Op::deleteSearchHistory, "", "p1"), session.deleteSearchHistory()},
    };
    for (const auto& [kept, direct] : pairs) {
        EXPECT_TRUE(Observed(delivery.send(kept)).completed()) << rawValue(kept.operation);
        EXPECT_TRUE(Observed(direct).completed());
        ASSERT_THAT(requests, SizeIs(2)) << rawValue(kept.operation);
        EXPECT_EQ(requests[0], requests[1]);
        EXPECT_EQ(bodies[0], bodies[1]);
        requests.clear();
        bodies.clear();
    }
}

TEST_F(HouseholdDeliveryTest, AsksForWhatTheServiceHasAsTheSessionWould) {
    const Household house = household();
    HouseholdDelivery delivery(house);
    const auto session = house.session("p1").with({true, {}, "b"});
    using KestrinProfile::UserProfile;
    const std::vector<std::pair<OutboxWrite, Observable<UserProfile>>> pairs{
        {progress("v1", 62, true, "p1"), session.videoHistory("v1")},
        {write(Op::removeVideoFromHistory, "v1", "p1"), session.videoHistory("v1")},
        {write(Op::clearHistory, "", "p1"), session.history()},
        {write(Op::removeFavoriteShow, "s1", "p1"), session.favorites()},
        {write(Op::clearWatchList, "", "p1"), session.watchList()},
    };
    for (const auto& [kept, direct] : pairs) {
        EXPECT_TRUE(Observed(delivery.lookUp(kept)).completed());
        EXPECT_TRUE(Observed(direct).completed());
        ASSERT_THAT(requests, SizeIs(2)) << rawValue(kept.operation);
        EXPECT_EQ(requests[0], requests[1]);
        requests.clear();
    }
}

TEST_F(HouseholdDeliveryTest, SendsWhatASessionLeavesForLater) {
    const Household house = household();
    const auto store = std::make_shared<MemoryOutboxStore>();
    const auto outbox = std::make_shared<Outbox>(store, std::make_shared<HouseholdDelivery>(house),
                                                 house.scheduler());
    const LaterSession later(house.session("p1").with({true, {}, "b"}), outbox);
    const std::vector<UserProfileElement> some{UserProfileElement("s2", Types::show)};
    for (const auto& kept : {later.addHistoryVideo("v1", 62s), later.deleteVideoHistory("v2"),
                             later.addFavoriteShow("s1"), later.addFavoriteShows(some),
                             later.deleteFavoriteShow("s3"), later.addWatchListVideo("v1"),
                             later.deleteWatchListVideo("v2"), later.addSearchHistory("x")})
        EXPECT_TRUE(Observed(kept).completed());
    EXPECT_TRUE(TestSupport::eventually([&] {
        scheduler->advance(1s);
        return store->entries().empty();
    }));
    EXPECT_THAT(requests, SizeIs(8));
    for (const auto& kept : {later.clearHistory(), later.clearFavorites(), later.clearWatchList(),
                             later.deleteSearchHistory()})
        EXPECT_TRUE(Observed(kept).completed());
    EXPECT_TRUE(TestSupport::eventually([&] {
        scheduler->advance(1s);
        return store->entries().empty();
    }));
    EXPECT_THAT(requests, SizeIs(12));
}

TEST_F(HouseholdDeliveryTest, WaitsForTheNextStartOnceTheHouseholdHasEnded) {
    std::optional<Household> house(household());
    HouseholdDelivery delivery(*house);
    house.reset();
    const Observed sent(delivery.send(progress("v1", 1, {}, "p1")));
    ASSERT_TRUE(sent.error<SlingError>());
    EXPECT_EQ(sent.error<SlingError>()->kind(), SlingErrorKind::cancelled);
}

TEST_F(HouseholdDeliveryTest, SendsNothingForAnOperationThatChangesNoList) {
    const Household house = household();
    HouseholdDelivery delivery(house);
    for (const auto operation : {Op::createProfile, Op::getHistory, Op::testOperation}) {
        for (const auto& refused : {delivery.send(write(operation, "v1", "p1")),
                                    delivery.lookUp(write(operation, "v1", "p1"))}) {
            const auto error = Observed(refused).error<OutboxError>();
            ASSERT_TRUE(error);
            EXPECT_EQ(error->value(), OutboxError::Case::invalidWrite);
            EXPECT_THAT(error->what(), testing::HasSubstr(std::string(rawValue(operation))));
        }
    }
    EXPECT_THAT(requests, testing::IsEmpty());
}

TEST_F(HouseholdDeliveryTest, AsksForNothingThatTheConfigurationDoesNotHave) {
    manager.storeBind({"p1", "t"});
    const Household house = household();
    HouseholdDelivery delivery(house);
    const auto configure = [&](const std::string& rest) {
        auto parsed = KestrinConfigManager::parseConfiguration(
            R"({"version": 1, "parentProfileID": "parent")" + rest + "}");
        manager.configure(std::get<KestrinConfigManager::Configuration>(std::move(parsed)));
    };
    const auto errorOfLookUp = [&] {
        return Observed(delivery.lookUp(write(Op::clearHistory, "", "p1")))
            .error<ConfigurationManagerError>();
    };
    const std::string service(rawValue(Op::getHistory));
    using Case = ConfigurationManagerError::Case;
    const std::vector<std::pair<std::string, Case>> rows{
        {"", Case::serviceNotConfigured},
        {R"(, "services": {"other": {"url": "https://a.example/"}})", Case::serviceNotConfigured},
        {R"(, "services": {")" + service + R"(": {"url": "https://a.example/", "enabled": false}})",
         Case::serviceDisabled}};
    for (const auto& [rest, value] : rows) {
        configure(rest);
        const auto error = errorOfLookUp();
        ASSERT_TRUE(error) << rest;
        EXPECT_EQ(error->value(), value) << rest;
    }
    EXPECT_THAT(requests, testing::IsEmpty());
}
