// The admin interface: who may use it, what it is made of, and its status.
#include <array>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <kestrin-profile-server/admin/AdminRoutes.hpp>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

constexpr const char* status = "/admin/v1/status";
const std::string secret = "sixteen-letters!";

class AdminTest : public testing::Test {
  protected:
    /// The outcome of asking for the status with these headers.
    std::string outcome(const HeaderLines& headers) const {
        return outcomeOf(HttpClient(service.baseURL()).send("GET", status, headers));
    }

    std::string port() const { return std::to_string(portIn(service.baseURL())); }

    TestService service{withAdmin};
    HttpClient client{service.baseURL()};
};

TEST(AdminRoutesTest, methodAndPathChooseOneRoute) {
    std::set<std::string> addresses;
    for (const AdminRoute& route : adminRoutes()) {
        addresses.insert(std::string(route.method) + " " + std::string(route.path));
        EXPECT_TRUE(isAdminPath(route.path)) << route.path;
        EXPECT_FALSE(route.summary.empty()) << route.path;
        EXPECT_FALSE(route.summary.ends_with('.')) << route.path;
        EXPECT_EQ(route.handler == nullptr, route.effect == AdminEffect::later) << route.path;
        EXPECT_EQ(route.laterHandler == nullptr, route.effect != AdminEffect::later) << route.path;
    }
    EXPECT_EQ(addresses.size(), adminRoutes().size());
}

TEST(AdminRoutesTest, theirQueriesAreDecodedLikeForms) {
    constexpr std::array<std::string_view, 2> known{"a", "b"};
    using Values = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(adminQuery("", known), Values{});
    EXPECT_EQ(adminQuery("b=1%2B1+%3D+2&a", known), (Values{{"b", "1+1 = 2"}, {"a", ""}}));
    for (const char* const wrong : {"c=1", "a=1&a=2", "a=%FF", "a=%00", "=1"})
        EXPECT_THROW(static_cast<void>(adminQuery(wrong, known)), Problem) << wrong;
}

TEST_F(AdminTest, isNotThereUnlessAskedFor) {
    service.restart([](ServiceSettings& settings) { settings.admin.isOn = false; });
    HttpClient plain(service.baseURL());
    for (const char* target : {"/admin", "/admin/", "/admin/v1/status", "/n/one/v1/history?v=1"})
        EXPECT_EQ(outcomeOf(plain.send("GET", target)), "404 unknown-path") << target;
}

TEST_F(AdminTest, tellsWhatTheServiceIs) {
    const auto reply = client.send("GET", status);
    ASSERT_EQ(outcomeOf(reply), "200");
    const auto document = reply.json();
    EXPECT_EQ(document.at("namespace"), "");
    EXPECT_EQ(document.at("baseUrl").as_string(), service.baseURL());
    EXPECT_EQ(document.at("now"), "2017-03-09T18:25:43.511Z");
    EXPECT_EQ(document.at("households"), 1);
    EXPECT_EQ(document.at("profiles"), 1);
}

TEST_F(AdminTest, unknownPathsMethodsAndParametersAreNamed) {
    EXPECT_EQ(outcomeOf(client.send("GET", "/admin/v1/nothing")), "404 unknown-path");
    EXPECT_EQ(outcomeOf(client.send("GET", "/admin/v1/status/")), "404 unknown-path");
    EXPECT_EQ(outcomeOf(client.send("GET", "/administration")), "404 unknown-path");
    const auto refused = client.send("DELETE", status);
    EXPECT_EQ(outcomeOf(refused), "405 method-not-allowed");
    EXPECT_EQ(refused.headers.at("allow"), "GET, HEAD, OPTIONS");
    EXPECT_EQ(client.send("OPTIONS", status).headers.at("allow"), "GET, HEAD, OPTIONS");
    EXPECT_EQ(outcomeOf(client.send("HEAD", status)), "200");
    EXPECT_EQ(outcomeOf(client.send("GET", std::string(status) + "?color=red")),
              "400 unknown-parameter");
}

TEST_F(AdminTest, onlyNamesOfThisComputerLeadToIt) {
    for (const std::string host :
         {"127.0.0.1:", "localhost:", "LOCALHOST:", "127.1.2.3:", "[::1]:"})
        EXPECT_EQ(outcome({{"Host", host + port()}}), "200") << host;
    for (const std::string& host :
         {"evil.example:" + port(), std::string("127.0.0.1:1"), std::string("127.0.0.1"),
          "localhost.evil.example:" + port(), "192.168.1.20:" + port(), "[::2]:" + port(),
          std::string("localhost:"), "2130706433:" + port()}) {
        EXPECT_EQ(outcome({{"Host", host}}), "403 origin-refused") << host;
    }
    EXPECT_EQ(outcomeOfRaw(sendRaw(service.baseURL(),
                                   "GET http://evil.example/admin/v1/status"
                                   " HTTP/1.1\r\nHost: 127.0.0.1:" +
                                       port() + "\r\nConnection: close\r\n\r\n")),
              "403 origin-refused")
        << "the target's host counts";
}

TEST_F(AdminTest, thePagesOfOthersAreKeptOut) {
    const std::string own = "127.0.0.1:" + port();
    EXPECT_EQ(outcome({{"Origin", "http://" + own}}), "200");
    EXPECT_EQ(outcome({{"Origin", "http://" + own}, {"Sec-Fetch-Site", "same-origin"}}), "200");
    EXPECT_EQ(outcome({{"Sec-Fetch-Site", "none"}}), "200");
    for (const std::string origin :
         {"http://evil.example", "https://evil.example", "null", "http://127.0.0.1:1"}) {
        EXPECT_EQ(outcome({{"Origin", origin}}), "403 origin-refused") << origin;
    }
    EXPECT_EQ(outcome({{"Origin", "http://localhost:" + port()}}), "403 origin-refused")
        << "another host than that of the request";
    EXPECT_EQ(outcome({{"Sec-Fetch-Site", "cross-site"}}), "403 origin-refused");
}

TEST_F(AdminTest, withASecretItIsForWhoHasIt) {
    service.restart([](ServiceSettings& settings) { settings.admin.secret = secret; });
    HttpClient other(service.baseURL());
    EXPECT_EQ(outcome({{"Authorization", "Bearer " + secret}}), "200");
    EXPECT_EQ(outcome({{"Authorization", "bearer " + secret}, {"Host", "phone.example"}}), "200");
    const auto refused = other.send("GET", status);
    EXPECT_EQ(outcomeOf(refused), "401 admin-secret-required");
    EXPECT_EQ(refused.headers.at("www-authenticate"), "Bearer");
    for (const std::string& wrong :
         {"Bearer " + secret + "x", std::string("Bearer sixteen-letters?"), std::string("Bearer "),
          "JWT " + secret, secret}) {
        const auto reply = other.send("GET", status, {{"Authorization", wrong}});
        EXPECT_EQ(outcomeOf(reply), "401 admin-secret-required") << wrong;
        EXPECT_EQ(reply.body.find("sixteen"), std::string::npos);
    }
}

TEST(AdminPlaceTest, othersDoNotReachItWithoutASecret) {
    ServiceSettings settings;
    settings.http.host = "0.0.0.0";
    settings.http.port = 0;
    settings.http.isQuiet = true;
    settings.admin.isOn = true;
    try {
        const Service open(settings);
        FAIL() << "it started";
    } catch (const StartError& error) {
        EXPECT_NE(std::string(error.what()).find("--admin-secret-file"), std::string::npos);
    }
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
