// Who may do what: the rules apply to all operations with a token in the same way.
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

/// A request of each operation that needs a token, for a given addressed profile.
struct SampleRequest {
    const Route& route;
    std::string target;
    std::string body;
};

std::vector<SampleRequest> requestsFor(const std::string& addressed) {
    std::vector<SampleRequest> requests;
    for (const Route& route : routes()) {
        if (route.access == Access::household) continue;
        std::string target = replaced(urlTemplate(route), "%UXID%", addressed);
        for (const char* placeholder :
             {"%BRANDNAME%", "%VIDEO%", "%SHOWID%", "%USERNAME%", "%SEARCH%"}) {
            target = replaced(target, placeholder, "x");
        }
        const bool needsBody = route.body.rule == BodyRule::required;
        const bool addsShows = route.path == "/v1/favorites/shows";
        requests.push_back({route, target,
                            !needsBody  ? ""
                            : addsShows ? R"({"elements":[]})"
                                        : "{}"});
    }
    return requests;
}

/// Two households in one database: ours with two children, and the neighbours'.
class AuthorisationTest : public testing::Test {
  protected:
    HttpReply send(const HeaderLines& headers, const SampleRequest& request) {
        HeaderLines all = headers;
        // One name for all, so that what differs in the replies is what is told.
        all.emplace_back("X-Request-ID", "any");
        if (!request.body.empty()) all.emplace_back("Content-Type", "application/json");
        return client.http.send(std::string(request.route.method), request.target, all,
                                request.body);
    }

    /// Every operation on the profile has this outcome.
    void expectForAll(const HeaderLines& headers, const std::string& addressed,
                      const std::string& outcome) {
        for (const SampleRequest& request : requestsFor(addressed)) {
            EXPECT_EQ(outcomeOf(send(headers, request)), outcome)
                << request.route.operation << " for " << addressed;
        }
    }

    std::set<std::string> refusedOperations(const Caller& caller, const std::string& addressed) {
        std::set<std::string> refused;
        for (const SampleRequest& request : requestsFor(addressed)) {
            // Deleting would end the test early; its rule is that of editing.
            if (request.route.operation == "personalization-delete-profile") continue;
            if (outcomeOf(send(caller.headers(), request)) == "403 profile-refused")
                refused.emplace(request.route.operation);
        }
        return refused;
    }

    TestService service;
    HouseholdClient client = service.client();
    Caller parent = client.bind("parent");
    Caller kid = client.create(parent, "Kid");
    Caller sibling = client.create(parent, "Sibling");
    Household otherHousehold = service.addHousehold("neighbours", "grandma");
    HouseholdClient neighbours{service.baseURL(), otherHousehold.secret};
    Caller grandma = neighbours.bind("grandma");
};

TEST_F(AuthorisationTest, withoutATokenNothingIsPossible) {
    expectForAll({{"PXRO-PROFILE-ID", "parent"}}, "parent", "401 token-required");
    const auto reply = client.http.send("GET", "/v1/profiles?profile=parent&v=1");
    EXPECT_EQ(reply.headers.at("www-authenticate"), "JWT");
}

TEST_F(AuthorisationTest, anotherSchemeIsNoToken) {
    expectForAll({{"Authorization", "Bearer " + parent.token}, {"PXRO-PROFILE-ID", "parent"}},
                 "parent", "401 token-required");
    expectForAll({{"Authorization", parent.token}, {"PXRO-PROFILE-ID", "parent"}}, "parent",
                 "401 token-required");
    expectForAll({{"X-Household-Secret", service.secret()}}, "parent", "401 token-required");
}

TEST_F(AuthorisationTest, theSchemesCaseDoesNotMatter) {
    const auto reply =
        client.http.send("GET", "/v1/profiles?profile=parent&v=1",
                         {{"Authorization", "jwt " + parent.token}, {"pxro-profile-id", "parent"}});
    EXPECT_EQ(outcomeOf(reply), "200");
}

TEST_F(AuthorisationTest, aForgedTokenIsRefused) {
    Caller forger = parent;
    forger.token[forger.token.size() / 2] ^= 1;
    expectForAll(forger.headers(), "parent", "403 token-refused");
    expectForAll(Caller{"parent", "not.a.token"}.headers(), "parent", "403 token-refused");
}

TEST_F(AuthorisationTest, anExpiredTokenIsRefusedAndANewBindHelps) {
    service.advance(std::chrono::seconds(3599));
    EXPECT_EQ(outcomeOf(client.call(parent, "GET", "/v1/profiles?profile=parent&v=1")), "200");
    service.advance(std::chrono::seconds(1));
    expectForAll(parent.headers(), "parent", "403 token-refused");
    EXPECT_EQ(
        outcomeOf(client.call(client.bind("parent"), "GET", "/v1/profiles?profile=parent&v=1")),
        "200");
}

TEST_F(AuthorisationTest, theLifetimeOfTokensIsASetting) {
    service.restart(
        [](ServiceSettings& settings) { settings.tokenLifetime = std::chrono::seconds(5); });
    HouseholdClient again = service.client();
    const Caller brief = again.bind("parent");
    service.advance(std::chrono::seconds(4));
    EXPECT_EQ(outcomeOf(again.call(brief, "GET", "/v1/profiles?profile=parent&v=1")), "200");
    service.advance(std::chrono::seconds(1));
    EXPECT_EQ(outcomeOf(again.call(brief, "GET", "/v1/profiles?profile=parent&v=1")),
              "403 token-refused");
}

TEST_F(AuthorisationTest, theHeaderNamesTheTokensProfile) {
    expectForAll(Caller{"parent", kid.token}.headers(), kid.profileID, "403 token-refused");
    expectForAll(Caller{kid.profileID, parent.token}.headers(), kid.profileID, "403 token-refused");
    expectForAll({{"Authorization", "JWT " + parent.token}}, "parent", "400 missing-header");
}

TEST_F(AuthorisationTest, aHeaderThatDecidesComesOnce) {
    auto headers = parent.headers();
    headers.emplace_back("Authorization", "JWT " + kid.token);
    expectForAll(headers, "parent", "400 repeated-header");
    headers = parent.headers();
    headers.emplace_back("PXRO-PROFILE-ID", kid.profileID);
    expectForAll(headers, "parent", "400 repeated-header");
}

TEST_F(AuthorisationTest, aDeletedProfilesTokenIsRefused) {
    client.call(parent, "DELETE", "/v1/profile?target=" + kid.profileID + "&v=1");
    expectForAll(kid.headers(), kid.profileID, "403 token-refused");
}

TEST_F(AuthorisationTest, aBlockedProfilesTokenIsRefusedAndOthersAreNot) {
    service.restart([this](ServiceSettings& settings) { settings.block = {kid.profileID}; });
    const auto target = [](const Caller& caller) {
        return "/v1/history?brand=b&profile=" + caller.profileID + "&v=1";
    };
    HouseholdClient again = service.client();
    EXPECT_EQ(outcomeOf(again.call(kid, "GET", target(kid))), "403 profile-blocked");
    EXPECT_EQ(outcomeOf(again.call(kid, "DELETE", target(kid))), "403 profile-blocked");
    EXPECT_EQ(outcomeOf(again.call(sibling, "GET", target(sibling))), "200");
}

TEST_F(AuthorisationTest, theParentMayActForEveryProfileOfItsHousehold) {
    EXPECT_EQ(refusedOperations(parent, parent.profileID), std::set<std::string>{});
    EXPECT_EQ(refusedOperations(parent, kid.profileID), std::set<std::string>{});
}

TEST_F(AuthorisationTest, aChildMayActForItselfButNotCreateProfiles) {
    EXPECT_EQ(refusedOperations(kid, kid.profileID),
              std::set<std::string>{"personalization-create-profile"});
}

TEST_F(AuthorisationTest, aChildMayOnlyListAndCheckNamesOfItsSiblingsAndParent) {
    for (const std::string& addressed : {sibling.profileID, parent.profileID}) {
        const auto refused = refusedOperations(kid, addressed);
        EXPECT_EQ(refused.size(), 18U);
        EXPECT_FALSE(refused.contains("personalization-get-profiles"));
        EXPECT_FALSE(refused.contains("personalization-validator"));
    }
    const auto reply =
        client.call(kid, "DELETE", "/v1/profile?target=" + sibling.profileID + "&v=1");
    EXPECT_EQ(outcomeOf(reply), "403 profile-refused");
    EXPECT_EQ(outcomeOf(client.tryBind(sibling.profileID)), "200");
}

TEST_F(AuthorisationTest, anotherHouseholdsProfilesAreAsAbsentAsUnknownOnes) {
    const auto foreign = requestsFor(kid.profileID);
    const auto unknown = requestsFor("nobody-at-all");
    for (std::size_t index = 0; index < foreign.size(); ++index) {
        const auto foreignReply = send(grandma.headers(), foreign[index]);
        EXPECT_EQ(outcomeOf(foreignReply), "403 profile-refused") << foreign[index].route.operation;
        EXPECT_EQ(foreignReply.body, send(grandma.headers(), unknown[index]).body)
            << foreign[index].route.operation;
    }
}

TEST_F(AuthorisationTest, aChildLearnsNothingAboutOtherHouseholdsEither) {
    const auto foreign = requestsFor("grandma");
    const auto unknown = requestsFor("nobody-at-all");
    for (std::size_t index = 0; index < foreign.size(); ++index) {
        EXPECT_EQ(send(kid.headers(), foreign[index]).body,
                  send(kid.headers(), unknown[index]).body)
            << foreign[index].route.operation;
    }
}

TEST_F(AuthorisationTest, theSameIdentifierInTwoHouseholdsMeansTwoProfiles) {
    const Household twin = service.addHousehold("twins", "parent");
    HouseholdClient twins(service.baseURL(), twin.secret);
    const Caller twinParent = twins.bind("parent");
    const std::string target = "/v1/favorites/show?show=ours&brand=b&profile=parent&v=1";
    EXPECT_EQ(outcomeOf(client.call(parent, "PUT", target)), "204");
    const std::string list = "/v1/favorites?brand=b&profile=parent&v=1";
    EXPECT_EQ(client.idsOf(parent, list), "ours");
    EXPECT_EQ(twins.idsOf(twinParent, list), "");
    EXPECT_EQ(outcomeOf(twins.call(twinParent, "DELETE", list)), "204");
    EXPECT_EQ(client.idsOf(parent, list), "ours");
}

TEST_F(AuthorisationTest, anotherHouseholdsNamesAreNotTaken) {
    EXPECT_EQ(outcomeOf(neighbours.call(
                  grandma, "GET", "/v1/profile-names?name=Sibling&brand=b&profile=grandma&v=1")),
              "200");
}

TEST_F(AuthorisationTest, aRefusedWriteChangesNothing) {
    const std::string list = "/v1/watchlist?brand=x&profile=" + kid.profileID + "&v=1";
    const std::string add = "/v1/watchlist/video?video=v&brand=x&profile=" + kid.profileID + "&v=1";
    EXPECT_EQ(outcomeOf(client.call(kid, "PUT", add)), "204");
    for (const Caller& intruder : {sibling, grandma}) {
        EXPECT_EQ(outcomeOf(client.call(intruder, "DELETE", list)), "403 profile-refused");
        EXPECT_EQ(outcomeOf(client.call(intruder, "DELETE", add)), "403 profile-refused");
    }
    EXPECT_EQ(client.idsOf(kid, list), "v");
}

TEST_F(AuthorisationTest, noProblemDocumentEverHoldsATokenOrTheSecret) {
    for (const SampleRequest& request : requestsFor("grandma")) {
        const auto reply = send(kid.headers(), request);
        EXPECT_EQ(reply.body.find(kid.token), std::string::npos);
    }
    Caller forged{"parent", parent.token + "x"};
    EXPECT_EQ(client.call(forged, "GET", "/v1/profiles?profile=parent&v=1")
                  .body.find(parent.token.substr(0, 20)),
              std::string::npos);
    HouseholdClient stranger(service.baseURL(), "wrong-secret-text");
    EXPECT_EQ(stranger.tryBind("parent").body.find("wrong-secret-text"), std::string::npos);
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
