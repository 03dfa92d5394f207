// What the admin interface puts into the service, takes out of it, and puts back.
#include <set>
#include <string>

#include <gtest/gtest.h>

#include <kestrin-profile-server/state/Scenarios.hpp>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

namespace json = boost::json;

constexpr const char* homeSeed = R"({
  "households": [{
    "id": "home",
    "secret": "letters",
    "parent": {"profileId": "mum", "username": "Mum", "avatar": "owl", "default": false,
               "history": [], "favorites": [], "watchlist": [], "searches": []},
    "profiles": [{
      "profileId": "kid", "username": "Kid", "group": "kids", "default": true, "blocked": true,
      "history": [
        {"videoId": "v2", "brand": "kestrin", "type": "VIDEO", "progress": 7, "isCompleted": false,
         "autoAddTimestamp": "2017-03-09T18:00:00.002Z"},
        {"videoId": "v1", "brand": "kestrin", "autoAddTimestamp": "2017-03-09T18:00:00.001Z"},
        {"videoId": "v1", "brand": "other", "autoAddTimestamp": "2017-03-09T18:00:00.000Z"}],
      "favorites": [{"showId": "s", "brand": "kestrin", "type": "SHOW",
                     "autoAddTimestamp": "2017-03-09T18:00:00.003Z"}],
      "watchlist": [{"videoId": "w", "brand": "kestrin",
                     "autoAddTimestamp": "2017-03-09T18:00:00.004Z"}],
      "searches": [{"term": "otters", "brand": "kestrin",
                    "autoAddTimestamp": "2017-03-09T18:00:00.005Z"}]}],
    "blocked": ["ghost"]
  }]})";

class StateTest : public testing::Test {
  protected:
    std::string outcome(const std::string& method, const std::string& path,
                        const std::string& body = "") {
        return outcomeOf(admin.call(method, path, body));
    }

    std::string state() { return json::serialize(admin.get("state")); }

    /// The names of the households with those of their profiles.
    std::string people() {
        std::string all;
        const auto document = admin.get("households");
        for (const auto& household : document.at("households").as_array()) {
            all += std::string(household.at("id").as_string()) + ":";
            for (const auto& profile : household.at("profiles").as_array())
                all += " " + std::string(profile.at("profileId").as_string());
            all += ";";
        }
        return all;
    }

    HouseholdClient homeClient() const { return {service.baseURL(), "letters"}; }

    TestService service{withAdmin};
    AdminClient admin{service.baseURL()};
};

TEST_F(StateTest, aSeedComesBackAsItWasGiven) {
    ASSERT_EQ(outcome("PUT", "state", homeSeed), "204");
    auto expected = json::parse(homeSeed);
    expected.at("households").at(0).as_object().erase("secret");
    EXPECT_EQ(admin.get("state"), expected);
    EXPECT_EQ(outcome("PUT", "state", state()), "204") << "what comes out goes in";
    EXPECT_EQ(admin.get("state"), expected);
}

TEST_F(StateTest, clientsSeeTheSeed) {
    ASSERT_EQ(outcome("PUT", "state", homeSeed), "204");
    auto client = homeClient();
    EXPECT_EQ(outcomeOf(client.tryBind("kid")), "403 profile-blocked");
    EXPECT_EQ(outcomeOf(client.tryBind("ghost")), "403 profile-blocked");
    const Caller mum = client.bind("mum");
    EXPECT_EQ(client.idsOf(mum, "/v1/history?brand=kestrin&profile=kid&v=1"), "v2 v1");
    EXPECT_EQ(client.idsOf(mum, "/v1/history?brand=other&profile=kid&v=1"), "v1");
    const auto video =
        client.call(mum, "GET", "/v1/history/video?video=v2&brand=kestrin&profile=kid&v=1").json();
    EXPECT_EQ(json::serialize(video.at("elements")),
              R"([{"id":"v2","type":"VIDEO","progress":7,"isCompleted":false,)"
              R"("autoAddTimestamp":"2017-03-09T18:00:00.002Z"}])");
    EXPECT_EQ(outcomeOf(service.client().tryBind("parent")), "401 secret-required")
        << "what was there before is gone";
}

TEST_F(StateTest, whatASeedLeavesOutIsFilledIn) {
    ASSERT_EQ(outcome("PUT", "state",
                      R"({"households":[{"id":"h","profiles":[{"username":" Kid ",
                          "history":[{"videoId":"v"}]}]}]})"),
              "204");
    const auto household = admin.get("state").at("households").at(0);
    EXPECT_EQ(household.at("parent").at("profileId"), "parent");
    EXPECT_EQ(household.at("parent").at("default"), true);
    const auto kid = household.at("profiles").at(0);
    EXPECT_EQ(kid.at("username"), "Kid");
    EXPECT_EQ(kid.at("profileId").as_string().size(), 24U);
    EXPECT_EQ(kid.at("history").at(0).at("brand"), "kestrin");
    EXPECT_EQ(kid.at("history").at(0).at("autoAddTimestamp"), "2017-03-09T18:25:43.511Z");
}

TEST_F(StateTest, aHouseholdKeepsItsSecretWhenTheStateIsReplaced) {
    ASSERT_EQ(outcome("PUT", "state", R"({"households":[{"id":"household"},{"id":"other"}]})"),
              "204");
    EXPECT_EQ(outcomeOf(service.client().tryBind("parent")), "200");
}

TEST_F(StateTest, addingReplacesProfilesAndKeepsTheOthers) {
    ASSERT_EQ(outcome("PUT", "state", homeSeed), "204");
    ASSERT_EQ(outcome("POST", "state",
                      R"({"households":[
                        {"id":"home","profiles":[
                          {"profileId":"kid","username":"Child","history":[{"videoId":"v9"}]},
                          {"profileId":"dad","username":"Dad"}]},
                        {"id":"next","parent":{"profileId":"gran","username":"Gran"}}]})"),
              "204");
    EXPECT_EQ(people(), "home: mum kid dad;next: gran;");
    auto client = homeClient();
    const Caller kid = client.bind("kid");
    EXPECT_EQ(client.idsOf(kid, "/v1/history?brand=kestrin&profile=kid&v=1"), "v9");
    EXPECT_EQ(client.idsOf(kid, "/v1/history?brand=other&profile=kid&v=1"), "");
    const auto profile = admin.get("profiles/kid");
    EXPECT_EQ(profile.at("default"), false);
    EXPECT_FALSE(profile.as_object().contains("group"));
    EXPECT_EQ(admin.get("profiles/mum").at("default"), true) << "somebody is";
}

TEST_F(StateTest, aSeedWithAFaultIsRefusedWhole) {
    const std::string before = state();
    const auto household = [](const std::string& members) {
        return R"({"households":[{"id":"h")" + members + "}]}";
    };
    for (const std::string& seed :
         {std::string("[]"),
          std::string("{}"),
          std::string(R"({"households":{}})"),
          std::string(R"({"households":[{}]})"),
          std::string(R"({"households":[],"color":1})"),
          std::string(R"({"households":[],"maxSize":0})"),
          household(R"(,"id2":"x")"),
          household(R"(,"secret":"a b")"),
          household(R"(,"secret":"")"),
          household(R"(,"profiles":[{}])"),
          household(R"(,"profiles":[{"username":1}])"),
          household(R"(,"profiles":[{"username":"A","profileId":"a#b"}])"),
          household(R"(,"profiles":[{"username":"A","profileId":"parent"}])"),
          household(R"(,"profiles":[{"username":"A","profileId":"a"},)"
                    R"({"username":"B","profileId":"a"}])"),
          household(R"(,"profiles":[{"username":"A","default":true},)"
                    R"({"username":"B","default":true}])"),
          household(R"(,"parent":{"username":"A","history":[{}]})"),
          household(R"(,"parent":{"username":"A","history":[{"videoId":""}]})"),
          household(R"(,"parent":{"username":"A","history":[{"showId":"s"}]})"),
          household(R"(,"parent":{"username":"A","history":[{"videoId":"v","progress":-1}]})"),
          household(R"(,"parent":{"username":"A","history":[{"videoId":"v","progress":"1"}]})"),
          household(
              R"(,"parent":{"username":"A","history":[{"videoId":"v","isCompleted":"true"}]})"),
          household(R"(,"parent":{"username":"A","favorites":[{"showId":"s","progress":1}]})"),
          household(
              R"(,"parent":{"username":"A","history":[{"videoId":"v","autoAddTimestamp":"x"}]})"),
          household(R"(,"parent":{"username":"A","history":[{"videoId":"v"},{"videoId":"v"}]})"),
          household(R"(,"blocked":[1])")}) {
        EXPECT_EQ(outcome("PUT", "state", seed), "400 invalid-request") << seed;
    }
    EXPECT_EQ(outcome("PUT", "state", household(R"(,"profiles":[{"username":"  "}])")),
              "422 invalid-name");
    EXPECT_EQ(
        outcome("PUT", "state", household(R"(,"profiles":[{"username":"A"},{"username":"a"}])")),
        "422 invalid-name");
    EXPECT_EQ(outcome("PUT", "state",
                      R"({"households":[{"id":"a","secret":"x"},{"id":"b","secret":"x"}]})"),
              "409 taken");
    EXPECT_EQ(outcome("POST", "state",
                      R"({"households":[{"id":"household","parent":)"
                      R"({"profileId":"other","username":"Other"}}]})"),
              "400 invalid-request");
    EXPECT_EQ(outcome("PUT", "state", "{"), "400 malformed-json");
    EXPECT_EQ(outcome("PUT", "state"), "400 missing-body");
    EXPECT_EQ(state(), before);
}

TEST_F(StateTest, aFaultIsNamedWithItsPlace) {
    const auto reply = admin.call(
        "PUT", "state",
        R"({"households":[{"id":"a"},{"id":"b","profiles":[{"username":"B","color":1}]}]})");
    EXPECT_TRUE(detailOf(reply).starts_with(
        "the body.households[1].profiles[0] has the unexpected member 'color'; known are "
        "'profileId', 'username'"))
        << detailOf(reply);
}

TEST_F(StateTest, householdsAndProfilesAreShown) {
    ASSERT_EQ(outcome("PUT", "state", homeSeed), "204");
    const auto kid = admin.get("households").at("households").at(0).at("profiles").at(1);
    EXPECT_EQ(kid, json::parse(R"({"profileId":"kid","username":"Kid","group":"kids",
        "default":true,"blocked":true,
        "counts":{"history":3,"favorites":1,"watchlist":1,"searches":1}})"));
    const auto profile = admin.get("profiles/kid");
    EXPECT_EQ(profile.at("household"), "home");
    EXPECT_EQ(profile.at("searches").at(0).at("term"), "otters");
    EXPECT_EQ(outcome("GET", "profiles/nobody"), "404 unknown-item");
    EXPECT_EQ(outcome("GET", "profiles/kid?household=home"), "200");
    EXPECT_EQ(outcome("GET", "profiles/kid?household=nowhere"), "404 unknown-item");
}

TEST_F(StateTest, aProfileIsBlockedAndNoLonger) {
    auto client = service.client();
    const Caller parent = client.bind("parent");
    const std::string read = "/v1/history?brand=b&profile=parent&v=1";
    EXPECT_EQ(outcome("PUT", "profiles/parent/blocked", R"({"blocked":true})"), "204");
    EXPECT_EQ(outcomeOf(client.call(parent, "GET", read)), "403 profile-blocked");
    EXPECT_EQ(admin.get("profiles/parent").at("blocked"), true);
    EXPECT_EQ(outcome("PUT", "profiles/parent/blocked", R"({"blocked":false})"), "204");
    EXPECT_EQ(outcomeOf(client.call(parent, "GET", read)), "200");
    EXPECT_EQ(outcome("PUT", "profiles/parent/blocked", R"({})"), "400 invalid-request");
    EXPECT_EQ(outcome("PUT", "profiles/nobody/blocked", R"({"blocked":true})"), "404 unknown-item");
}

TEST_F(StateTest, tokensAreMadeAlsoExpiredOnes) {
    auto client = service.client();
    const auto read = [&](const std::string& body) {
        const auto reply = admin.call("POST", "tokens", body);
        EXPECT_EQ(outcomeOf(reply), "201");
        const Caller caller{"parent", std::string(reply.json().at("token").as_string())};
        return std::string(reply.json().at("expiresAt").as_string()) + " " +
               outcomeOf(client.call(caller, "GET", "/v1/history?brand=b&profile=parent&v=1"));
    };
    EXPECT_EQ(read(R"({"profileId":"parent"})"), "2017-03-09T19:25:43.000Z 200");
    EXPECT_EQ(read(R"({"profileId":"parent","expiresInSeconds":5})"),
              "2017-03-09T18:25:48.000Z 200");
    EXPECT_EQ(read(R"({"profileId":"parent","expiresInSeconds":-5})"),
              "2017-03-09T18:25:38.000Z 403 token-refused");
    EXPECT_EQ(outcome("POST", "tokens", R"({"profileId":"nobody"})"), "404 unknown-item");
    EXPECT_EQ(outcome("POST", "tokens", R"({})"), "400 invalid-request");
    EXPECT_EQ(outcome("POST", "tokens", R"({"profileId":"parent","expiresInSeconds":"5"})"),
              "400 invalid-request");
}

TEST_F(StateTest, snapshotsAreKeptAndPutBack) {
    ASSERT_EQ(outcome("PUT", "state", homeSeed), "204");
    const std::string before = state();
    EXPECT_EQ(outcome("PUT", "snapshots/first%20one"), "204");
    EXPECT_EQ(json::serialize(admin.get("snapshots")),
              R"({"snapshots":[{"name":"first one","takenAt":"2017-03-09T18:25:43.511Z"}]})");
    ASSERT_EQ(outcome("POST", "scenarios/empty"), "200");
    EXPECT_NE(state(), before);
    EXPECT_EQ(outcome("POST", "snapshots/first%20one/restore"), "204");
    EXPECT_EQ(state(), before);
    EXPECT_EQ(outcomeOf(homeClient().tryBind("mum")), "200") << "the secret is the former one";
    service.restart();
    AdminClient again(service.baseURL());
    const auto one = [&](const std::string& method, const std::string& rest) {
        return outcomeOf(again.call(method, "snapshots/first%20one" + rest));
    };
    EXPECT_EQ(one("POST", "/restore"), "204");
    EXPECT_EQ(one("DELETE", ""), "204");
    EXPECT_EQ(one("DELETE", ""), "404 unknown-item");
    EXPECT_EQ(one("POST", "/restore"), "404 unknown-item");
}

TEST_F(StateTest, resetMakesEverythingAsItWasAtTheStart) {
    service.restart([](ServiceSettings& settings) { settings.block = {"ghost"}; });
    AdminClient again(service.baseURL());
    const auto before = again.get("state");
    ASSERT_EQ(outcomeOf(again.call("PUT", "state", homeSeed)), "204");
    again.call("PUT", "clock", R"({"now":"2020-01-01T00:00:00Z","frozen":true})");
    EXPECT_EQ(outcomeOf(again.call("POST", "reset")), "204");
    EXPECT_EQ(again.get("state"), before);
    EXPECT_EQ(before.at("households").at(0).at("blocked").at(0), "ghost");
    EXPECT_EQ(again.get("clock").at("now"), "2017-03-09T18:25:43.511Z");
    EXPECT_EQ(outcomeOf(service.client().tryBind("parent")), "200");
}

TEST_F(StateTest, everyScenarioIsApplied) {
    const auto listed = admin.get("scenarios").at("scenarios").as_array();
    std::set<std::string> names;
    for (const auto& each : listed) {
        if (each.at("kind") != "state") continue;
        const std::string name(each.at("name").as_string());
        names.insert(name);
        const auto reply = admin.call("POST", "scenarios/" + name);
        EXPECT_EQ(outcomeOf(reply), "200") << name << reply.body;
        EXPECT_EQ(reply.json().at("applied").as_string(), name);
    }
    EXPECT_EQ(names, (std::set<std::string>{"empty", "five-profiles", "long-history",
                                            "blocked-profile", "full-list", "demo"}));
    EXPECT_EQ(outcome("POST", "scenarios/nothing"), "404 unknown-item");
}

TEST_F(StateTest, scenariosAreWhatTheySay) {
    const auto historyOf = [&](const std::string& profileID) {
        return admin.get("profiles/" + profileID).at("history").as_array().size();
    };
    admin.call("POST", "scenarios/five-profiles");
    EXPECT_EQ(people(), "demo: parent anna ben carla dara;");
    admin.call("POST", "scenarios/blocked-profile");
    EXPECT_EQ(admin.get("profiles/blocked").at("blocked"), true);
    admin.call("POST", "scenarios/full-list");
    EXPECT_EQ(historyOf("parent"), 500U);
    admin.call("POST", "scenarios/demo");
    EXPECT_EQ(people(), "demo: parent anna ben;");
    admin.call("POST", "scenarios/empty");
    EXPECT_EQ(historyOf("parent"), 0U);

    admin.call("POST", "scenarios/long-history");
    const auto configuration = admin.get("client-configuration");
    const auto& bind = configuration.at("services").at("personalization-bind-anonymous");
    HouseholdClient client(service.baseURL(),
                           std::string(bind.at("headers").at("X-Household-Secret").as_string()));
    const Caller parent = client.bind("parent");
    const auto list = client.call(parent, "GET", "/v1/history?brand=kestrin&profile=parent&v=1");
    EXPECT_EQ(list.json().at("maxSize"), 10'000);
    EXPECT_EQ(list.json().at("elements").as_array().size(), 10'000U);
    EXPECT_EQ(list.json().at("elements").at(0).at("id"), "video-10000");
    admin.call("POST", "reset");
    EXPECT_EQ(admin.get("state").as_object().contains("maxSize"), false);
}

TEST_F(StateTest, aSeedMayBeLargerThanAClientsBody) {
    std::string entries;
    for (int video = 0; video < 30'000; ++video)
        entries += (video == 0 ? "" : ",") + (R"({"videoId":"video-)" + std::to_string(video)) +
                   R"(","type":"VIDEO","progress":12})";
    const std::string seed =
        R"({"maxSize":100000,"households":[{"id":"h","parent":{"username":"P","history":[)" +
        entries + "]}}]}";
    ASSERT_GT(seed.size(), std::size_t{1024} * 1024);
    EXPECT_EQ(outcome("PUT", "state", seed), "204");
    EXPECT_EQ(admin.get("profiles/parent").at("history").as_array().size(), 30'000U);
}

TEST_F(StateTest, theClientConfigurationIsForAHousehold) {
    ASSERT_EQ(outcome("POST", "state", homeSeed), "204");
    EXPECT_EQ(admin.get("client-configuration").at("parentProfileID"), "parent");
    EXPECT_EQ(admin.get("client-configuration?household=home").at("parentProfileID"), "mum");
    EXPECT_EQ(outcome("GET", "client-configuration?household=nowhere"), "404 unknown-item");
    ASSERT_EQ(outcome("PUT", "state", homeSeed), "204");
    EXPECT_EQ(admin.get("client-configuration").at("parentProfileID"), "mum");
    ASSERT_EQ(outcome("PUT", "state", R"({"households":[]})"), "204");
    EXPECT_EQ(outcome("GET", "client-configuration"), "404 unknown-item");
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
