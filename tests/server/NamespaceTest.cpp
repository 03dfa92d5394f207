// Worlds beside each other in one service.
#include <array>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Support.hpp"
#include "support/Waiting.hpp"

namespace KestrinProfileServer::Testing {
namespace {

class NamespaceTest : public testing::Test {
  protected:
    /// The base URL of a new namespace.
    std::string made(const std::string& body) {
        const auto reply = admin.call("POST", "namespaces", body);
        EXPECT_EQ(outcomeOf(reply), "201") << reply.body;
        return std::string(reply.json().at("baseUrl").as_string());
    }

    static std::string secretOf(const std::string& baseURL) {
        const auto configuration = AdminClient(baseURL).get("client-configuration");
        const auto& bind = configuration.at("services").at("personalization-bind-anonymous");
        EXPECT_TRUE(bind.at("url").as_string().starts_with(baseURL + "/v1/binds?"));
        return std::string(bind.at("headers").at("X-Household-Secret").as_string());
    }

    TestService service{withAdmin};
    AdminClient admin{service.baseURL()};
};

/// Calls a namespace for its household.
class NamespaceClient {
  public:
    explicit NamespaceClient(const std::string& baseURL, std::string secret)
        : path_(baseURL.substr(baseURL.find('/', 8))),
          http_(baseURL.substr(0, baseURL.size() - path_.size())),
          secret_(std::move(secret)) {}

    HttpReply bind(const std::string& profileID) {
        return http_.send("POST", path_ + "/v1/binds?profile=" + profileID + "&v=1",
                          {{"X-Household-Secret", secret_}, {"Content-Type", "application/json"}},
                          boost::json::serialize(boost::json::object{{"profileId", profileID}}));
    }

    HttpReply call(const Caller& caller, const std::string& method, const std::string& target) {
        return http_.send(method, path_ + target, caller.headers());
    }

  private:
    std::string path_;
    HttpClient http_;
    std::string secret_;
};

Caller callerIn(const HttpReply& bind) {
    return {std::string(bind.json().at("profileId").as_string()),
            std::string(bind.json().at("token").as_string())};
}

TEST_F(NamespaceTest, haveAllOfASeedHoweverLong) {
    constexpr std::size_t longerThanClientsMakeIt = 501;
    std::string entries;
    for (std::size_t video = 0; video < longerThanClientsMakeIt; ++video)
        entries += (video == 0 ? "" : ",") + (R"({"videoId":"v)" + std::to_string(video)) +
                   R"(","type":"VIDEO"})";
    const std::string url = made(
        R"({"name":"long","seed":{"maxSize":1000,"households":[{"id":"h","parent":{"username":"P","history":[)" +
        entries + "]}}]}}");
    EXPECT_EQ(AdminClient(url).get("profiles/parent").at("history").as_array().size(),
              longerThanClientsMakeIt);
}

TEST_F(NamespaceTest, areListedMadeAndDeleted) {
    const auto names = [&] {
        std::string all;
        const auto document = admin.get("namespaces");
        for (const auto& each : document.at("namespaces").as_array())
            all += "'" + std::string(each.at("name").as_string()) + "' ";
        return all;
    };
    EXPECT_EQ(names(), "'' ");
    EXPECT_EQ(made(R"({"name":"two"})"), service.baseURL() + "/n/two");
    made(R"({"name":"one"})");
    EXPECT_EQ(names(), "'' 'one' 'two' ");
    EXPECT_EQ(outcomeOf(admin.call("POST", "namespaces", R"({"name":"one"})")), "409 taken");
    EXPECT_EQ(outcomeOf(admin.call("DELETE", "namespaces/one")), "204");
    EXPECT_EQ(outcomeOf(admin.call("DELETE", "namespaces/one")), "404 unknown-namespace");
    EXPECT_EQ(names(), "'' 'two' ");
    EXPECT_EQ(outcomeOf(AdminClient(service.baseURL() + "/n/one").call("GET", "status")),
              "404 unknown-namespace");
}

TEST_F(NamespaceTest, haveNamesThatURLsKeep) {
    for (const std::string& name :
         {std::string(), std::string("."), std::string(".."), std::string("a b"),
          std::string("a/b"), std::string("ä"), std::string(65, 'a')}) {
        const std::string body = boost::json::serialize(boost::json::object{{"name", name}});
        EXPECT_EQ(outcomeOf(admin.call("POST", "namespaces", body)), "400 invalid-request") << name;
    }
    made(boost::json::serialize(boost::json::object{{"name", std::string(62, 'a') + ".-"}}));
    made(R"({"name":"A_9"})");
}

TEST_F(NamespaceTest, onlyTheRootKnowsThem) {
    AdminClient one(made(R"({"name":"one"})"));
    EXPECT_EQ(one.get("status").at("namespace"), "one");
    EXPECT_EQ(outcomeOf(one.call("GET", "namespaces")), "404 unknown-path");
    EXPECT_EQ(outcomeOf(one.call("POST", "namespaces", R"({"name":"x"})")), "404 unknown-path");
}

TEST_F(NamespaceTest, haveHouseholdsTokensAndClocksOfTheirOwn) {
    const std::string oneURL = made(R"({"name":"one"})");
    const std::string twoURL = made(R"({"name":"two"})");
    EXPECT_NE(secretOf(oneURL), secretOf(twoURL));
    EXPECT_NE(secretOf(oneURL), service.secret());
    NamespaceClient one(oneURL, secretOf(oneURL));
    NamespaceClient two(twoURL, secretOf(twoURL));
    const Caller ofOne = callerIn(one.bind("parent"));
    const Caller ofTwo = callerIn(two.bind("parent"));
    const std::string show = "/v1/favorites/show?show=s&brand=b&profile=parent&v=1";
    const std::string list = "/v1/favorites?brand=b&profile=parent&v=1";
    EXPECT_EQ(outcomeOf(one.call(ofOne, "PUT", show)), "204");
    EXPECT_EQ(one.call(ofOne, "GET", list).json().at("elements").as_array().size(), 1U);
    EXPECT_EQ(two.call(ofTwo, "GET", list).json().at("elements").as_array().size(), 0U);
    EXPECT_EQ(outcomeOf(two.call(ofOne, "GET", list)), "403 token-refused")
        << "the keys are different ones";
    EXPECT_EQ(outcomeOf(NamespaceClient(twoURL, secretOf(oneURL)).bind("parent")),
              "401 secret-required");

    AdminClient(oneURL).call("POST", "clock/advance", R"({"seconds":4000})");
    EXPECT_EQ(outcomeOf(one.call(ofOne, "GET", list)), "403 token-refused");
    EXPECT_EQ(outcomeOf(two.call(ofTwo, "GET", list)), "200");
    EXPECT_EQ(admin.get("clock").at("offsetSeconds").to_number<double>(), 0.0);
}

TEST_F(NamespaceTest, holdWhatTheirSeedSays) {
    const std::string url = made(
        R"({"name":"one","seed":{"households":[{"id":"h","secret":"letters",
            "profiles":[{"profileId":"kid","username":"Kid"}]}]}})");
    EXPECT_EQ(secretOf(url), "letters");
    EXPECT_EQ(outcomeOf(NamespaceClient(url, "letters").bind("kid")), "200");
    EXPECT_EQ(
        outcomeOf(admin.call("POST", "namespaces", R"({"name":"two","seed":{"households":[{}]}})")),
        "400 invalid-request");
    EXPECT_EQ(outcomeOf(AdminClient(service.baseURL() + "/n/two").call("GET", "status")),
              "404 unknown-namespace");
}

TEST_F(NamespaceTest, thatAreDeletedLeaveNothing) {
    const std::string url = made(R"({"name":"one"})");
    const std::string secret = secretOf(url);
    EXPECT_EQ(outcomeOf(NamespaceClient(url, secret).bind("parent")), "200");
    admin.call("DELETE", "namespaces/one");
    EXPECT_EQ(made(R"({"name":"one"})"), url);
    EXPECT_EQ(outcomeOf(NamespaceClient(url, secret).bind("parent")), "401 secret-required");
}

TEST_F(NamespaceTest, areDeletedWhileOthersWriteInThem) {
    constexpr int rounds = 10;
    constexpr std::size_t writers = 3;
    for (int round = 0; round < rounds; ++round) {
        const std::string url = made(R"({"name":"one"})");
        const std::string secret = secretOf(url);
        std::array<TestSupport::Tally, writers> written;
        std::vector<std::thread> threads;
        for (TestSupport::Tally& ofOne : written) {
            threads.emplace_back([&] {
                NamespaceClient client(url, secret);
                const Caller parent = callerIn(client.bind("parent"));
                std::string outcome = "204";
                for (int show = 0; outcome == "204"; ++show) {
                    outcome =
                        outcomeOf(client.call(parent, "PUT",
                                              "/v1/favorites/show?show=" + std::to_string(show) +
                                                  "&brand=b&profile=parent&v=1"));
                    if (outcome == "204") ofOne.add();
                }
                EXPECT_EQ(outcome, "404 unknown-namespace");
            });
        }
        // Each of them has begun, and goes on.
        for (const TestSupport::Tally& ofOne : written)
            EXPECT_TRUE(ofOne.reaches(5));
        EXPECT_EQ(outcomeOf(admin.call("DELETE", "namespaces/one")), "204");
        for (std::thread& thread : threads)
            thread.join();
    }
}

TEST_F(NamespaceTest, areNoMoreThanAllowed) {
    for (std::size_t index = 0; index < Namespaces::most; ++index)
        made(R"({"name":"n)" + std::to_string(index) + "\"}");
    EXPECT_EQ(outcomeOf(admin.call("POST", "namespaces", R"({"name":"more"})")),
              "409 too-many-namespaces");
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
