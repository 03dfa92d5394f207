// Faults that are set through the admin interface, as clients meet them.
#include <deque>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <kestrin-profile-server/admin/Faults.hpp>

#include "AdminSupport.hpp"

namespace KestrinProfileServer::Testing {
namespace {

namespace json = boost::json;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* history = "/v1/history?brand=b&profile=parent&v=1";

class InjectedFaultTest : public AdminClientTest {
  protected:
    static std::string action(const std::string& members) {
        return R"({"action": {)" + members + "}}";
    }
    static std::string videoTarget(const std::string& video) {
        return "/v1/history/video?video=" + video + "&brand=b&profile=parent&v=1";
    }

    /// What comes back for a request, byte for byte, until the service closes.
    std::string raw(const std::string& method, const std::string& target) {
        return sendRaw(service.baseURL(), method + " " + target +
                                              " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n"
                                              "Authorization: JWT " +
                                              parent.token + "\r\nPXRO-PROFILE-ID: parent\r\n\r\n");
    }

    /// The videos in the history, once no fault is set any more.
    std::string stored() {
        send("DELETE", "/admin/v1/faults");
        return client.idsOf(parent, history);
    }

    json::value lastEntry() {
        const auto entries = get("/admin/v1/journal?limit=1").at("entries");
        return entries.at(0);
    }
};

TEST_F(InjectedFaultTest, aStatusIsAnsweredInThePlaceOfTheWork) {
    const auto fault = setFault(
        R"({"name": "down", "action": {"kind": "status", "status": 503, "retryAfter": 7}})");
    const auto reply = client.call(parent, "PUT", videoTarget("v"));
    EXPECT_EQ(reply.status, 503);
    EXPECT_EQ(reply.headers.at("retry-after"), "7");
    EXPECT_EQ(reply.headers.at("content-type"), "application/problem+json");
    EXPECT_EQ(reply.json().at("type"), "about:blank");
    EXPECT_EQ(lastEntry().at("fault"), fault.at("id"));
    EXPECT_EQ(get("/admin/v1/faults").at("faults").at(0).at("used"), 1);
    EXPECT_EQ(stored(), "");
}

TEST_F(InjectedFaultTest, aStatusHasTheBodyThatItIsGiven) {
    setFault(action(
        R"("kind": "status", "status": 418, "contentType": "text/plain", "body": "short and stout")"));
    const auto reply = client.call(parent, "GET", history);
    EXPECT_EQ(reply.status, 418);
    EXPECT_EQ(reply.body, "short and stout");
    EXPECT_EQ(reply.headers.at("content-type"), "text/plain");
}

TEST_F(InjectedFaultTest, aSuccessInThePlaceOfASuccessCostsNoWrite) {
    setFault(action(R"("kind": "status", "status": 200, "body": "<html>")"));
    const auto reply = client.call(parent, "PUT", videoTarget("v"));
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.body, "<html>");
    EXPECT_EQ(client.call(parent, "PUT", videoTarget("")).status, 422);
    EXPECT_EQ(stored(), "v");
}

TEST_F(InjectedFaultTest, aResetBeforeTheWorkLeavesItUndone) {
    for (const char* kind : {"resetBefore", "refuse"}) {
        setFault(action(R"("kind": ")" + std::string(kind) + "\""));
        EXPECT_EQ(raw("PUT", videoTarget("v")), "") << kind;
        EXPECT_TRUE(lastEntry().at("status").is_null());
        EXPECT_EQ(stored(), "") << kind;
    }
}

TEST_F(InjectedFaultTest, aResetAfterTheWorkLeavesItDone) {
    setFault(action(R"("kind": "resetAfter")"));
    EXPECT_EQ(raw("PUT", videoTarget("v")), "");
    EXPECT_TRUE(lastEntry().at("status").is_null());
    EXPECT_EQ(stored(), "v");
}

TEST_F(InjectedFaultTest, aResetInTheMiddleLeavesHalfOfTheReply) {
    const std::string whole = raw("GET", history);
    setFault(action(R"("kind": "resetMiddle")"));
    const std::string half = raw("GET", history);
    EXPECT_LE(half.size(), whole.size() / 2 + 1);
    EXPECT_THAT(half, testing::AnyOf(testing::IsEmpty(), StartsWith("HTTP/1.1 200 OK")));
    EXPECT_EQ(lastEntry().at("status"), 200);
}

TEST_F(InjectedFaultTest, aCutReplyEndsInGoodOrderAndTooEarly) {
    client.call(parent, "PUT", videoTarget("v"));
    setFault(action(R"("kind": "truncate", "bytes": 10)"));
    EXPECT_THAT(raw("GET", history), EndsWith("\r\n\r\n{\"id\":\"his"));
    const std::string empty = raw("PUT", videoTarget("w"));
    EXPECT_THAT(empty, StartsWith("HTTP/1.1 204 No Content"));
    EXPECT_THAT(empty, EndsWith("\r\n\r")) << "a reply without a body lacks the end of its head";
    EXPECT_EQ(stored(), "w v");
}

TEST_F(InjectedFaultTest, aSlowReplyIsWhole) {
    const std::string whole = raw("GET", history);
    setFault(action(R"("kind": "throttle", "bytesPerSecond": 1000)"));
    EXPECT_EQ(raw("GET", history).size(), whole.size());
}

TEST_F(InjectedFaultTest, aLateReplyOccupiesNoThreadAndIsAsUsual) {
    client.call(parent, "PUT", videoTarget("v"));
    setFault(
        R"({"when": {"method": "GET"}, "action": {"kind": "delay", "milliseconds": 3600000}})");
    std::deque<RawClient> late;
    for (int index = 0; index < 5; ++index) {
        late.emplace_back(service.baseURL())
            .send("GET " + std::string(history) + " HTTP/1.1\r\nHost: x\r\nAuthorization: JWT " +
                  parent.token + "\r\nPXRO-PROFILE-ID: parent\r\n\r\n");
    }
    EXPECT_EQ(client.call(parent, "PUT", videoTarget("w")).status, 204);
    EXPECT_EQ(get("/admin/v1/journal?method=GET").at("total"), 0)
        << "what is late is in the journal once it is answered";
    EXPECT_EQ(outcomeOf(send("DELETE", "/admin/v1/faults")), "204");
    EXPECT_EQ(client.idsOf(parent, history), "w v");
    // Who stops does not wait for an hour.
    service.restart();
}

TEST_F(InjectedFaultTest, aDelayIsKept) {
    setFault(action(R"("kind": "delay", "milliseconds": 30, "jitterMilliseconds": 5)"));
    EXPECT_EQ(client.call(parent, "GET", history).status, 200);
    EXPECT_GE(lastEntry().at("milliseconds").as_double(), 30);
}

TEST_F(InjectedFaultTest, aMalformedBodyIsNoJSON) {
    setFault(action(R"("kind": "malformed")"));
    const auto reply = client.call(parent, "GET", history);
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.headers.at("content-type"), "application/json");
    EXPECT_THROW(static_cast<void>(reply.json()), std::exception);
    EXPECT_EQ(client.call(parent, "PUT", videoTarget("v")).status, 200);
    EXPECT_EQ(stored(), "v");
}

TEST_F(InjectedFaultTest, aContentTypeIsReplaced) {
    setFault(action(R"("kind": "contentType", "contentType": "text/html")"));
    const auto reply = client.call(parent, "GET", history);
    EXPECT_EQ(reply.headers.at("content-type"), "text/html");
    EXPECT_EQ(reply.json().at("id"), "history");
}

TEST_F(InjectedFaultTest, tokensAreRefusedWhereThereAreSome) {
    for (const auto& [kind, words] : std::vector<std::pair<std::string, std::string>>{
             {"expiredToken", "has expired"}, {"revokedToken", "does not exist any more"}}) {
        setFault(action(R"("kind": ")" + kind + "\""));
        const auto reply = client.call(parent, "GET", history);
        EXPECT_EQ(outcomeOf(reply), "403 token-refused");
        EXPECT_THAT(detailOf(reply), HasSubstr(words));
        EXPECT_EQ(outcomeOf(client.tryBind("parent")), "200");
        send("DELETE", "/admin/v1/faults");
    }
}

TEST_F(InjectedFaultTest, anotherTimeIsInTheDateTheEntriesAndTheTokens) {
    setFault(action(R"("kind": "clockSkew", "seconds": -86400)"));
    const auto reply = client.call(parent, "PUT", videoTarget("v"));
    EXPECT_EQ(reply.headers.at("date"), "Wed, 08 Mar 2017 18:25:43 GMT");
    const auto list = client.call(parent, "GET", history).json();
    EXPECT_EQ(list.at("elements").at(0).at("autoAddTimestamp"), "2017-03-08T18:25:43.511Z");
    const Caller yesterdays = client.bind("parent");
    send("DELETE", "/admin/v1/faults");
    EXPECT_EQ(outcomeOf(client.call(yesterdays, "GET", history)), "403 token-refused");
}

TEST_F(InjectedFaultTest, actsWhereItsConditionsSay) {
    const Caller kid = client.create(parent, "Anna");
    const auto failsFor = [&](const Caller& caller, const std::string& method) {
        return client
                   .call(caller, method, "/v1/history?brand=b&profile=" + caller.profileID + "&v=1")
                   .status == 500;
    };
    for (const auto& [when, expected] : std::vector<std::pair<std::string, std::string>>{
             {"{}", "parent GET, kid GET, parent DELETE, kid DELETE, "},
             {R"({"profile": "parent"})", "parent GET, parent DELETE, "},
             {R"({"method": "GET"})", "parent GET, kid GET, "},
             {R"({"operation": "personalization-history-clear"})", "parent DELETE, kid DELETE, "},
             {R"({"household": "household"})", "parent GET, kid GET, parent DELETE, kid DELETE, "},
             {R"({"household": "other"})", ""},
             {R"({"profile": "parent", "method": "DELETE"})", "parent DELETE, "}}) {
        setFault(R"({"when": )" + when + R"(, "action": {"kind": "status", "status": 500}})");
        std::string failed;
        for (const char* method : {"GET", "DELETE"}) {
            if (failsFor(parent, method)) failed += std::string("parent ") + method + ", ";
            if (failsFor(kid, method)) failed += std::string("kid ") + method + ", ";
        }
        EXPECT_EQ(failed, expected) << when;
        send("DELETE", "/admin/v1/faults");
    }
    setFault(
        R"({"when": {"household": "household"}, "action": {"kind": "status", "status": 500}})");
    EXPECT_EQ(client.tryBind("parent").status, 500) << "a bind's household is that of its secret";
}

TEST_F(InjectedFaultTest, actsAsOftenAsItShould) {
    setFault(R"({"count": 2, "action": {"kind": "status", "status": 500}})");
    std::string outcomes;
    for (int index = 0; index < 4; ++index)
        outcomes += std::to_string(client.call(parent, "GET", history).status) + " ";
    EXPECT_EQ(outcomes, "500 500 200 200 ");
}

TEST_F(InjectedFaultTest, endsWhenItsTimeIsOver) {
    setFault(R"({"until": "2017-03-09T18:25:44Z", "action": {"kind": "status", "status": 500}})");
    EXPECT_EQ(client.call(parent, "GET", history).status, 500);
    service.advance(std::chrono::milliseconds(489));
    EXPECT_EQ(client.call(parent, "GET", history).status, 200);
}

TEST_F(InjectedFaultTest, aSeededChanceIsTheSameEachTime) {
    std::vector<std::string> runs;
    for (int run = 0; run < 2; ++run) {
        setFault(R"({"probability": 0.5, "seed": 7, "action": {"kind": "status", "status": 500}})");
        std::string outcomes;
        for (int index = 0; index < 32; ++index)
            outcomes += client.call(parent, "GET", history).status == 500 ? "x" : ".";
        runs.push_back(outcomes);
        send("DELETE", "/admin/v1/faults");
    }
    EXPECT_EQ(runs[0], runs[1]);
    EXPECT_THAT(runs[0], HasSubstr("x"));
    EXPECT_THAT(runs[0], HasSubstr("."));
}

TEST_F(InjectedFaultTest, delaysGoTogetherWithTheFirstOutcome) {
    const auto faults = post("/admin/v1/faults", R"({"faults": [
        {"action": {"kind": "delay", "milliseconds": 1}},
        {"action": {"kind": "status", "status": 500}},
        {"action": {"kind": "status", "status": 501}}]})");
    EXPECT_EQ(faults.at("faults").as_array().size(), 3U);
    EXPECT_EQ(client.call(parent, "GET", history).status, 500);
    EXPECT_EQ(lastEntry().at("fault"), 2);
    EXPECT_EQ(outcomeOf(send("DELETE", "/admin/v1/faults/2")), "204");
    EXPECT_EQ(client.call(parent, "GET", history).status, 501);
    EXPECT_EQ(outcomeOf(send("DELETE", "/admin/v1/faults/2")), "404 unknown-item");
    std::string used;
    const auto left = get("/admin/v1/faults").at("faults").as_array();
    for (const auto& fault : left)
        used += json::serialize(fault.at("used")) + " ";
    EXPECT_EQ(used, "2 1 ");
}

TEST_F(InjectedFaultTest, whatIsNoFaultIsNamedAndNothingIsSet) {
    for (const auto& [body, words] : std::vector<std::pair<std::string, std::string>>{
             {R"({"faults": [{"action": {"kind": "delay", "milliseconds": 1}}, {}]})",
              "the body.faults[1].action is missing"},
             {R"({"action": {"kind": "burn"}})", "the body.action.kind is none"},
             {R"({"action": {"kind": "delay"}})", "the body.action.milliseconds is missing"},
             {R"({"action": {"kind": "delay", "milliseconds": 1, "bytes": 2}})",
              "unexpected member 'bytes'"},
             {R"({"action": {"kind": "status", "status": 199}})", "from 200 to 599"},
             {R"({"action": {"kind": "contentType", "contentType": "a\r\nb: c"}})",
              "visible ASCII"},
             {R"({"when": {"operation": "personalization-history"}, "action": {"kind": "refuse"}})",
              "did you mean"},
             {R"({"probability": 2, "action": {"kind": "refuse"}})", "from 0 to 1"},
             {R"({"count": 0, "action": {"kind": "refuse"}})", "the body.count is 0"},
             {R"({"until": "tomorrow", "action": {"kind": "refuse"}})", "a time like"},
             {R"("refuse")", "the body is no object"}}) {
        const auto reply = send("POST", "/admin/v1/faults", body);
        EXPECT_EQ(outcomeOf(reply), "400 invalid-request") << body;
        EXPECT_THAT(detailOf(reply), HasSubstr(words)) << body;
    }
    EXPECT_TRUE(get("/admin/v1/faults").at("faults").as_array().empty());
}

TEST_F(InjectedFaultTest, whatIsSetIsListedAsItCanBeSetAgain) {
    for (
        const char* fault :
        {R"({"name":"n","when":{"operation":"personalization-history-get","profile":"p","household":"h","method":"GET"},"probability":2.5E-1,"seed":3,"count":4,"until":"2030-01-01T00:00:00.000Z","action":{"kind":"status","status":503,"retryAfter":"5","contentType":"a/b","body":"c"}})",
         R"({"action":{"kind":"delay","milliseconds":1,"jitterMilliseconds":2}})",
         R"({"action":{"kind":"throttle","bytesPerSecond":3}})",
         R"({"action":{"kind":"truncate","bytes":4}})", R"({"action":{"kind":"refuse"}})",
         R"({"action":{"kind":"contentType","contentType":"a/b"}})",
         R"({"action":{"kind":"clockSkew","seconds":-5}})"}) {
        json::value listed = setFault(fault);
        const json::value given = json::parse(fault);
        for (const auto& member : given.as_object())
            EXPECT_EQ(listed.at(member.key()), member.value()) << fault;
        EXPECT_EQ(setFault(json::serialize(listed)).at("action"), given.at("action"));
    }
}

TEST_F(InjectedFaultTest, everyScenarioCanBeSet) {
    const auto scenarios = get("/admin/v1/scenarios").at("scenarios").as_array();
    std::string faults;
    for (const auto& each : scenarios)
        if (each.at("kind") == "faults") faults += std::string(each.at("name").as_string()) + " ";
    EXPECT_EQ(faults, "flaky-train outage slow-3g expired-session captive-portal ");
    for (const FaultScenario& each : faultScenarios()) {
        const std::string name(each.name);
        EXPECT_EQ(post("/admin/v1/scenarios/" + name, "").at("applied").as_string(), name);
        const auto set = get("/admin/v1/faults").at("faults").as_array();
        ASSERT_FALSE(set.empty());
        for (const auto& fault : set)
            EXPECT_THAT(std::string(fault.at("name").as_string()), StartsWith(name));
    }
    EXPECT_EQ(outcomeOf(send("POST", "/admin/v1/scenarios/rain")), "404 unknown-item");
}

TEST_F(InjectedFaultTest, anExpiredSessionIsOverWithTheNextBind) {
    post("/admin/v1/scenarios/expired-session", "");
    EXPECT_EQ(outcomeOf(client.call(parent, "GET", history)), "403 token-refused");
    EXPECT_EQ(client.idsOf(client.bind("parent"), history), "");
}

TEST_F(InjectedFaultTest, aCaptivePortalAnswersWithItsPageAndTakesNoWrite) {
    post("/admin/v1/scenarios/captive-portal", "");
    const auto page = client.call(parent, "GET", history);
    EXPECT_EQ(page.status, 200);
    EXPECT_EQ(page.headers.at("content-type"), "text/html; charset=utf-8");
    EXPECT_EQ(client.call(parent, "PUT", videoTarget("v")).status, 511);
    EXPECT_EQ(stored(), "");
}

TEST_F(InjectedFaultTest, neitherTheAdminInterfaceNorTheHealthIsTouched) {
    setFault(action(R"("kind": "resetBefore")"));
    EXPECT_EQ(client.http.send("GET", "/healthz").status, 200);
    EXPECT_EQ(send("GET", "/admin/v1/status").status, 200);
    EXPECT_EQ(get("/admin/v1/status").at("faults"), 1);
}

TEST_F(InjectedFaultTest, noFaultCostsAWriteThatWasAcknowledged) {
    post("/admin/v1/faults", R"({"faults": [
        {"probability": 0.1, "seed": 1, "action": {"kind": "resetBefore"}},
        {"probability": 0.1, "seed": 2, "action": {"kind": "resetAfter"}},
        {"probability": 0.1, "seed": 3, "action": {"kind": "resetMiddle"}},
        {"probability": 0.1, "seed": 4, "action": {"kind": "truncate", "bytes": 0}},
        {"probability": 0.1, "seed": 5, "action": {"kind": "malformed"}},
        {"probability": 0.1, "seed": 6, "action": {"kind": "status", "status": 200, "body": "x"}},
        {"probability": 0.1, "seed": 7, "action": {"kind": "status", "status": 503}}]})");
    std::string acknowledged;
    for (int index = 0; index < 100; ++index) {
        const std::string id = "v" + std::to_string(index);
        const std::string answer = raw("PUT", videoTarget(id));
        if (answer.starts_with("HTTP/1.1 2") && answer.find("\r\n\r\n") != std::string::npos)
            acknowledged += " " + id + " ";
    }
    EXPECT_GT(acknowledged.size(), 100U);
    const std::string there = " " + replaced(stored(), " ", "  ") + " ";
    for (std::size_t at = 0; at < acknowledged.size();) {
        const std::size_t end = acknowledged.find(' ', at + 1) + 1;
        EXPECT_THAT(there, HasSubstr(acknowledged.substr(at, end - at)));
        at = end;
    }
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
