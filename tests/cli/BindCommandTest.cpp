#include <filesystem>
#include <string>

#include <HalvardSling/json/JSONDictionary.hpp>

#include "CommandLineFixture.hpp"
#include "support/RawServer.hpp"

namespace {

using HalvardSling::JSONDictionary;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using TestSupport::CommandLine;
using TestSupport::contentOf;
using TestSupport::Program;
using TestSupport::RawServer;
using TestSupport::write;

class BindCommand : public CommandLine {};

TEST_F(BindCommand, ObtainsABindForTheParentAndKeepsIt) {
    startService();
    const auto first = runConfigured({"bind"});
    EXPECT_EQ(first.code, 0) << first.errors;
    EXPECT_THAT(first.output, HasSubstr("obtained from the service"));
    const auto second = runConfigured({"bind"});
    EXPECT_EQ(second.code, 0);
    EXPECT_THAT(second.output, HasSubstr("held"));
}

TEST_F(BindCommand, KeepsTheBindWhereOnlyItsOwnerMayReadIt) {
    startService();
    ASSERT_EQ(runConfigured({"bind"}).code, 0);
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(bindFile()).permissions(),
              perms::owner_read | perms::owner_write);
}

TEST_F(BindCommand, NeverPrintsTheTokenNorTheHouseholdsSecret) {
    startService();
    std::string printed;
    for (const auto& arguments : {std::vector<std::string>{"bind", "-v"},
                                  {"bind", "-v", "--json"},
                                  {"-v", "bind", "none"}}) {
        const auto result = runConfigured(arguments);
        printed += result.output + result.errors;
    }
    EXPECT_THAT(printed, HasSubstr("POST http://127.0.0.1"));
    EXPECT_THAT(printed, Not(HasSubstr("eyJ")));
    const auto parsed = JSONDictionary::parse(contentOf(configuration));
    const auto secret = std::get<JSONDictionary>(parsed)
                            .dictionary("services")
                            ->dictionary("personalization-bind-anonymous")
                            ->dictionary("headers")
                            ->text("X-Household-Secret");
    ASSERT_TRUE(secret);
    EXPECT_THAT(printed, Not(HasSubstr(std::string(*secret))));
    EXPECT_THAT(contentOf(bindFile()), HasSubstr("eyJ"));
}

TEST_F(BindCommand, ANewOneIsObtainedThoughOneIsHeld) {
    startService();
    outputOf({"bind"});
    EXPECT_THAT(runConfigured({"bind", "-v"}).errors, Not(HasSubstr("POST ")));
    const auto result = runConfigured({"bind", "--new", "-v"});
    EXPECT_THAT(result.output, HasSubstr("obtained from the service"));
    EXPECT_THAT(result.errors, HasSubstr("POST "));
}

TEST_F(BindCommand, ABindIsForgottenAndWhereThereIsNoneThatIsSaid) {
    startService();
    outputOf({"bind"});
    EXPECT_THAT(contentOf(bindFile()), HasSubstr("eyJ"));
    EXPECT_EQ(outputOf({"unbind"}), "forgot the bind of parent\n");
    EXPECT_THAT(contentOf(bindFile()), Not(HasSubstr("eyJ")));
    EXPECT_EQ(outputOf({"unbind", "parent"}), "there was no bind of parent\n");
    EXPECT_EQ(outputOf({"unbind", "--json"}), "{\"forgotten\":[]}\n");
}

TEST_F(BindCommand, TheBindOfAProfileIsForgottenByItsNameOrWithAllOthers) {
    startService();
    outputOf({"profiles", "create", "Anna"});
    outputOf({"bind", "Anna"});
    outputOf({"unbind", "Anna"});
    EXPECT_THAT(outputOf({"bind", "--json"}), HasSubstr("held"));
    outputOf({"bind", "Anna"});
    EXPECT_EQ(outputOf({"unbind", "--all", "--dry-run"}), "");
    EXPECT_EQ(outputOf({"unbind", "--all"}), "forgot 2 binds\n");
    EXPECT_EQ(outputOf({"unbind", "--all"}), "forgot 0 binds\n");
    EXPECT_EQ(runConfigured({"unbind", "Anna", "--all"}).code, 2);
    EXPECT_THAT(contentOf(bindFile()), Not(HasSubstr("eyJ")));
}

TEST_F(BindCommand, PrintsJSONForPrograms) {
    startService();
    const auto result = runConfigured({"bind", "--json"});
    EXPECT_EQ(result.output, R"({"profileId":"parent","source":"service"})"
                             "\n");
    EXPECT_EQ(runConfigured({"--json", "bind", "parent"}).output,
              R"({"profileId":"parent","source":"held"})"
              "\n");
}

TEST_F(BindCommand, AProfileIsNamedByItsNameToo) {
    startService();
    for (const std::string name : {"Anna", "Anna B", "Zoë", "A#1"}) {
        const std::string created = outputOf({"profiles", "create", name, "--json"});
        const auto parsed = JSONDictionary::parse(created);
        const std::string id(*std::get<JSONDictionary>(parsed).text("profileId"));
        EXPECT_EQ(outputOf({"bind", name, "--json"}),
                  R"({"profileId":")" + id + R"(","source":"service"})" + "\n");
    }
}

TEST_F(BindCommand, AnIdentifierIsNotLookedUp) {
    startService();
    const std::string created = outputOf({"profiles", "create", "Anna", "--json"});
    const auto parsed = JSONDictionary::parse(created);
    const std::string id(*std::get<JSONDictionary>(parsed).text("profileId"));
    service->signal(SIGTERM);
    ASSERT_EQ(service->wait(), 0);
    startService({"--block", "parent"});
    EXPECT_THAT(outputOf({"bind", id}), HasSubstr("obtained from the service"));
}

TEST_F(BindCommand, AnUnknownProfileIsNotFound) {
    startService();
    const auto result = runConfigured({"bind", "nobody"});
    EXPECT_EQ(result.code, 6);
    EXPECT_THAT(result.errors, HasSubstr("404"));
    EXPECT_THAT(result.output, IsEmpty());
}

TEST_F(BindCommand, AnotherProfilesBindIsObtainedAnewEachTime) {
    startService();
    const std::string created = outputOf({"profiles", "create", "Anna", "--json"});
    const auto parsed = JSONDictionary::parse(created);
    const std::string id(*std::get<JSONDictionary>(parsed).text("profileId"));
    for (int time = 0; time < 2; ++time)
        for (const std::string& name : {id, std::string("Anna")})
            EXPECT_THAT(runConfigured({"bind", "--profile", name, "-v"}).errors,
                        HasSubstr("/v1/binds -> 200"));
}

TEST_F(BindCommand, ABlockedProfileIsRefusedAndTheBindsOfOthersStay) {
    startService({"--block", "blocked"});
    ASSERT_EQ(runConfigured({"bind"}).code, 0);
    const auto result = runConfigured({"bind", "blocked"});
    EXPECT_EQ(result.code, 4);
    EXPECT_THAT(result.errors, HasSubstr("403"));
    EXPECT_THAT(runConfigured({"bind"}).output, HasSubstr("held"));
}

TEST_F(BindCommand, AServiceThatIsNotThereIsANetworkError) {
    startService();
    service->signal(SIGTERM);
    ASSERT_EQ(service->wait(), 0);
    const auto result = runConfigured({"bind"});
    EXPECT_EQ(result.code, 5);
    EXPECT_THAT(result.errors, HasSubstr("try again"));
}

TEST_F(BindCommand, AnInterruptionEndsItWith130) {
    RawServer silent([](TestSupport::RawConnection& connection) {
        if (connection.readRequest()) connection.awaitClose();
    });
    write(configuration,
          R"({"version":1,"parentProfileID":"p","brand":"b","development":true,)"
          R"("services":{"personalization-bind-anonymous":{"method":"POST","url":")" +
              silent.url() + R"("}}})");
    Program program(words({"--config", configuration, "-v", "bind"}), environment);
    ASSERT_TRUE(silent.awaitRequests(1));
    program.signal(SIGINT);
    EXPECT_EQ(program.wait(), 130);
}

TEST_F(BindCommand, ADamagedBindFileIsAWarningAndANewBind) {
    startService();
    ASSERT_EQ(runConfigured({"bind"}).code, 0);
    write(bindFile(), "{damaged");
    const auto result = runConfigured({"bind"});
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.errors, HasSubstr("warning"));
    EXPECT_THAT(result.output, HasSubstr("obtained from the service"));
}

}  // namespace
