// The log of the requests, and the id that leads from a client's error to its line.
#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

namespace json = boost::json;
using testing::HasSubstr;
using testing::MatchesRegex;

class LogTest : public testing::Test {
  protected:
    /// The lines of the log of what the use does.
    template <class Use>
    std::vector<std::string> linesOf(const std::vector<std::string>& options, const Use& use) {
        std::vector<std::string> arguments{"--database",     (folder / "profiles.sqlite").string(),
                                           "--port",         "0",
                                           "--write-config", configuration.string()};
        arguments.insert(arguments.end(), options.begin(), options.end());
        auto process = startServer(arguments);
        HouseholdClient client = householdClient(process, configuration);
        use(client);
        process.signal(SIGTERM);
        process.wait();
        std::vector<std::string> lines;
        std::istringstream log(process.errors());
        for (std::string line; std::getline(log, line);)
            lines.push_back(line);
        return lines;
    }

    TestSupport::TemporaryDirectory folder;
    std::filesystem::path configuration = folder / "configuration.json";
};

constexpr const char* kept = "/v1/history?brand=b&profile=parent&v=1";

TEST_F(LogTest, namesOperationProfileProblemAndRequest) {
    const auto lines = linesOf({}, [](HouseholdClient& client) {
        const Caller parent = client.bind("parent");
        auto headers = parent.headers();
        headers.emplace_back("X-Request-ID", "0123abc");
        client.http.send("GET", kept, headers);
        client.http.send("GET", kept, {{"x-request-id", "4567def"}});
    });
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[1], HasSubstr(" GET /v1/history 200 "));
    EXPECT_THAT(lines[1], HasSubstr(" ms operation=personalization-history-get profile=parent"
                                    " id=0123abc"));
    EXPECT_THAT(lines[2], HasSubstr(" profile=parent problem=token-required id=4567def"));
}

TEST_F(LogTest, isAnObjectALineForPrograms) {
    const auto lines = linesOf({"--log-format", "json"}, [](HouseholdClient& client) {
        client.bind("parent");
        client.http.send("GET", "/nowhere\xE2\x80\xAE", {{"X-Request-ID", "a-b"}});
    });
    ASSERT_EQ(lines.size(), 2U);
    const auto bind = json::parse(lines[0]);
    EXPECT_EQ(bind.at("operation"), "personalization-bind-anonymous");
    EXPECT_EQ(bind.at("profile"), "parent");
    EXPECT_EQ(bind.at("household"), "household");
    EXPECT_EQ(bind.at("status"), 200);
    EXPECT_TRUE(bind.at("problem").is_null());
    EXPECT_TRUE(bind.at("milliseconds").is_double());
    const auto other = json::parse(lines[1]);
    EXPECT_EQ(other.at("path"), "/nowhere\\u202e");
    EXPECT_EQ(other.at("problem"), "unknown-path");
    EXPECT_EQ(other.at("requestId"), "a-b");
}

TEST_F(LogTest, tellsWhatIsSuspiciousIfAskedTo) {
    const auto lines = linesOf({"--strict"}, [](HouseholdClient& client) {
        const Caller parent = client.bind("parent");
        client.call(parent, "PUT", "/v1/history/video?video=v&brand=b&profile=parent&v=1",
                    R"({"progress":"007"})");
    });
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_THAT(lines[1], HasSubstr(" finding=padded-number (the body.progress is '007'"));
}

TEST_F(LogTest, anUnknownFormatIsRefused) {
    auto process = startServer({"--log-format", "xml"});
    EXPECT_EQ(process.wait(), 2);
    EXPECT_THAT(process.errors(), HasSubstr("--log-format"));
}

TEST(RequestIDTest, isThatOfTheClientInTheReplyAndTheProblem) {
    TestService service;
    HttpClient client(service.baseURL());
    const auto reply = client.send("GET", kept, {{"X-Request-ID", "Mine.1_2-3"}});
    EXPECT_EQ(reply.headers.at("x-request-id"), "Mine.1_2-3");
    EXPECT_EQ(reply.json().at("requestId"), "Mine.1_2-3");
    EXPECT_EQ(client.send("GET", "/healthz", {{"X-Request-ID", "a"}}).headers.at("x-request-id"),
              "a");
}

TEST(RequestIDTest, isOneOfOursIfTheClientHasNoneThatCanBeShown) {
    TestService service;
    HttpClient client(service.baseURL());
    std::string last;
    for (const std::string& sent : {std::string(), std::string("two words"),
                                    std::string("a\xC2\x9B"), std::string(65, 'a')}) {
        const auto reply = client.send(
            "GET", kept, sent.empty() ? HeaderLines{} : HeaderLines{{"X-Request-ID", sent}});
        const std::string id = reply.headers.at("x-request-id");
        EXPECT_THAT(id, MatchesRegex("[0-9a-f]{32}")) << sent;
        EXPECT_NE(id, last);
        EXPECT_EQ(reply.json().at("requestId").as_string(), id);
        last = id;
    }
}

TEST(RequestIDTest, isThereAlsoIfTheRequestCannotBeRead) {
    TestService service;
    const std::string answer =
        sendRaw(service.baseURL(), "GET / HTTP/1.1\r\nX-Request-ID: mine\r\n\r\n");
    EXPECT_EQ(outcomeOfRaw(answer), "400 malformed-request");
    EXPECT_THAT(answer, HasSubstr("X-Request-ID: mine\r\n"));
    EXPECT_THAT(answer, HasSubstr(R"("requestId":"mine"})"));
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
