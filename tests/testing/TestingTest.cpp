#include <chrono>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

#include <gmock/gmock.h>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinProfileTesting/DevelopmentService.hpp>
#include <KestrinProfileTesting/GoogleTest.hpp>

#include "support/Program.hpp"

namespace {

using HalvardSling::SlingError;
using KestrinProfileTesting::AdminClient;
using KestrinProfileTesting::atLeast;
using KestrinProfileTesting::atMost;
using KestrinProfileTesting::came;
using KestrinProfileTesting::DevelopmentService;
using KestrinProfileTesting::exactly;
using KestrinProfileTesting::Fault;
using KestrinProfileTesting::Requests;
using KestrinProfileTesting::ServiceOptions;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* seed =
    R"({"households":[{"id":"home","parent":{"username":"Mum","profileId":"mum"}}]})";

class ServiceForTests : public testing::Test {
  protected:
    /// Sends a request of the protocol, which the service refuses for want of a token.
    void knock() const {
        HalvardSling::TransportRequest request;
        request.url = admin.baseURL() + "/v1/history?profile=parent&brand=kestrin&v=1";
        request.policy.allowsCleartext = true;
        try {
            HalvardSling::toFuture<HalvardSling::Response>(HalvardSling::Sling(request).responses())
                .get();
        } catch (const SlingError& error) {
            status = error.statusCode().value_or(0);
        }
    }

    DevelopmentService service;
    const AdminClient& admin = service.admin();
    mutable int status = 0;
};

TEST_F(ServiceForTests, HasItsConfigurationAndTheDemosData) {
    EXPECT_THAT(TestSupport::contentOf(service.configuration()), HasSubstr(admin.baseURL()));
    EXPECT_THAT(admin.clientConfiguration(), HasSubstr(admin.baseURL()));
    EXPECT_THAT(admin.state(), HasSubstr(R"("profileId":"anna")"));
}

TEST_F(ServiceForTests, TakesAndGivesBackAState) {
    admin.replaceState(seed);
    EXPECT_THAT(admin.state(), AllOf(HasSubstr("mum"), Not(HasSubstr("anna"))));
    admin.addState(R"({"households":[{"id":"more"}]})");
    EXPECT_THAT(admin.state(), AllOf(HasSubstr("mum"), HasSubstr("more")));
    admin.block("mum");
    EXPECT_THAT(admin.state(), HasSubstr(R"("blocked":true)"));
    admin.reset();
    EXPECT_THAT(admin.state(), HasSubstr("anna"));
    admin.apply("five-profiles");
    EXPECT_EQ(admin.ask("GET", "status").integer("profiles"), 5);
}

TEST_F(ServiceForTests, PlaysFaults) {
    knock();
    EXPECT_EQ(status, 401);
    admin.add(Fault::status(503).onMethod("GET").times(1));
    knock();
    EXPECT_EQ(status, 503);
    knock();
    EXPECT_EQ(status, 401) << "only once";
    admin.add(Fault::status(500).onMethod("PUT"));
    admin.add(Fault::status(500).onProfile("anna"));
    admin.add(Fault::status(500).onOperation("personalization-history-clear"));
    knock();
    EXPECT_EQ(status, 401) << "on others";
    for (const Fault& fault :
         {Fault::delay(std::chrono::milliseconds(1)), Fault::throttle(1'000'000),
          Fault::resetBefore(), Fault::resetAfter(), Fault::resetMiddle(), Fault::malformed(),
          Fault::expiredToken(), Fault::revokedToken()})
        admin.add(fault);
    EXPECT_EQ(admin.ask("GET", "faults").dictionaries("faults")->size(), 12U);
    admin.endFaults();
    EXPECT_TRUE(admin.ask("GET", "faults").dictionaries("faults")->empty());
}

TEST_F(ServiceForTests, SaysWhatCame) {
    knock();
    knock();
    EXPECT_TRUE(came(admin, Requests().method("GET").status("401"), exactly(2)));
    EXPECT_TRUE(came(admin, Requests().path("/v1/history"), atLeast(1)));
    EXPECT_TRUE(came(admin, Requests().method("PUT"), atMost(0)));
    EXPECT_EQ(admin.count(Requests().profile("parent")), 2U);
    EXPECT_EQ(admin.count(Requests().profile("parent").since(1)), 1U);
    EXPECT_TRUE(admin.waitFor(Requests().operation("personalization-history-get"), 2));
    EXPECT_FALSE(admin.waitFor(Requests(), 3, std::chrono::seconds(0)));
    admin.forgetRequests();
    EXPECT_EQ(admin.count(Requests()), 0U);
}

TEST_F(ServiceForTests, ExplainsWhatDidNotComeByWhatNearlyDid) {
    knock();
    const auto result = came(admin, Requests().method("GET").profile("anna"), exactly(1));
    EXPECT_FALSE(result);
    EXPECT_THAT(result.message(), AllOf(HasSubstr("expected exactly 1, found 0"),
                                        HasSubstr("near miss: entry 1, GET /v1/history?"),
                                        HasSubstr("\n  profile: expected anna, was parent")));
}

TEST_F(ServiceForTests, HasNamespacesForTestsSideBySide) {
    const AdminClient other = admin.addNamespace("other", seed);
    EXPECT_THAT(other.state(), HasSubstr("mum"));
    EXPECT_THAT(admin.state(), Not(HasSubstr("mum")));
    knock();
    EXPECT_EQ(other.count(Requests()), 0U);
    admin.deleteNamespace("other");
    EXPECT_THROW(static_cast<void>(other.state()), std::runtime_error);
}

TEST_F(ServiceForTests, MovesTheClock) {
    admin.advanceClock(std::chrono::hours(1));
    EXPECT_THAT(admin.send("GET", "clock"), HasSubstr(R"("offsetSeconds":3.6E3)"));
}

TEST_F(ServiceForTests, SaysWhatTheServiceRefuses) {
    try {
        admin.apply("no-such-scenario");
        FAIL() << "it was applied";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("there is no scenario 'no-such-scenario'"));
    }
}

TEST(StartOfAService, ThatIsNoProgramIsAnError) {
    EXPECT_THROW(DevelopmentService(ServiceOptions{"/no/such/program", {}}), std::system_error);
    EXPECT_THROW(DevelopmentService(ServiceOptions{"/bin/false", {}}), std::runtime_error);
    EXPECT_THROW(DevelopmentService(ServiceOptions{{}, {"--no-such-option"}}), std::runtime_error);
}

TEST(EndOfAService, ComesThoughATestHasStoppedIt) {
    const DevelopmentService service;
    ASSERT_EQ(::kill(service.process(), SIGSTOP), 0);
}

TEST(EndOfAService, ComesWithItsObject) {
    pid_t process = -1;
    std::filesystem::path configuration;
    {
        const DevelopmentService service;
        process = service.process();
        configuration = service.configuration();
        EXPECT_EQ(::kill(process, 0), 0);
    }
    EXPECT_EQ(::kill(process, 0), -1);
    EXPECT_FALSE(std::filesystem::exists(configuration));
}

}  // namespace
