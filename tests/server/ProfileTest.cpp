// The profiles of a household.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Support.hpp"
#include "support/Waiting.hpp"

namespace KestrinProfileServer::Testing {
namespace {

class ProfileTest : public testing::Test {
  protected:
    HttpReply create(const std::string& body) { return createAs(parent, body); }

    HttpReply createAs(const Caller& caller, const std::string& body) {
        return client.call(caller, "POST", "/v1/profiles?profile=" + caller.profileID + "&v=1",
                           body);
    }

    HttpReply edit(const Caller& caller, const std::string& profileID, const std::string& body) {
        return client.call(caller, "PUT", "/v1/profile?target=" + profileID + "&v=1", body);
    }

    HttpReply remove(const std::string& profileID) {
        return client.call(parent, "DELETE", "/v1/profile?target=" + profileID + "&v=1");
    }

    HttpReply validate(const std::string& encodedName, const Caller& caller) {
        return client.call(caller, "GET",
                           "/v1/profile-names?name=" + encodedName +
                               "&brand=kestrin&profile=" + caller.profileID + "&v=1");
    }

    boost::json::array profiles() {
        return client.call(parent, "GET", "/v1/profiles?profile=parent&v=1")
            .json()
            .at("data")
            .as_array();
    }

    /// The names, each default one with a star.
    std::string names() {
        std::string names;
        for (const auto& profile : profiles()) {
            names += (names.empty() ? "" : " ") + std::string(profile.at("username").as_string());
            if (profile.at("default").as_bool()) names += "*";
        }
        return names;
    }

    static std::string idIn(const HttpReply& reply) {
        return std::string(reply.json().at("profileId").as_string());
    }

    TestService service;
    HouseholdClient client = service.client();
    Caller parent = client.bind("parent");
};

TEST_F(ProfileTest, aNewHouseholdHasItsParentAsDefault) {
    EXPECT_EQ(boost::json::serialize(profiles()),
              R"([{"profileId":"parent","username":"Parent","default":true}])");
}

TEST_F(ProfileTest, aCreatedProfileIsAnsweredAndListedWithWhatWasGiven) {
    const auto reply =
        create(R"({"username":"Anna","avatar":"cat","group":"kids","default":false})");
    ASSERT_EQ(outcomeOf(reply), "201");
    EXPECT_EQ(reply.body,
              R"({"profileId":")" + idIn(reply) +
                  R"(","username":"Anna","avatar":"cat","group":"kids","default":false})");
    EXPECT_EQ(boost::json::serialize(profiles().at(1)), reply.body);
}

TEST_F(ProfileTest, absentValuesAreLeftOut) {
    const auto reply = create(R"({"username":"Anna"})");
    EXPECT_EQ(reply.body,
              R"({"profileId":")" + idIn(reply) + R"(","username":"Anna","default":false})");
}

TEST_F(ProfileTest, theParentComesFirstThenTheOthersAsTheyWereCreated) {
    for (const char* name : {"Zoe", "Anna", "Mia"})
        client.create(parent, name);
    EXPECT_EQ(names(), "Parent* Zoe Anna Mia");
}

TEST_F(ProfileTest, everyProfileMayListTheHousehold) {
    const Caller kid = client.create(parent, "Anna");
    for (const std::string& addressed : {kid.profileID, parent.profileID}) {
        const auto reply = client.call(kid, "GET", "/v1/profiles?profile=" + addressed + "&v=1");
        EXPECT_EQ(reply.json().at("data").as_array().size(), 2U);
    }
}

TEST_F(ProfileTest, whoCreatesAProfileIsToldWhereItIs) {
    const auto created = create(R"({"username":"Anna"})");
    ASSERT_EQ(outcomeOf(created), "201");
    EXPECT_EQ(created.headers.at("location"), "profile?target=" + idIn(created) + "&v=1");
    EXPECT_EQ(outcomeOf(client.call(parent, "DELETE", "/v1/" + created.headers.at("location"))),
              "204");
}

TEST_F(ProfileTest, aHouseholdHasNoMoreProfilesThanAllowed) {
    for (const char* name : {"A", "B", "C", "D"})
        client.create(parent, name);
    EXPECT_EQ(outcomeOf(create(R"({"username":"E"})")), "409 too-many-profiles");
    EXPECT_EQ(names(), "Parent* A B C D");
    service.restart([](ServiceSettings& settings) { settings.limits.maxProfiles = 6; });
    HouseholdClient again = service.client();
    EXPECT_EQ(outcomeOf(again.call(parent, "POST", "/v1/profiles?profile=parent&v=1",
                                   R"({"username":"E"})")),
              "201");
}

TEST_F(ProfileTest, aNewDefaultTakesItFromTheFormerOne) {
    EXPECT_EQ(outcomeOf(create(R"({"username":"Anna","default":true})")), "201");
    EXPECT_EQ(names(), "Parent Anna*");
    const auto ben = create(R"({"username":"Ben","default":false})");
    EXPECT_EQ(outcomeOf(edit(parent, idIn(ben), R"({"default":true})")), "200");
    EXPECT_EQ(names(), "Parent Anna Ben*");
}

TEST_F(ProfileTest, theDefaultReturnsToTheParentWhenItIsGivenUpOrDeleted) {
    const std::string anna = idIn(create(R"({"username":"Anna","default":true})"));
    EXPECT_EQ(outcomeOf(edit(parent, anna, R"({"default":false})")), "200");
    EXPECT_EQ(names(), "Parent* Anna");
    edit(parent, anna, R"({"default":true})");
    EXPECT_EQ(outcomeOf(remove(anna)), "204");
    EXPECT_EQ(names(), "Parent*");
}

TEST_F(ProfileTest, theParentStaysDefaultWhenNobodyElseIs) {
    const auto reply = edit(parent, "parent", R"({"default":false})");
    EXPECT_EQ(outcomeOf(reply), "200");
    EXPECT_TRUE(reply.json().at("default").as_bool());
}

TEST_F(ProfileTest, anEditReplacesWhatIsGivenAndKeepsTheRest) {
    const std::string anna =
        idIn(create(R"({"username":"Anna","avatar":"cat","group":"kids","default":true})"));
    const auto reply = edit(parent, anna, R"({"avatar":"dog"})");
    EXPECT_EQ(reply.body,
              R"({"profileId":")" + anna +
                  R"(","username":"Anna","avatar":"dog","group":"kids","default":true})");
    EXPECT_EQ(edit(parent, anna, R"({"username":" Anne ","group":""})").body,
              R"({"profileId":")" + anna +
                  R"(","username":"Anne","avatar":"dog","group":"","default":true})");
}

TEST_F(ProfileTest, aProfileMayEditAndDeleteItself) {
    const Caller kid = client.create(parent, "Anna");
    EXPECT_EQ(outcomeOf(edit(kid, kid.profileID, R"({"username":"Annie"})")), "200");
    EXPECT_EQ(names(), "Parent* Annie");
    EXPECT_EQ(outcomeOf(client.call(kid, "DELETE", "/v1/profile?target=" + kid.profileID + "&v=1")),
              "204");
    EXPECT_EQ(names(), "Parent*");
}

TEST_F(ProfileTest, theParentCannotBeDeleted) {
    EXPECT_EQ(outcomeOf(remove("parent")), "409 parent-profile");
    EXPECT_EQ(names(), "Parent*");
}

TEST_F(ProfileTest, namesAreUniqueWhateverTheirCase) {
    create(R"({"username":"\u00C9lise \u0416"})");
    for (const char* taken : {"\xC3\xA9lise \xD0\xB6", " \xC3\x89LISE \xD0\x96 ", "PARENT"}) {
        const auto reply = create(R"({"username":")" + std::string(taken) + "\"}");
        EXPECT_EQ(outcomeOf(reply), "422 invalid-name") << taken;
        EXPECT_NE(detailOf(reply).find("already called"), std::string::npos);
    }
    EXPECT_EQ(outcomeOf(create(R"({"username":"Elise"})")), "201");
}

TEST_F(ProfileTest, aNameBecomesFreeWithItsProfile) {
    const std::string anna = idIn(create(R"({"username":"Anna"})"));
    EXPECT_EQ(outcomeOf(create(R"({"username":"anna"})")), "422 invalid-name");
    remove(anna);
    EXPECT_EQ(outcomeOf(create(R"({"username":"anna"})")), "201");
}

TEST_F(ProfileTest, aProfileKeepsItsOwnNameOrChangesItsCase) {
    const std::string anna = idIn(create(R"({"username":"Anna"})"));
    EXPECT_EQ(outcomeOf(edit(parent, anna, R"({"username":"Anna"})")), "200");
    EXPECT_EQ(outcomeOf(edit(parent, anna, R"({"username":"ANNA"})")), "200");
    EXPECT_EQ(outcomeOf(edit(parent, anna, R"({"username":"parent"})")), "422 invalid-name");
    EXPECT_EQ(names(), "Parent* ANNA");
}

TEST_F(ProfileTest, aNameHasOneToFortyCharactersAfterTrimming) {
    const auto repeated = [](const std::string& text, int count) {
        std::string all;
        for (int index = 0; index < count; ++index)
            all += text;
        return R"({"username":")" + all + "\"}";
    };
    EXPECT_EQ(outcomeOf(create(repeated("\xC3\xB1", 40))), "201");
    EXPECT_EQ(outcomeOf(create(repeated("\xF0\x9F\x98\x80", 40))), "201");
    const auto tooLong = create(repeated("\xC3\xB1", 41));
    EXPECT_EQ(outcomeOf(tooLong), "422 invalid-name");
    EXPECT_NE(detailOf(tooLong).find("41"), std::string::npos);
    for (const char* empty : {R"({"username":""})", R"({"username":" \t\u00A0"})", "{}"})
        EXPECT_EQ(outcomeOf(create(empty)), "422 invalid-name") << empty;
}

TEST_F(ProfileTest, aNameHasNoControlCharacters) {
    for (const char* bad : {"a\\nb", "a\\u007Fb", "a\\u0085b"}) {
        EXPECT_EQ(outcomeOf(create(R"({"username":")" + std::string(bad) + "\"}")),
                  "422 invalid-name")
            << bad;
    }
}

TEST_F(ProfileTest, theValidatorAppliesTheSameRules) {
    const Caller kid = client.create(parent, "Anna");
    const auto good = validate("%20Space%20Cadet%20", parent);
    EXPECT_EQ(outcomeOf(good), "200");
    EXPECT_EQ(good.body, R"({"valid":true,"username":"Space Cadet"})");
    EXPECT_EQ(outcomeOf(validate("aNNA", parent)), "422 invalid-name");
    EXPECT_EQ(outcomeOf(validate("", parent)), "422 invalid-name");
    EXPECT_EQ(outcomeOf(validate("a%0Ab", parent)), "422 invalid-name");
    EXPECT_EQ(outcomeOf(validate(std::string(41, 'x'), parent)), "422 invalid-name");
    EXPECT_EQ(outcomeOf(validate("parent", kid)), "422 invalid-name");
}

TEST_F(ProfileTest, theValidatorLetsAProfileKeepItsOwnName) {
    const Caller kid = client.create(parent, "Anna");
    EXPECT_EQ(outcomeOf(validate("anna", kid)), "200");
}

TEST_F(ProfileTest, theValidatorReservesNothing) {
    EXPECT_EQ(outcomeOf(validate("Anna", parent)), "200");
    EXPECT_EQ(names(), "Parent*");
    EXPECT_EQ(outcomeOf(create(R"({"username":"Anna"})")), "201");
}

TEST_F(ProfileTest, deletingAProfileRemovesItsLists) {
    const Caller kid = client.create(parent, "Anna");
    const std::string query = "&brand=kestrin&profile=" + kid.profileID + "&v=1";
    for (const std::string& target :
         {"/v1/history/video?video=v" + query, "/v1/favorites/show?show=s" + query,
          "/v1/watchlist/video?video=w" + query}) {
        EXPECT_EQ(outcomeOf(client.call(kid, "PUT", target)), "204");
    }
    EXPECT_EQ(outcomeOf(client.call(kid, "POST", "/v1/searches?search=x" + query)), "204");
    const auto countEntries = [this] {
        Connection connection(service.database(), Connection::Mode::readOnly);
        Query count(connection, "SELECT count(*) FROM entries");
        count.next();
        return count.integer(0);
    };
    EXPECT_EQ(countEntries(), 4);
    EXPECT_EQ(outcomeOf(remove(kid.profileID)), "204");
    EXPECT_TRUE(TestSupport::eventually([&] { return countEntries() == 0; }));
    EXPECT_EQ(outcomeOf(remove(kid.profileID)), "403 profile-refused");
}

TEST_F(ProfileTest, profilesSurviveARestart) {
    create(R"({"username":"Anna","default":true})");
    service.restart();
    HouseholdClient again = service.client();
    EXPECT_EQ(again.call(parent, "GET", "/v1/profiles?profile=parent&v=1")
                  .json()
                  .at("data")
                  .as_array()
                  .size(),
              2U);
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
