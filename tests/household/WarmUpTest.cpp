#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/WebService.hpp>

#include "HouseholdFixture.hpp"

using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::Observed;

namespace {

class WarmUp : public TestSupport::HouseholdFixture {
  protected:
    void configure(const std::string& services) {
        auto parsed = KestrinConfigManager::parseConfiguration(
            R"({"version": 1, "parentProfileID": "parent", "services": {)" + services + "}}");
        manager.configure(std::get<KestrinConfigManager::Configuration>(std::move(parsed)));
    }

    std::vector<std::string> asked() const {
        std::vector<std::string> all;
        for (const auto& request : transport->requests())
            all.push_back(request.method + " " + request.url);
        return all;
    }

    KestrinHousehold::Household home = household();
};

}  // namespace

TEST_F(WarmUp, SendsNothingBeforeItIsSubscribedTo) {
    const auto source = home.warmUp();
    EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(WarmUp, AsksOneHostForItsRootOnceHoweverManyServicesItHas) {
    const Observed result(home.warmUp());
    EXPECT_THAT(asked(), ElementsAre("HEAD http://127.0.0.1:8080/"));
    answer(reply(200));
    EXPECT_THAT(result.values(), ElementsAre(1U));
    EXPECT_TRUE(result.completed());
}

TEST_F(WarmUp, SendsNeitherATokenNorTheServicesOwnHeaders) {
    manager.storeBind({"parent", "t1"});
    const Observed result(home.warmUp());
    EXPECT_TRUE(transport->requests().at(0).headers.empty());
}

TEST_F(WarmUp, AsksEachHostOfTheServicesThatAreSwitchedOn) {
    configure(R"("a": {"url": "https://one.example/a?x=%UXID%"},)"
              R"("b": {"url": "https://ONE.example:443/b"},)"
              R"("c": {"url": "https://two.example:8443/c"},)"
              R"("d": {"url": "https://off.example/d", "enabled": false})");
    const Observed result(home.warmUp());
    EXPECT_THAT(asked(),
                ElementsAre("HEAD https://one.example/", "HEAD https://two.example:8443/"));
}

TEST_F(WarmUp, CountsAHostThatAnswersWithAnErrorAndNoneThatCannotBeReached) {
    configure(R"("a": {"url": "https://one.example/a"}, "b": {"url": "https://two.example/b"})");
    const Observed result(home.warmUp());
    const auto waiting = transport->waiting();
    ASSERT_TRUE(transport->answer(waiting.at(0), failure(Error::cannotConnect)));
    EXPECT_FALSE(result.endedAtOnce());
    ASSERT_TRUE(transport->answer(waiting.at(1), reply(404)));
    EXPECT_THAT(result.values(), ElementsAre(1U));
    EXPECT_TRUE(result.completed());
}

TEST_F(WarmUp, EndsAtOnceWithoutAConfiguration) {
    manager.removeConfiguration();
    EXPECT_THAT(Observed(home.warmUp()).values(), ElementsAre(0U));
}

TEST_F(WarmUp, CancelsItsRequestsWhenItIsUnsubscribedFrom) {
    Observed result(home.warmUp());
    result.unsubscribe();
    EXPECT_EQ(transport->cancelled(), 1U);
}

TEST_F(WarmUp, AsksNobodyWithoutServices) {
    auto parsed =
        KestrinConfigManager::parseConfiguration(R"({"version": 1, "parentProfileID": "parent"})");
    manager.configure(std::get<KestrinConfigManager::Configuration>(std::move(parsed)));
    const Observed result(home.warmUp());
    EXPECT_THAT(asked(), IsEmpty());
    EXPECT_THAT(result.values(), ElementsAre(0U));
}

TEST_F(WarmUp, LeavesOutWhatIsNoURL) {
    KestrinConfigManager::WebService broken;
    broken.operation = "a";
    broken.url = KestrinConfigManager::URLTemplate("https://no host/a");
    KestrinConfigManager::WebService sound;
    sound.operation = "b";
    sound.url = KestrinConfigManager::URLTemplate("https://one.example/b");
    KestrinConfigManager::ServiceTable services;
    services.add(broken);
    services.add(sound);
    KestrinConfigManager::Configuration configuration;
    configuration.services =
        std::make_shared<const KestrinConfigManager::ServiceTable>(std::move(services));
    manager.configure(std::move(configuration));
    const Observed result(home.warmUp());
    EXPECT_THAT(asked(), ElementsAre("HEAD https://one.example/"));
}
