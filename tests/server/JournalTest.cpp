// What the admin interface tells of the requests that came: found, counted, awaited, verified.
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <kestrin-profile-server/admin/Journal.hpp>

#include "AdminSupport.hpp"
#include "support/Waiting.hpp"

namespace KestrinProfileServer::Testing {
namespace {

namespace json = boost::json;
using testing::HasSubstr;
using testing::Not;

class JournalTest : public AdminClientTest {
  protected:
    HttpReply put(const std::string& video, const std::string& body = "") {
        return client.call(parent, "PUT", videoTarget(video), body);
    }
    static std::string videoTarget(const std::string& video) {
        return "/v1/history/video?video=" + video + "&brand=b&profile=parent&v=1";
    }
    json::value journal(const std::string& query = "") { return get("/admin/v1/journal" + query); }
    std::int64_t count(const std::string& filter) {
        return post("/admin/v1/journal/count", filter).at("count").as_int64();
    }
    std::int64_t waiting() {
        return get("/admin/v1/status").at("journal").at("waiting").as_int64();
    }
    /// Returns when so many wait for entries.
    void awaitWaiting(std::int64_t number) {
        EXPECT_TRUE(TestSupport::eventually([&] { return waiting() == number; }));
    }
    json::object verdict(const std::string& expectation) {
        return post("/admin/v1/journal/verify", expectation).as_object();
    }
};

TEST_F(JournalTest, aRequestIsThereAsSoonAsItsReplyHasCome) {
    for (int index = 0; index < 20; ++index) {
        put("v" + std::to_string(index));
        EXPECT_EQ(count(R"({"item": "v)" + std::to_string(index) + R"("})"), 1) << index;
    }
}

TEST_F(JournalTest, anEntrySaysWhatWasAskedAndAnswered) {
    client.http.send("PUT", videoTarget("v1"),
                     {{"Authorization", "JWT " + parent.token},
                      {"PXRO-PROFILE-ID", "parent"},
                      {"Content-Type", "application/json"},
                      {"X-Request-ID", "one-of-mine"}},
                     R"({"type":"VIDEO"})");
    const auto entry = get("/admin/v1/journal/2");
    EXPECT_EQ(entry.at("id"), 2);
    EXPECT_EQ(entry.at("requestId"), "one-of-mine");
    EXPECT_EQ(entry.at("method"), "PUT");
    EXPECT_EQ(entry.at("target").as_string(), videoTarget("v1"));
    EXPECT_EQ(entry.at("operation"), "personalization-history-add-video");
    EXPECT_EQ(entry.at("profile"), "parent");
    EXPECT_EQ(entry.at("household"), "household");
    EXPECT_EQ(entry.at("item"), "v1");
    EXPECT_EQ(entry.at("status"), 204);
    EXPECT_TRUE(entry.at("problem").is_null());
    EXPECT_TRUE(entry.at("fault").is_null());
    EXPECT_TRUE(entry.at("findings").as_array().empty());
    EXPECT_EQ(entry.at("request").at("body"), R"({"type":"VIDEO"})");
    EXPECT_EQ(entry.at("request").at("bodyBytes"), 16);
    EXPECT_EQ(entry.at("request").at("truncated"), false);
    EXPECT_TRUE(entry.at("reply").at("body").is_null());
    const std::string headers = json::serialize(entry.at("request").at("headers"));
    EXPECT_THAT(headers, HasSubstr(R"({"name":"PXRO-PROFILE-ID","value":"parent"})"));
    EXPECT_THAT(headers, HasSubstr("JWT ‹redacted›"));
    EXPECT_EQ(outcomeOf(client.http.send("GET", "/admin/v1/journal/3")), "404 unknown-item");
}

TEST_F(JournalTest, tokensAndSecretsAreNowhere) {
    client.http.send("POST", "/v1/binds?profile=" + parent.token + "&v=1",
                     {{"X-Household-Secret", service.secret()},
                      {"X-Other", "a " + parent.token + " in the middle"},
                      {"Content-Type", "application/json"}},
                     R"({"access_token": "very \"private\"", "x": {"Password":"hidden)");
    for (const char* path : {"/admin/v1/journal", "/admin/v1/journal/1", "/admin/v1/journal/2",
                             "/admin/v1/journal.har"}) {
        const std::string shown = client.http.send("GET", path).body;
        EXPECT_THAT(shown, HasSubstr("‹redacted›")) << path;
        for (const std::string& kept : {parent.token, parent.token.substr(10, 40), service.secret(),
                                        std::string("private"), std::string("hidden")}) {
            EXPECT_THAT(shown, Not(HasSubstr(kept))) << path;
        }
    }
    EXPECT_EQ(count(R"({"bodyContains": "hidden"})"), 0);
    EXPECT_EQ(count(R"({"bodyContains": ")" + parent.token.substr(10, 20) + R"("})"), 0);
}

TEST_F(JournalTest, everyConditionOfAFilterCounts) {
    put("v1", R"({"type":"VIDEO"})");
    put("v2");
    client.call(parent, "DELETE", videoTarget("v1"));
    client.call(parent, "GET", "/v1/history?brand=b&profile=parent&v=2");
    for (const auto& [filter, expected] : std::vector<std::pair<std::string, int>>{
             {R"({})", 5},
             {R"({"operation": "personalization-history-add-video"})", 2},
             {R"({"profile": "parent"})", 5},
             {R"({"profile": "other"})", 0},
             {R"({"household": "household"})", 4},
             {R"({"item": "v1"})", 2},
             {R"({"method": "PUT", "item": "v1"})", 1},
             {R"({"path": "/v1/history/video"})", 3},
             {R"({"status": 204})", 3},
             {R"({"status": "2xx"})", 4},
             {R"({"status": "4xx"})", 1},
             {R"({"problem": "missing-sentinel"})", 1},
             {R"({"problem": "urn:kestrin-profile:problem:missing-sentinel"})", 1},
             {R"({"bodyContains": "VIDEO"})", 1},
             {R"({"since": 3})", 2}}) {
        EXPECT_EQ(count(filter), expected) << filter;
    }
    const auto found = journal("?method=PUT&order=oldest&limit=1");
    EXPECT_EQ(found.at("total"), 2);
    ASSERT_EQ(found.at("entries").as_array().size(), 1U);
    EXPECT_EQ(found.at("entries").at(0).at("item"), "v1");
    EXPECT_EQ(journal("?method=PUT").at("entries").at(0).at("item"), "v2");
}

TEST_F(JournalTest, whatCannotBeAFilterIsNamed) {
    for (const auto& [body, words] : std::vector<std::pair<std::string, std::string>>{
             {R"({"itme": "v1"})", "'itme'; did you mean \"item\"?"},
             {R"({"item": 1.5})", "the body.item is 1.5E0; expected is a text"},
             {R"({"status": "2x"})", "status is '2x'"},
             {R"({"since": "last"})", "since is 'last'"},
             {R"([])", "the body is no object"}}) {
        const auto reply = send("POST", "/admin/v1/journal/count", body);
        EXPECT_EQ(outcomeOf(reply), "400 invalid-request") << body;
        EXPECT_THAT(detailOf(reply), HasSubstr(words)) << body;
    }
    for (const char* query : {"?limit=x", "?limit=-1", "?order=best", "?status=abc"})
        EXPECT_EQ(outcomeOf(client.http.send("GET", std::string("/admin/v1/journal") + query)),
                  "400 invalid-request")
            << query;
    for (const char* body : {R"({"item": "v"})", R"({"exactly": 1, "atMost": 2})"})
        EXPECT_EQ(outcomeOf(send("POST", "/admin/v1/journal/verify", body)), "400 invalid-request");
}

TEST_F(JournalTest, whatWasExpectedIsVerified) {
    put("v1");
    put("v1");
    for (const auto& [bound, isSatisfied] :
         std::vector<std::pair<std::string, bool>>{{R"("exactly": 2)", true},
                                                   {R"("exactly": 1)", false},
                                                   {R"("exactly": 3)", false},
                                                   {R"("atLeast": 2)", true},
                                                   {R"("atLeast": 3)", false},
                                                   {R"("atMost": 2)", true},
                                                   {R"("atMost": 1)", false}}) {
        const auto found = verdict(R"({"method": "PUT", "item": "v1", )" + bound + "}");
        EXPECT_EQ(found.at("satisfied"), isSatisfied) << bound;
        EXPECT_EQ(found.at("count"), 2) << bound;
    }
    EXPECT_EQ(verdict(R"({"item": "v1", "atMost": 1})").at("expected"), "at most 1");
}

TEST_F(JournalTest, whatCameNearestIsToldFieldByField) {
    put("v2");
    client.call(parent, "DELETE", videoTarget("v1"));
    const auto found = verdict(
        R"({"operation": "personalization-history-add-video", "method": "PUT", "item": "v1",
            "status": 204, "exactly": 1})");
    EXPECT_EQ(found.at("satisfied"), false);
    const auto& misses = found.at("nearMisses").as_array();
    ASSERT_EQ(misses.size(), 3U);
    EXPECT_EQ(misses[0].at("entry").at("id"), 2);
    EXPECT_EQ(json::serialize(misses[0].at("differences")),
              R"([{"field":"item","expected":"v1","actual":"v2"}])");
    EXPECT_EQ(misses[1].at("entry").at("id"), 3);
    EXPECT_EQ(json::serialize(misses[1].at("differences")),
              R"([{"field":"operation","expected":"personalization-history-add-video",)"
              R"("actual":"personalization-history-delete-video"},)"
              R"({"field":"method","expected":"PUT","actual":"DELETE"}])");
    EXPECT_EQ(misses[2].at("entry").at("operation"), "personalization-bind-anonymous");
    EXPECT_TRUE(verdict(R"({"item": "v2", "exactly": 0})").at("nearMisses").as_array().empty());
}

TEST_F(JournalTest, waitingEndsWhenEnoughHasCome) {
    put("v1");
    std::thread waiter([&] {
        AdminCaller other(service.baseURL());
        const auto waited = other.post("/admin/v1/journal/wait",
                                       R"({"method": "PUT", "count": 3, "timeoutSeconds": 3600})");
        EXPECT_EQ(waited.at("satisfied"), true);
        EXPECT_EQ(waited.at("count"), 3);
    });
    awaitWaiting(1);
    put("v2");
    put("v3");
    waiter.join();
    EXPECT_EQ(waiting(), 0) << "who has an answer is forgotten";
    const auto present =
        post("/admin/v1/journal/wait", R"({"method": "PUT", "count": 3, "timeoutSeconds": 3600})");
    EXPECT_EQ(present.at("satisfied"), true);
    EXPECT_EQ(waiting(), 0);
}

TEST_F(JournalTest, waitingOccupiesNoThreadAndEndsInTime) {
    // As many as the service has threads, and more.
    std::vector<std::thread> waiters;
    for (int index = 0; index < 5; ++index) {
        waiters.emplace_back([&] {
            AdminCaller other(service.baseURL());
            const auto waited =
                other.post("/admin/v1/journal/wait", R"({"item": "last", "timeoutSeconds": 3600})");
            EXPECT_EQ(waited.at("satisfied"), true);
        });
    }
    awaitWaiting(5);
    put("last");
    for (auto& waiter : waiters)
        waiter.join();
    const auto late = post("/admin/v1/journal/wait", R"({"item": "never", "timeoutSeconds": 0})");
    EXPECT_EQ(late.at("satisfied"), false);
    EXPECT_EQ(late.at("count"), 0);
    EXPECT_EQ(waiting(), 0);
}

TEST_F(JournalTest, aServiceThatStopsLetsNobodyWait) {
    std::thread waiter([&] {
        AdminCaller other(service.baseURL());
        const auto waited =
            other.post("/admin/v1/journal/wait", R"({"item": "never", "timeoutSeconds": 3600})");
        EXPECT_EQ(waited.at("satisfied"), false);
    });
    awaitWaiting(1);
    service.stop();
    waiter.join();
}

TEST_F(JournalTest, isExportedAsAnArchive) {
    put("v1", R"({"type":"VIDEO"})");
    const auto log = get("/admin/v1/journal.har").at("log");
    EXPECT_EQ(log.at("version"), "1.2");
    const auto& entry = log.at("entries").at(1);
    EXPECT_EQ(entry.at("request").at("url").as_string(), service.baseURL() + videoTarget("v1"));
    EXPECT_EQ(entry.at("request").at("postData").at("text"), R"({"type":"VIDEO"})");
    EXPECT_EQ(entry.at("request").at("postData").at("mimeType"), "application/json");
    EXPECT_EQ(entry.at("response").at("status"), 204);
    EXPECT_EQ(entry.at("response").at("statusText"), "No Content");
    for (const char* member :
         {"startedDateTime", "time", "request", "response", "cache", "timings"})
        EXPECT_TRUE(entry.as_object().contains(member)) << member;
}

TEST_F(JournalTest, ofAnArchiveOnlyWhatMatchesIsExported) {
    put("v1");
    put("v2");
    const auto log = get("/admin/v1/journal.har?item=v2&method=PUT").at("log");
    ASSERT_EQ(log.at("entries").as_array().size(), 1U);
    EXPECT_EQ(log.at("entries").at(0).at("request").at("url").as_string(),
              service.baseURL() + videoTarget("v2"));
    EXPECT_TRUE(get("/admin/v1/journal.har?item=v3").at("log").at("entries").as_array().empty());
    EXPECT_EQ(outcomeOf(send("GET", "/admin/v1/journal.har?limit=1")), "400 unknown-parameter");
    EXPECT_EQ(outcomeOf(send("HEAD", "/admin/v1/journal.har")), "200");
}

TEST_F(JournalTest, anArchiveMayBeLargerThanTheMemoryForReplies) {
    constexpr std::size_t memory = std::size_t{256} * 1024;
    constexpr std::size_t requests = 10;
    service.restart([](ServiceSettings& settings) { settings.http.memoryLimit = memory; });
    AdminCaller other(service.baseURL());
    HttpClient http(service.baseURL());
    for (std::size_t index = 0; index < requests; ++index)
        http.send("PUT", videoTarget("v"), {{"Content-Type", "application/json"}},
                  // Each is six characters in JSON.
                  std::string(30'000, '\x01'));
    const std::string archive = other.send("GET", "/admin/v1/journal.har").body;
    EXPECT_GT(archive.size(), memory);
    EXPECT_EQ(json::parse(archive).at("log").at("entries").as_array().size(), requests);
    const std::string old =
        sendRaw(service.baseURL(), "GET /admin/v1/journal.har HTTP/1.0\r\nHost: 127.0.0.1:" +
                                       std::to_string(portIn(service.baseURL())) + "\r\n\r\n");
    EXPECT_EQ(old.substr(old.find("\r\n\r\n") + 4), archive) << "as a client without chunks has it";
}

TEST_F(JournalTest, aBodyThatIsNoTextIsShownInBase64) {
    put("v1", "\xFF\xFE{}");
    const auto request = get("/admin/v1/journal/2").at("request");
    EXPECT_TRUE(request.at("body").is_null());
    EXPECT_EQ(request.at("bodyBase64"), "//57fQ==");
}

TEST_F(JournalTest, isEmptiedOnRequestAndGoesOnCounting) {
    put("v1");
    EXPECT_EQ(outcomeOf(send("DELETE", "/admin/v1/journal")), "204");
    EXPECT_EQ(journal().at("total"), 0);
    put("v2");
    EXPECT_EQ(journal().at("entries").at(0).at("id"), 3);
    EXPECT_EQ(get("/admin/v1/status").at("journal").at("entries"), 1);
}

TEST_F(JournalTest, holdsWhatCouldNotBeRead) {
    sendRaw(service.baseURL(), "GET /v1/history HTTP/1.1\r\nX-Request-ID: mine\r\n\r\n");
    const auto entry = journal().at("entries").at(0);
    EXPECT_EQ(entry.at("problem"), "urn:kestrin-profile:problem:malformed-request");
    EXPECT_EQ(entry.at("requestId"), "mine");
}

TEST_F(JournalTest, holdsNeitherItselfNorTheQuestionWhetherTheServiceLives) {
    client.http.send("GET", "/healthz");
    client.http.send("GET", "/openapi.json");
    EXPECT_EQ(journal().at("total"), 1);
    client.http.send("GET", "/v1/unknown");
    EXPECT_EQ(journal().at("total"), 2);
}

// The bounds.

Exchange exchangeOf(const std::string& item) {
    Exchange exchange;
    exchange.method = "PUT";
    exchange.target = "/v1/history/video?video=" + item + "&brand=b&profile=p&v=1";
    exchange.status = 204;
    return exchange;
}

TEST(JournalBoundsTest, theOldestEntriesGoFirst) {
    Journal journal(std::make_shared<JournalMemory>(), {.entries = 3, .bodyBytes = 100});
    for (const char* item : {"a", "b", "c", "d", "e"})
        journal.record(exchangeOf(item), "", {});
    EXPECT_EQ(journal.counts().entries, 3U);
    EXPECT_EQ(journal.counts().dropped, 2U);
    EXPECT_EQ(journal.entries().front().id, 3);
    EXPECT_FALSE(journal.entry(2));
    EXPECT_TRUE(journal.entry(3));
    EXPECT_FALSE(journal.entry(6));
}

TEST(TextBlocksTest, textsStayAsTheyAreWhateverComesAndGoes) {
    TextBlocks blocks;
    const auto textOf = [](std::size_t index) {
        return std::string(1 + index * 97 % 5000, static_cast<char>('a' + index % 26));
    };
    constexpr std::size_t count = 1000;
    std::vector<KeptText> texts;
    for (std::size_t index = 0; index < count; ++index)
        texts.push_back(blocks.keep(textOf(index)));
    for (std::size_t index = 0; index < count; index += 2)
        texts[index] = {};
    for (std::size_t index = 1; index < count; index += 2)
        EXPECT_EQ(texts[index].text(), textOf(index));
    EXPECT_FALSE(texts[0].isKept());
}

TEST(TextBlocksTest, ofAnEmptyTextNothingIsKeptAndALongOneHasRoom) {
    TextBlocks blocks;
    EXPECT_FALSE(blocks.keep("").isKept());
    const std::string text(1'000'000, 'x');
    const KeptText before = blocks.keep("before");
    const KeptText kept = blocks.keep(text);
    const KeptText after = blocks.keep("after");
    EXPECT_EQ(before.text(), "before");
    EXPECT_EQ(kept.text(), text);
    EXPECT_EQ(after.text(), "after");
}

TEST(JournalBoundsTest, theOldestBodiesMakeRoomBeforeEntriesDo) {
    Journal journal(std::make_shared<JournalMemory>(50'000),
                    {.entries = 1000, .bodyBytes = 10'000});
    for (int index = 0; index < 20; ++index)
        journal.record(exchangeOf("v"), std::string(5000, 'x'), {});
    EXPECT_EQ(journal.counts().entries, 20U);
    EXPECT_LE(journal.counts().bytes, 50'000U);
    EXPECT_EQ(entryJSON(*journal.entry(1)).at("request").at("truncated"), true);
    EXPECT_TRUE(entryJSON(*journal.entry(1)).at("request").at("body").is_null());
    EXPECT_EQ(entryJSON(*journal.entry(20)).at("request").at("body").as_string().size(), 5000U);
    for (int index = 0; index < 500; ++index)
        journal.record(exchangeOf("v"), "", {});
    EXPECT_LE(journal.counts().bytes, 50'000U);
    EXPECT_GT(journal.counts().dropped, 0U);
}

TEST(JournalBoundsTest, ofSeveralTheOneThatHoldsMostMakesRoom) {
    const auto memory = std::make_shared<JournalMemory>(50'000);
    Journal large(memory);
    Journal small(memory);
    small.record(exchangeOf("v"), std::string(1000, 'x'), {});
    for (int index = 0; index < 20; ++index) {
        large.record(exchangeOf("v"), std::string(5000, 'x'), {});
        EXPECT_LE(large.counts().bytes + small.counts().bytes, 50'000U);
    }
    EXPECT_GT(large.counts().bytes, 40'000U) << "what the other one does not need";
    for (int index = 0; index < 5; ++index)
        small.record(exchangeOf("v"), std::string(3000, 'x'), {});
    EXPECT_LE(large.counts().bytes + small.counts().bytes, 50'000U);
    EXPECT_TRUE(small.entry(1)->requestBody.isKept()) << "it holds less than the other one";
    {
        Journal third(memory);
        third.record(exchangeOf("v"), std::string(20'000, 'x'), {});
    }
    large.clear();
    for (int index = 0; index < 6; ++index)
        small.record(exchangeOf("v"), std::string(4000, 'x'), {});
    EXPECT_TRUE(small.entry(1)->requestBody.isKept()) << "what others held is free again";
}

TEST(JournalBoundsTest, whoHasWaitedIsForgotten) {
    Journal journal(std::make_shared<JournalMemory>());
    std::vector<std::pair<bool, std::size_t>> answers;
    const auto note = [&](bool isSatisfied, std::size_t count) {
        answers.emplace_back(isSatisfied, count);
    };
    const auto satisfied = journal.wait({}, 1, note);
    const auto expired = journal.wait({}, 5, note);
    EXPECT_EQ(journal.counts().waiting, 2U);
    journal.record(exchangeOf("v"), "", {});
    EXPECT_TRUE(satisfied.expired());
    expired.lock()->expire();
    EXPECT_TRUE(expired.expired());
    EXPECT_EQ(journal.counts().waiting, 0U);
    journal.record(exchangeOf("v"), "", {});
    EXPECT_EQ(answers, (std::vector<std::pair<bool, std::size_t>>{{true, 1}, {false, 1}}));
}

TEST(JournalBoundsTest, ofALongBodyTheBeginningIsKept) {
    Journal journal(std::make_shared<JournalMemory>(), {.entries = 10, .bodyBytes = 5});
    journal.record(exchangeOf("v"), "aääää", {});
    const auto request = entryJSON(*journal.entry(1)).at("request");
    EXPECT_EQ(request.at("body"), "aää");
    EXPECT_EQ(request.at("bodyBytes"), 9);
    EXPECT_EQ(request.at("truncated"), true);
}

TEST(JournalBoundsTest, aHundredThousandUsualRequestsFit) {
    Journal journal(std::make_shared<JournalMemory>());
    for (int index = 0; index < 100'000; ++index) {
        Exchange exchange = exchangeOf("5f0c1a77-video-1000000000");
        exchange.requestID = std::string(32, 'a');
        exchange.requestHeaders = ShownHeaders({{"Host", "127.0.0.1:8480"},
                                                {"Authorization", "JWT " + std::string(200, 'x')},
                                                {"PXRO-PROFILE-ID", std::string(32, 'p')},
                                                {"X-Request-ID", std::string(32, 'a')},
                                                {"Content-Type", "application/json"},
                                                {"Content-Length", "53"}});
        journal.record(std::move(exchange), std::string(53, 'b'), {});
    }
    EXPECT_EQ(journal.counts().entries, 100'000U);
    EXPECT_EQ(journal.counts().dropped, 0U);
    EXPECT_LE(journal.counts().bytes, 100'000'000U);
    EXPECT_TRUE(journal.entry(1)->requestBody.isKept());
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
