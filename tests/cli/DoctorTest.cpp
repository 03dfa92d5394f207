#include <chrono>
#include <ctime>
#include <string>
#include <utility>

#include <HalvardSling/json/JSONDictionary.hpp>

#include "CommandLineFixture.hpp"
#include "support/RawServer.hpp"

namespace {

using HalvardSling::JSONDictionary;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using TestSupport::CommandLine;
using TestSupport::httpReply;
using TestSupport::RawConnection;
using TestSupport::RawServer;
using TestSupport::write;

/// What stands between here and the service.
class Doctor : public CommandLine {
  protected:
    /// Configures a server of the test's own, for binds and the list of profiles.
    void configureFor(const std::string& url) const {
        write(configuration,
              R"({"version":1,"parentProfileID":"p","brand":"b","development":true,"services":{)"
              R"("personalization-bind-anonymous":{"method":"POST","body":"json","url":")" +
                  url + R"(/bind"},"personalization-get-profiles":{"url":")" + url +
                  R"(/list"}}})");
    }

    /// A service whose clock differs from ours.
    [[nodiscard]] static RawServer::Script serviceWithClock(std::chrono::seconds ahead) {
        return [ahead](RawConnection& connection) {
            while (const auto request = connection.readRequest()) {
                const std::time_t now =
                    std::chrono::system_clock::to_time_t(std::chrono::system_clock::now() + ahead);
                char date[64];
                std::tm parts{};
                std::strftime(date, sizeof date, "Date: %a, %d %b %Y %H:%M:%S GMT\r\n",
                              gmtime_r(&now, &parts));
                const bool isHead = request->starts_with("HEAD");
                connection.send(httpReply(
                    200, isHead ? "" : R"({"profileId":"p","token":"t","data":[]})", date));
            }
        };
    }
};

TEST_F(Doctor, FindsNothingWhereAllIsWell) {
    startService();
    const auto result = runConfigured({"doctor"});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_THAT(result.output,
                AllOf(ContainsRegex("^ok +configuration +/.*config.json: 22 services"),
                      ContainsRegex("\nok +reach +http://127.0.0.1:[0-9]+ answers, in [0-9]+ ms\n"),
                      ContainsRegex("\nok +tls +not needed on this machine\n"),
                      ContainsRegex("\n(ok|not checked) +clock +"),
                      ContainsRegex("\nok +bind +obtained for parent, good until [0-9]{4}-"),
                      ContainsRegex("\nok +access +the service shows parent 1 profile\n"),
                      Not(HasSubstr("eyJ"))));
    EXPECT_THAT(outputOf({"doctor"}), HasSubstr("held for parent"));
}

TEST_F(Doctor, SaysWhatIsWrongWithTheConfigurationAndGoesNoFurther) {
    const auto missing = run({"doctor"});
    EXPECT_EQ(missing.code, 2);
    EXPECT_THAT(missing.output, AllOf(ContainsRegex("error +configuration +"),
                                      HasSubstr("config check"), Not(HasSubstr("reach"))));
    write(configuration,
          R"({"version":1,"parentProfileID":"p","services":{"personalization-history-clear":)"
          R"({"url":"https://a/v1","method":"GET"}}})");
    EXPECT_EQ(runConfigured({"doctor"}).code, 2);
}

TEST_F(Doctor, SaysThatTheServiceIsAwayAndWhatToDo) {
    startService();
    service.reset();
    const auto result = runConfigured({"doctor"});
    EXPECT_EQ(result.code, 5);
    EXPECT_THAT(result.output, AllOf(ContainsRegex("\nerror +reach +.*http://127.0.0.1"),
                                     ContainsRegex("\nnot checked +bind +")));
    const auto parsed = JSONDictionary::parse(runConfigured({"doctor", "--json"}).output);
    const auto& document = std::get<JSONDictionary>(parsed);
    EXPECT_EQ(document.integer("exitCode"), 5);
    bool isAdvised = false;
    const auto checks = document.dictionaries("checks").value();
    for (const auto& check : checks)
        if (check.text("check") == "reach") isAdvised = check.text("advice").has_value();
    EXPECT_TRUE(isAdvised);
}

TEST_F(Doctor, FailsWhereThereIsNobodyToAsk) {
    write(configuration, R"({"version":1,"parentProfileID":"p","brand":"b","services":{}})");
    const auto result = runConfigured({"doctor"});
    EXPECT_EQ(result.code, 5);
    EXPECT_THAT(result.output, ContainsRegex("\nerror +reach +the configuration names no service"));
}

TEST_F(Doctor, SaysThatNobodyVouchesForTheService) {
    const RawServer plain([](RawConnection& connection) {
        static_cast<void>(connection.read(1));
        connection.send(httpReply(400, ""));
        connection.awaitClose();
    });
    configureFor("https://127.0.0.1:" + std::to_string(plain.port()));
    const auto result = runConfigured({"doctor"});
    EXPECT_EQ(result.code, 5);
    EXPECT_THAT(result.output, ContainsRegex("\nerror +tls +"));
}

TEST_F(Doctor, ComparesTheClocks) {
    const std::pair<std::chrono::seconds, const char*> cases[] = {
        {std::chrono::seconds(0), "\nok +clock +agrees with http://"},
        {std::chrono::hours(2), "\nerror +clock +. h behind that of http://"},
        {std::chrono::hours(-3), "\nerror +clock +. h ahead of that of http://"}};
    for (const auto& [ahead, text] : cases) {
        const RawServer server(serviceWithClock(ahead));
        configureFor(server.url(""));
        const auto result = runConfigured({"doctor"});
        EXPECT_EQ(result.code, ahead.count() == 0 ? 0 : 1) << result.errors;
        EXPECT_THAT(result.output, ContainsRegex(text));
    }
}

TEST_F(Doctor, SaysThatTheProfileIsRefused) {
    startService({"--block", "parent"});
    const auto result = runConfigured({"doctor"});
    EXPECT_EQ(result.code, 4);
    EXPECT_THAT(result.output, AllOf(ContainsRegex("\nok +reach +"),
                                     ContainsRegex("\nerror +bind +"), HasSubstr("--profile")));
}

TEST_F(Doctor, InADryRunAsksNobody) {
    const RawServer server(RawServer::answering(httpReply(200, "{}")));
    configureFor(server.url(""));
    EXPECT_EQ(runConfigured({"doctor", "--dry-run"}).code, 0);
    EXPECT_EQ(server.connections(), 0U);
}

}  // namespace
