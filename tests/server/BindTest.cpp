// Obtaining a token.
#include <string>

#include <gtest/gtest.h>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

class BindTest : public testing::Test {
  protected:
    HttpReply bindWith(const HeaderLines& headers,
                       const std::string& body = R"({"profileId":"parent"})") {
        HeaderLines all = headers;
        all.emplace_back("Content-Type", "application/json");
        return client.http.send("POST", "/v1/binds?profile=parent&v=1", all, body);
    }

    TestService service;
    HouseholdClient client = service.client();
};

TEST_F(BindTest, aProfileOfTheHouseholdObtainsAToken) {
    const auto reply = client.tryBind("parent");
    ASSERT_EQ(outcomeOf(reply), "200");
    EXPECT_EQ(reply.json().at("profileId").as_string(), "parent");
    const Caller caller{"parent", std::string(reply.json().at("token").as_string())};
    EXPECT_EQ(outcomeOf(client.call(caller, "GET", "/v1/profiles?profile=parent&v=1")), "200");
}

TEST_F(BindTest, nobodyObtainsABindWithoutTheHouseholdsSecret) {
    for (const HeaderLines& headers :
         {HeaderLines{}, HeaderLines{{"X-Household-Secret", "guess"}},
          HeaderLines{{"X-Household-Secret", service.secret() + "0"}},
          HeaderLines{{"X-Household-Secret", service.secret().substr(1)}},
          client.bind("parent").headers()}) {
        const auto reply = bindWith(headers);
        EXPECT_EQ(outcomeOf(reply), "401 secret-required");
        EXPECT_EQ(reply.headers.at("www-authenticate"), "HouseholdSecret");
        EXPECT_EQ(reply.body.find("token\":"), std::string::npos);
    }
}

TEST_F(BindTest, theAnswerToAWrongSecretIsTheSameForKnownAndUnknownProfiles) {
    HouseholdClient stranger(service.baseURL(), "guess");
    const auto known = stranger.tryBind("parent");
    const auto unknown = stranger.tryBind("nobody");
    EXPECT_EQ(outcomeOf(known), outcomeOf(unknown));
    EXPECT_EQ(detailOf(known), detailOf(unknown));
    EXPECT_EQ(known.body.size(), unknown.body.size());
}

TEST_F(BindTest, anUnknownProfileIsNotFound) {
    const auto reply = client.tryBind("nobody");
    EXPECT_EQ(outcomeOf(reply), "404 unknown-profile");
    EXPECT_NE(detailOf(reply).find("'nobody'"), std::string::npos);
}

TEST_F(BindTest, anotherHouseholdsProfileIsAsUnknownAsNone) {
    const Household other = service.addHousehold("neighbours", "grandma");
    EXPECT_EQ(outcomeOf(client.tryBind("grandma")), "404 unknown-profile");
    HouseholdClient neighbours(service.baseURL(), other.secret);
    EXPECT_EQ(outcomeOf(neighbours.tryBind("grandma")), "200");
    EXPECT_EQ(outcomeOf(neighbours.tryBind("parent")), "404 unknown-profile");
}

TEST_F(BindTest, aBlockedProfileIsForbidden) {
    service.restart([](ServiceSettings& settings) { settings.block = {"parent", "future"}; });
    HouseholdClient again = service.client();
    EXPECT_EQ(outcomeOf(again.tryBind("parent")), "403 profile-blocked");
    EXPECT_EQ(outcomeOf(again.tryBind("future")), "403 profile-blocked");
}

TEST_F(BindTest, blockingIsKeptUntilUnblocked) {
    service.restart([](ServiceSettings& settings) { settings.block = {"parent"}; });
    service.restart([](ServiceSettings& settings) { settings.block.clear(); });
    EXPECT_EQ(outcomeOf(service.client().tryBind("parent")), "403 profile-blocked");
    service.restart([](ServiceSettings& settings) { settings.unblock = {"parent"}; });
    EXPECT_EQ(outcomeOf(service.client().tryBind("parent")), "200");
}

TEST_F(BindTest, blockingOneHouseholdsProfileTouchesNoOtherHousehold) {
    const Household other = service.addHousehold("neighbours", "parent");
    service.restart([](ServiceSettings& settings) { settings.block = {"parent"}; });
    HouseholdClient neighbours(service.baseURL(), other.secret);
    EXPECT_EQ(outcomeOf(neighbours.tryBind("parent")), "200");
}

TEST_F(BindTest, theBodyNamesTheProfileOfTheQuery) {
    const HeaderLines secret{{"X-Household-Secret", service.secret()}};
    const auto other = bindWith(secret, R"({"profileId":"other"})");
    EXPECT_EQ(outcomeOf(other), "422 invalid-body");
    EXPECT_EQ(detailOf(other),
              "the body.profileId is 'other'; expected is the profile of the query, 'parent'");
    EXPECT_EQ(outcomeOf(bindWith(secret, "{}")), "422 invalid-body");
    EXPECT_EQ(outcomeOf(bindWith(secret, "")), "400 missing-body");
}

TEST_F(BindTest, theSecretComesOnce) {
    EXPECT_EQ(outcomeOf(bindWith({{"X-Household-Secret", service.secret()},
                                  {"X-Household-Secret", service.secret()}})),
              "400 repeated-header");
}

TEST_F(BindTest, secretAndTokenKeySurviveARestart) {
    const std::string secret = service.secret();
    const Caller parent = client.bind("parent");
    service.restart();
    EXPECT_EQ(service.secret(), secret);
    EXPECT_EQ(outcomeOf(service.client().call(parent, "GET", "/v1/profiles?profile=parent&v=1")),
              "200");
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
