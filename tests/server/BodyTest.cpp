// What bodies may hold.
#include <string>

#include <gtest/gtest.h>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

constexpr const char* watchTarget = "/v1/history/video?video=v&brand=b&profile=parent&v=1";
constexpr const char* showsTarget = "/v1/favorites/shows?brand=b&profile=parent&v=1";
constexpr const char* profilesTarget = "/v1/profiles?profile=parent&v=1";
constexpr const char* searchTarget = "/v1/searches?search=x&brand=b&profile=parent&v=1";

class BodyTest : public testing::Test {
  protected:
    HttpReply watch(const std::string& body) {
        return client.call(parent, "PUT", watchTarget, body);
    }

    HttpReply withType(const std::string& contentType, const std::string& body) {
        auto headers = parent.headers();
        if (!contentType.empty()) headers.emplace_back("Content-Type", contentType);
        return client.http.send("PUT", watchTarget, headers, body);
    }

    TestService service;
    HouseholdClient client = service.client();
    Caller parent = client.bind("parent");
};

TEST_F(BodyTest, whatIsNotJSONIsRefused) {
    for (const char* bad :
         {"{", "not json", "{\"type\":}", "{} {}", "{'type':'x'}", "{\"type\":\"\xFF\"}"}) {
        EXPECT_EQ(outcomeOf(watch(bad)), "400 malformed-json") << bad;
    }
}

TEST_F(BodyTest, whatIsNoObjectIsRefused) {
    for (const char* bad : {"[]", "null", "\"x\"", "1"})
        EXPECT_EQ(outcomeOf(watch(bad)), "422 invalid-body") << bad;
}

TEST_F(BodyTest, anUnexpectedKeyIsNamed) {
    const auto reply = watch(R"({"Progress":"1"})");
    EXPECT_EQ(outcomeOf(reply), "422 invalid-body");
    EXPECT_EQ(detailOf(reply),
              "the body has the unexpected key 'Progress'; known are 'isCompleted', 'type',"
              " 'progress'");
}

TEST_F(BodyTest, completionIsTheTextTrueOrFalse) {
    for (const char* bad : {"true", "\"True\"", "\"yes\"", "\"\"", "1", "null"}) {
        const auto reply = watch(R"({"isCompleted":)" + std::string(bad) + "}");
        EXPECT_EQ(outcomeOf(reply), "422 invalid-body") << bad;
        EXPECT_EQ(detailOf(reply), "the body.isCompleted is " + std::string(bad) +
                                       "; expected is the text \"true\" or \"false\"");
    }
}

TEST_F(BodyTest, progressIsADecimalText) {
    for (const char* bad : {"1", "\"\"", "\"1.5\"", "\"-1\"", "\"-0\"", "\"+1\"", "\" 1\"",
                            "\"0x1\"", "\"1e3\"", "\"99999999999999999999\"", "null"}) {
        EXPECT_EQ(outcomeOf(watch(R"({"progress":)" + std::string(bad) + "}")), "422 invalid-body")
            << bad;
    }
    EXPECT_EQ(outcomeOf(watch(R"({"progress":"007"})")), "204");
}

TEST_F(BodyTest, aTypeIsATextOfLimitedLength) {
    EXPECT_EQ(outcomeOf(watch(R"({"type":5})")), "422 invalid-body");
    EXPECT_EQ(outcomeOf(watch(R"({"type":")" + std::string(2049, 'x') + "\"}")),
              "422 invalid-body");
    EXPECT_EQ(outcomeOf(watch(R"({"type":")" + std::string(2048, 'x') + "\"}")), "204");
}

TEST_F(BodyTest, theDefaultOfAProfileIsNoText) {
    EXPECT_EQ(outcomeOf(client.call(parent, "POST", profilesTarget,
                                    R"({"username":"Anna","default":"true"})")),
              "422 invalid-body");
}

TEST_F(BodyTest, theTypeOfASearchIsTerm) {
    EXPECT_EQ(outcomeOf(client.call(parent, "POST", searchTarget, R"({"type":"term"})")),
              "422 invalid-body");
    EXPECT_EQ(outcomeOf(client.call(parent, "POST", searchTarget, R"({"type":"TERM"})")), "204");
}

TEST_F(BodyTest, theElementsAreObjectsWithIdentifiers) {
    const auto detail = [this](const std::string& body) {
        const auto reply = client.call(parent, "POST", showsTarget, body);
        EXPECT_EQ(outcomeOf(reply), "422 invalid-body") << body;
        return detailOf(reply);
    };
    EXPECT_EQ(detail("{}"), "the body lacks the key 'elements'");
    EXPECT_EQ(detail(R"({"elements":{}})"),
              "the body.elements is an object; expected is an array of objects");
    EXPECT_EQ(detail(R"({"elements":["a"]})"),
              "the body.elements[0] is \"a\"; expected is an object");
    EXPECT_EQ(detail(R"({"elements":[{"id":"a"},{"type":"SHOW"}]})"),
              "the body.elements[1] lacks the key 'id'");
    EXPECT_EQ(detail(R"({"elements":[{"id":"a","name":"b"}]})"),
              "the body.elements[0] has the unexpected key 'name'; known are 'id', 'type'");
}

TEST_F(BodyTest, operationsThatNeedABodySaySo) {
    for (const auto& [method, target] :
         {std::pair{"POST", profilesTarget}, std::pair{"PUT", "/v1/profile?target=parent&v=1"},
          std::pair{"POST", showsTarget}}) {
        EXPECT_EQ(outcomeOf(client.call(parent, method, target)), "400 missing-body") << target;
    }
}

TEST_F(BodyTest, operationsWithoutABodyRefuseOne) {
    for (const auto& [method, target] :
         {std::pair{"GET", profilesTarget}, std::pair{"DELETE", watchTarget},
          std::pair{"DELETE", "/v1/history?brand=b&profile=parent&v=1"}}) {
        EXPECT_EQ(outcomeOf(client.call(parent, method, target, "{}")), "400 unexpected-body")
            << target;
    }
}

TEST_F(BodyTest, theContentTypeIsJSON) {
    for (const char* good : {"application/json", "application/json; charset=utf-8",
                             "Application/JSON ; charset=UTF-8"}) {
        EXPECT_EQ(outcomeOf(withType(good, "{}")), "204") << good;
    }
    for (const char* bad : {"", "text/plain", "application/x-www-form-urlencoded",
                            "application/jsonp", "application/problem+json"}) {
        EXPECT_EQ(outcomeOf(withType(bad, "{}")), "415 unsupported-media-type") << bad;
    }
    EXPECT_EQ(outcomeOf(withType("", "")), "204") << "no body, no type";
}

TEST_F(BodyTest, aCompressedBodyIsRefused) {
    const auto encoded = [this](const std::string& encoding) {
        auto headers = parent.headers();
        headers.emplace_back("Content-Type", "application/json");
        headers.emplace_back("Content-Encoding", encoding);
        return client.http.send("PUT", watchTarget, headers, "{}");
    };
    const auto reply = encoded("gzip");
    EXPECT_EQ(outcomeOf(reply), "415 unsupported-media-type");
    EXPECT_EQ(detailOf(reply), "the body's Content-Encoding is 'gzip'; expected is none");
    EXPECT_EQ(outcomeOf(encoded("identity")), "204");
}

TEST_F(BodyTest, aNewProfileNeedsAName) {
    const auto reply = client.call(parent, "POST", profilesTarget, R"({"avatar":"cat"})");
    EXPECT_EQ(outcomeOf(reply), "422 invalid-name");
    EXPECT_EQ(detailOf(reply), "the body lacks the key 'username'; a new profile needs a name");
}

TEST_F(BodyTest, aKeyThatComesTwiceIsRefused) {
    for (const char* bad :
         {R"({"type":"a","type":"a"})", R"({"type":"a","type":"b"})",
          R"({"progress":"1","type":"a","progress":"2"})", R"({"type":"a","\u0074ype":"b"})"}) {
        EXPECT_EQ(outcomeOf(watch(bad)), "400 repeated-key") << bad;
    }
    EXPECT_EQ(detailOf(watch(R"({"type":"a","type":"b"})")),
              "the body has the key 'type' more than once");
    for (const char* bad :
         {R"({"elements":[],"elements":[{"id":"a"}]})", R"({"elements":[{"id":"a","id":"b"}]})",
          R"({"elements":[{"id":"a","type":"b","type":"c"}]})"}) {
        EXPECT_EQ(outcomeOf(client.call(parent, "POST", showsTarget, bad)), "400 repeated-key")
            << bad;
    }
    EXPECT_EQ(client.idsOf(parent, "/v1/favorites?brand=b&profile=parent&v=1"), "");
    EXPECT_EQ(outcomeOf(client.call(parent, "POST", profilesTarget,
                                    R"({"username":"A","username":"B"})")),
              "400 repeated-key");
    EXPECT_EQ(outcomeOf(client.http.send(
                  "POST", "/v1/binds?profile=parent&v=1",
                  {{"X-Household-Secret", service.secret()}, {"Content-Type", "application/json"}},
                  R"({"profileId":"parent","profileId":"other"})")),
              "400 repeated-key");
}

TEST_F(BodyTest, aZeroCharacterIsRefusedInEveryText) {
    const std::string favorites = "/v1/favorites?brand=b&profile=parent&v=1";
    for (const char* bad :
         {R"({"elements":[{"id":"a\u0000b"}]})", R"({"elements":[{"id":"\u0000"}]})",
          R"({"elements":[{"id":"a"},{"id":"b","type":"\u0000"}]})"}) {
        EXPECT_EQ(outcomeOf(client.call(parent, "POST", showsTarget, bad)), "400 zero-character")
            << bad;
    }
    EXPECT_EQ(client.idsOf(parent, favorites), "");
    EXPECT_EQ(
        detailOf(client.call(parent, "POST", showsTarget, R"({"elements":[{"id":"a\u0000b"}]})")),
        "the body.elements[0].id has a zero character, which no text may have");
    EXPECT_EQ(outcomeOf(watch(R"({"type":"a\u0000"})")), "400 zero-character");
    for (const char* key : {"username", "avatar", "group"}) {
        EXPECT_EQ(outcomeOf(client.call(parent, "PUT", "/v1/profile?target=parent&v=1",
                                        R"({")" + std::string(key) + R"(":"a\u0000b"})")),
                  "400 zero-character")
            << key;
    }
}

TEST_F(BodyTest, whatIsNotJSONIsRefusedAsThatWhateverElseIsWrong) {
    for (const char* bad : {R"({"type":5,)", R"({"color":1}})", R"({"type":"a","type":"b")"})
        EXPECT_EQ(outcomeOf(watch(bad)), "400 malformed-json") << bad;
}

TEST_F(BodyTest, deeplyNestedBodiesAreRefused) {
    EXPECT_EQ(outcomeOf(watch(std::string(10000, '['))), "400 malformed-json");
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
