// How a phone gets the client's configuration, and who does not.
#include <string>
#include <string_view>

#include <gmock/gmock.h>

#include <kestrin-profile-server/ClientConfiguration.hpp>
#include <kestrin-profile-server/Introduction.hpp>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

using testing::HasSubstr;
using testing::Not;

/// A service that takes no admin request without a secret, but for those of a phone.
class ClientConfigurationTest : public testing::Test {
  protected:
    static void withSecret(ServiceSettings& settings) {
        settings.admin.isOn = true;
        settings.admin.secret = "sixteen-letters!";
    }

    HttpReply admin(const std::string& method, const std::string& path, const std::string& body) {
        return http.send(
            method, path,
            {{"Authorization", "Bearer sixteen-letters!"}, {"Content-Type", "application/json"}},
            body);
    }

    TestService service{withSecret};
    HttpClient http{service.baseURL()};
    std::string target = invitationURL("", service.household());
};

TEST_F(ClientConfigurationTest, whoWasShownTheAddressGetsIt) {
    const auto reply = http.send("GET", target);
    EXPECT_EQ(outcomeOf(reply), "200");
    EXPECT_EQ(reply.body, clientConfiguration(service.baseURL(), "kestrin", service.household()));
    EXPECT_EQ(reply.headers.at("cache-control"), "no-store");
    EXPECT_EQ(outcomeOf(http.send("POST", target)), "405 method-not-allowed");
}

TEST_F(ClientConfigurationTest, nobodyElseGetsTheSecretThatItHolds) {
    EXPECT_THAT(target, Not(HasSubstr(service.secret())));
    std::string other = target;
    other.back() = other.back() == '0' ? '1' : '0';
    for (const std::string& wrong :
         {target.substr(0, target.find('?')), target.substr(0, target.find('=') + 1), other,
          target + "0", target.substr(0, target.size() - 1)}) {
        const auto reply = http.send("GET", wrong);
        EXPECT_EQ(outcomeOf(reply), "404 unknown-item") << wrong;
        EXPECT_THAT(reply.body, Not(HasSubstr(service.secret())));
    }
    EXPECT_EQ(outcomeOf(http.send("GET", target + "&a=b")), "400 unknown-parameter");
    EXPECT_EQ(outcomeOf(http.send("GET", "/admin/v1/client-configuration")),
              "401 admin-secret-required");
}

TEST_F(ClientConfigurationTest, theAddressIsThatOfOneHousehold) {
    const Household neighbours = service.addHousehold("neighbours", "mum");
    const std::string theirs = invitationURL("", neighbours);
    EXPECT_NE(theirs, target);
    EXPECT_EQ(http.send("GET", theirs).json().at("parentProfileID"), "mum");
    EXPECT_EQ(http.send("GET", target).json().at("parentProfileID"), "parent");
    admin("PUT", "/admin/v1/state", R"({"households":[{"id":"new","parent":{"username":"New"}}]})");
    EXPECT_EQ(outcomeOf(http.send("GET", target)), "404 unknown-item");
}

TEST_F(ClientConfigurationTest, inANamespaceItLeadsThere) {
    EXPECT_EQ(admin("POST", "/admin/v1/namespaces",
                    R"({"name":"one","seed":{"households":[{"id":"h","secret":")" +
                        service.secret() + R"(","parent":{"username":"P"}}]}})")
                  .status,
              201);
    const auto reply = http.send("GET", "/n/one" + target);
    EXPECT_EQ(outcomeOf(reply), "200") << reply.body;
    EXPECT_THAT(reply.body, HasSubstr(service.baseURL() + "/n/one/v1/binds"));
}

TEST(InvitationTest, aPhoneIsInvitedWhereOthersReachTheServiceAndSomebodyReads) {
    Household household;
    household.secret = "letters";
    Options options;
    options.service.admin.isOn = true;
    const auto invited = [&](const char* host, bool isForPeople,
                             const std::string& url = "http://192.168.1.20:8480") {
        options.service.http.host = host;
        return invitation(options, url, household, isForPeople);
    };
    EXPECT_EQ(invited("127.0.0.1", true), "");
    EXPECT_EQ(invited("0.0.0.0", false), "") << "a key is not for files";
    const std::string text = invited("0.0.0.0", true);
    EXPECT_THAT(text,
                HasSubstr("\n" + invitationURL("http://192.168.1.20:8480", household) + "\n"));
    EXPECT_THAT(text, HasSubstr("▀"));
    const std::string hint = invited("0.0.0.0", true, "http://127.0.0.1:8480");
    EXPECT_THAT(hint, HasSubstr("--public-url"));
    EXPECT_THAT(hint, Not(HasSubstr("▀")));
    options.isQRCodeWanted = true;
    EXPECT_EQ(invited("127.0.0.1", false), text);
    options.isQRCodeWanted = false;
    options.service.admin.isOn = false;
    EXPECT_EQ(invited("0.0.0.0", true), "");
}

TEST(InvitationTest, withoutTheAdminInterfaceThereIsNone) {
    auto program = startServer({"--database", "unused", "--qr"});
    EXPECT_EQ(program.wait(), 2);
    EXPECT_THAT(program.errors(), HasSubstr("--admin"));
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
