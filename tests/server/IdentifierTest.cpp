// Whatever an identifier holds, a request acts on that entry or on none.
#include <string>

#include <gtest/gtest.h>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

class IdentifierTest : public testing::Test {
  protected:
    std::string call(const std::string& method, const std::string& target) {
        return outcomeOf(client.call(parent, method, target));
    }
    static std::string video(const std::string& query) { return "/v1/history/video?" + query; }
    static std::string named(const std::string& id) {
        return video("video=" + id + "&brand=b&profile=parent&v=1");
    }
    std::string history() { return client.idsOf(parent, "/v1/history?brand=b&profile=parent&v=1"); }

    TestService service;
    HouseholdClient client = service.client();
    Caller parent = client.bind("parent");
};

TEST_F(IdentifierTest, rawCharactersOfAURLAreOrdinaryOnes) {
    for (const std::string id :
         {"a/b", "a?b", "a=b", "=", "a+b", "/v1/history", "../x", "a:b@c", "a;b", "a,b", "a\"b",
          "a<b>c", "a|b", "a\\b", "a^b`c{d}", "[x]", "(x)*!'~$"}) {
        EXPECT_EQ(call("PUT", named(id)), "204") << id;
        EXPECT_EQ(history(), id);
        EXPECT_EQ(call("DELETE", named(id + "x")), "204");
        EXPECT_EQ(history(), id) << "another identifier deleted it";
        EXPECT_EQ(call("DELETE", named(id)), "204") << id;
        EXPECT_EQ(history(), "");
    }
}

TEST_F(IdentifierTest, escapesAreDecodedAndAPlusIsAPlus) {
    EXPECT_EQ(call("PUT", named("caf%C3%A9%20%E2%82%AC+1%25%26%23")), "204");
    EXPECT_EQ(history(), "caf\xC3\xA9 \xE2\x82\xAC+1%&#");
    EXPECT_EQ(call("DELETE", named("caf%c3%a9%20%e2%82%ac+1%25%26%23")), "204");
    EXPECT_EQ(history(), "");
}

TEST_F(IdentifierTest, rawBytesBeyondASCIIAreTakenAsTheyAre) {
    EXPECT_EQ(call("PUT", named("caf\xC3\xA9")), "204");
    EXPECT_EQ(history(), "caf\xC3\xA9");
}

TEST_F(IdentifierTest, anEmptyOrSlashedIdentifierNeverReachesAnotherRoute) {
    call("PUT", named("keep"));
    EXPECT_EQ(call("DELETE", named("")), "204");
    EXPECT_EQ(call("DELETE", named("/")), "204");
    EXPECT_EQ(call("DELETE", named("../history")), "204");
    EXPECT_EQ(history(), "keep");
}

TEST_F(IdentifierTest, anIdentifierCutAtAHashDoesNothing) {
    call("PUT", named("keep"));
    for (const std::string& cut :
         {video("video=keep"), video("brand=b&profile=parent&video=keep"),
          video("video=keep&brand=b&profile=parent"),
          std::string("/v1/history?brand=b&profile=parent"), std::string("/v1/history?brand=b"),
          std::string("/v1/history?"), std::string("/v1/history")}) {
        const auto reply = client.call(parent, "DELETE", cut);
        EXPECT_EQ(outcomeOf(reply), "400 missing-sentinel") << cut;
        EXPECT_NE(detailOf(reply).find("'#'"), std::string::npos);
    }
    EXPECT_EQ(history(), "keep");
}

TEST_F(IdentifierTest, theSentinelIsTheLastParameterAndOneOfItsKind) {
    EXPECT_EQ(call("DELETE", video("v=1&video=a&brand=b&profile=parent")), "400 missing-sentinel");
    EXPECT_EQ(call("DELETE", video("video=a&brand=b&profile=parent&v=2")), "400 missing-sentinel");
    EXPECT_EQ(call("DELETE", video("video=a&brand=b&profile=parentv=1")), "400 missing-sentinel");
    EXPECT_EQ(call("DELETE", video("video=a&brand=b&profile=parent&v=1&")), "400 missing-sentinel");
    EXPECT_EQ(call("DELETE", video("video=a&v=1&brand=b&profile=parent&v=1")),
              "400 unknown-parameter");
    EXPECT_EQ(call("DELETE", "/v1/history?v=1"), "400 missing-parameter");
}

TEST_F(IdentifierTest, aQueryWithoutTheSentinelIsToldHowItEnds) {
    const auto detail = [this](const std::string& target) {
        return detailOf(client.call(parent, "DELETE", target));
    };
    const std::string expected = "; expected is 'v=1' at the end. Usually a '#' ";
    EXPECT_TRUE(detail("/v1/history").starts_with("the query is empty" + expected));
    EXPECT_TRUE(detail(video("brand=b&profile=parent&video=private"))
                    .starts_with("the query ends with the parameter 'video'" + expected));
    EXPECT_TRUE(detail(video("video=a&brand=b&profile=parent&v=2"))
                    .starts_with("the query ends with 'v=2'" + expected));
}

TEST_F(IdentifierTest, anAmpersandInAnIdentifierIsNoticed) {
    call("PUT", named("a"));
    const auto unknown = client.call(parent, "DELETE", named("a&b"));
    EXPECT_EQ(outcomeOf(unknown), "400 unknown-parameter");
    EXPECT_NE(detailOf(unknown).find("'b'"), std::string::npos);
    EXPECT_EQ(call("DELETE", named("a&")), "400 unknown-parameter");
    EXPECT_EQ(call("DELETE", named("a&video=c")), "400 repeated-parameter");
    EXPECT_EQ(call("DELETE", named("a&brand=c")), "400 repeated-parameter");
    EXPECT_EQ(call("DELETE", named("a&v=1")), "400 unknown-parameter");
    EXPECT_EQ(history(), "a");
}

TEST_F(IdentifierTest, unknownRepeatedAndMissingParametersAreNamed) {
    const auto detail = [this](const std::string& target) {
        return detailOf(client.call(parent, "GET", target));
    };
    EXPECT_EQ(detail("/v1/history?brand=b&profile=parent&color=red&v=1"),
              "the query has the parameter 'color'; expected are 'brand', 'profile', and 'v' at the"
              " end");
    EXPECT_EQ(detail("/v1/history?brand=b&profile=parent&brand=b&v=1"),
              "the query has the parameter 'brand' more than once");
    EXPECT_EQ(detail("/v1/history?brand=b&v=1"),
              "the query lacks the parameter 'profile'; expected are 'brand', 'profile', and 'v' at"
              " the end");
}

TEST_F(IdentifierTest, theOrderOfTheParametersDoesNotMatter) {
    EXPECT_EQ(call("PUT", video("profile=parent&brand=b&video=a&v=1")), "204");
    EXPECT_EQ(history(), "a");
}

TEST_F(IdentifierTest, aParameterWithoutEqualsHasAnEmptyValue) {
    EXPECT_EQ(call("GET", "/v1/history?brand&profile=parent&v=1"), "200");
    EXPECT_EQ(call("GET", "/v1/history?brand=&profile=parent&v=1"), "200");
}

TEST_F(IdentifierTest, malformedEscapesAndTextsAreRefused) {
    for (const char* bad : {"100%", "%4", "%zz", "%C3", "%FF", "%ED%A0%80", "a%00b", "\xFF"}) {
        const auto reply = client.call(parent, "PUT", named(bad));
        EXPECT_EQ(outcomeOf(reply), "400 malformed-parameter") << bad;
        EXPECT_NE(detailOf(reply).find("'video'"), std::string::npos);
    }
}

TEST_F(IdentifierTest, identifiersHaveALongestLength) {
    EXPECT_EQ(call("PUT", named(std::string(2048, 'x'))), "204");
    EXPECT_EQ(call("PUT", named(std::string(2049, 'x'))), "400 malformed-parameter");
}

TEST_F(IdentifierTest, profileIdentifiersMayHoldCharactersOfURLs) {
    TestService odd(
        [](ServiceSettings& settings) { settings.parentProfileID = "p/a?b=c+d \xC3\xA9"; });
    HouseholdClient oddClient = odd.client();
    const std::string encoded = "p/a?b=c+d%20%C3%A9";
    const auto bound = oddClient.http.send(
        "POST", "/v1/binds?profile=" + encoded + "&v=1",
        {{"X-Household-Secret", odd.secret()}, {"Content-Type", "application/json"}},
        "{\"profileId\":\"p/a?b=c+d \xC3\xA9\"}");
    ASSERT_EQ(outcomeOf(bound), "200");
    const Caller caller{"p/a?b=c+d \xC3\xA9", std::string(bound.json().at("token").as_string())};
    EXPECT_EQ(outcomeOf(oddClient.call(
                  caller, "PUT", "/v1/favorites/show?show=s&brand=b&profile=" + encoded + "&v=1")),
              "204");
    EXPECT_EQ(oddClient.idsOf(caller, "/v1/favorites?brand=b&profile=" + encoded + "&v=1"), "s");
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
