// What is legal but suspicious is told, if the service is asked to.
#include <optional>
#include <string>

#include <gmock/gmock.h>

#include "AdminSupport.hpp"

namespace KestrinProfileServer::Testing {
namespace {

class StrictTest : public AdminClientTest {
  protected:
    StrictTest() {
        service.restart([](ServiceSettings& settings) { settings.isStrict = true; });
        strict.emplace(service.baseURL(), service.secret());
        caller.emplace(service.baseURL());
        bound = strict->bind("parent");
    }

    static std::string videoTarget(const std::string& video) {
        return "/v1/history/video?video=" + video + "&brand=b&profile=parent&v=1";
    }
    HttpReply put(const std::string& video, const std::string& body = "") {
        return strict->call(bound, "PUT", videoTarget(video), body);
    }

    /// The codes of what was found about the last request.
    std::string found() {
        std::string codes;
        const auto entries = caller->get("/admin/v1/journal?limit=1").at("entries");
        for (const auto& finding : entries.at(0).at("findings").as_array()) {
            EXPECT_FALSE(finding.at("detail").as_string().empty());
            codes += std::string(finding.at("code").as_string()) + " ";
        }
        return codes;
    }

    std::optional<HouseholdClient> strict;
    std::optional<AdminCaller> caller;
    Caller bound;
};

TEST_F(StrictTest, aUsualRequestIsNotSuspicious) {
    put("v1", R"({"isCompleted": "true", "type": "VIDEO", "progress": "0"})");
    EXPECT_EQ(found(), "");
    put("v2", R"({"progress": "10"})");
    EXPECT_EQ(found(), "");
    strict->call(bound, "POST", "/v1/searches?search=a&brand=b&profile=parent&v=1",
                 R"({"type":"TERM"})");
    EXPECT_EQ(found(), "");
    EXPECT_EQ(caller->get("/admin/v1/status").at("strict"), true);
}

TEST_F(StrictTest, bodiesThatNoClientOfOursSendsAreFound) {
    put("v1", R"({"type": "Video"})");
    EXPECT_EQ(found(), "unknown-type ");
    put("v1", R"({"progress": "007"})");
    EXPECT_EQ(found(), "padded-number ");
    strict->call(bound, "POST", "/v1/favorites/shows?brand=b&profile=parent&v=1",
                 R"({"elements": [{"id": "a", "type": "movie"}, {"id": "b"}, {"id": "a"}]})");
    EXPECT_EQ(found(), "unknown-type repeated-element ");
}

TEST_F(StrictTest, aKeyThatComesTwiceIsRefusedWithOrWithoutIt) {
    const std::string body = R"({"progress": "1", "progress": "2"})";
    EXPECT_EQ(outcomeOf(put("v1", body)), "400 repeated-key");
    EXPECT_EQ(found(), "");
    TestService lenient;
    HouseholdClient other = lenient.client();
    const Caller mum = other.bind("parent");
    EXPECT_EQ(outcomeOf(other.call(mum, "PUT", videoTarget("v1"), body)), "400 repeated-key");
}

TEST_F(StrictTest, whatWasRefusedIsNotSuspiciousBeside) {
    EXPECT_EQ(outcomeOf(put("", R"({"type": "Video"})")), "422 invalid-entry");
    EXPECT_EQ(found(), "");
}

TEST_F(StrictTest, theSameWriteTwiceInARowIsFound) {
    put("v1", R"({"progress": "1"})");
    put("v1", R"({"progress": "2"})");
    EXPECT_EQ(found(), "");
    strict->call(bound, "GET", "/v1/history?brand=b&profile=parent&v=1");
    put("v1", R"({"progress": "2"})");
    EXPECT_EQ(found(), "repeated-write ");
    put("v2", R"({"progress": "2"})");
    EXPECT_EQ(found(), "");
}

TEST_F(StrictTest, aBindForEveryRequestIsFound) {
    for (int index = 0; index < 2; ++index) {
        strict->call(bound, "GET", "/v1/history?brand=b&profile=parent&v=1");
        strict->bind("parent");
    }
    EXPECT_EQ(found(), "bind-for-every-request ");
    for (int index = 0; index < 2; ++index)
        strict->call(bound, "GET", "/v1/history?brand=b&profile=parent&v=1");
    strict->bind("parent");
    EXPECT_EQ(found(), "");
}

TEST_F(AdminClientTest, nothingIsSuspiciousUnlessTheServiceIsStrict) {
    client.call(parent, "PUT", "/v1/history/video?video=v&brand=b&profile=parent&v=1",
                R"({"type": "Video", "progress": "007"})");
    EXPECT_TRUE(get("/admin/v1/journal/2").at("findings").as_array().empty());
    EXPECT_EQ(get("/admin/v1/status").at("strict"), false);
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
