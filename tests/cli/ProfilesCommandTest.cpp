#include <string>

#include <HalvardSling/json/JSONDictionary.hpp>

#include "CommandLineFixture.hpp"
#include "support/RawServer.hpp"

namespace {

using HalvardSling::JSONDictionary;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using TestSupport::CommandLine;
using TestSupport::RawServer;
using TestSupport::write;

class ProfilesCommand : public CommandLine {
  protected:
    void SetUp() override { startService(); }

    /// Creates a profile.
    /// @return its identifier
    std::string create(const std::string& name) {
        const auto parsed = JSONDictionary::parse(outputOf({"--json", "profiles", "create", name}));
        return std::string(*std::get<JSONDictionary>(parsed).text("profileId"));
    }
};

TEST_F(ProfilesCommand, AreListedWithTheParentFirstAndNeedNoBindBefore) {
    EXPECT_THAT(outputOf({"profiles", "list"}),
                AllOf(HasSubstr("PROFILE"), HasSubstr("parent, default")));
}

TEST_F(ProfilesCommand, AreCreatedWithTheirLooks) {
    EXPECT_THAT(outputOf({"profiles", "create", "Zoë 🦊", "--avatar", "fox", "--group", "kids"}),
                AllOf(HasSubstr("Zoë 🦊"), HasSubstr("fox"), HasSubstr("kids")));
    EXPECT_THAT(outputOf({"profiles", "list"}), HasSubstr("Zoë 🦊"));
}

TEST_F(ProfilesCommand, InJSONHaveTheKeysOfTheRecord) {
    const std::string id = create("Anna");
    EXPECT_THAT(
        outputOf({"profiles", "list", "--json"}),
        AllOf(testing::StartsWith(R"({"data":[{"profileId":"parent")"),
              HasSubstr(R"({"profileId":")" + id + R"(","username":"Anna","default":false})")));
}

TEST_F(ProfilesCommand, ANameThatIsTakenIsRefusedWithTheReason) {
    create("Anna");
    const auto result = runConfigured({"profiles", "create", "anna"});
    EXPECT_EQ(result.code, 7);
    EXPECT_THAT(result.errors, AllOf(HasSubstr("422"), HasSubstr("correct")));
    EXPECT_THAT(result.output, IsEmpty());
}

TEST_F(ProfilesCommand, ANameIsValidatedWithoutBeingTaken) {
    EXPECT_THAT(outputOf({"profiles", "validate", "Anna & Bob #1"}), HasSubstr("Anna & Bob #1"));
    EXPECT_EQ(outputOf({"profiles", "validate", " Anna ", "--json"}),
              "{\"valid\":true,\"username\":\"Anna\"}\n");
    create("Anna");
    const auto refused = runConfigured({"profiles", "validate", "Anna"});
    EXPECT_EQ(refused.code, 7);
    EXPECT_THAT(refused.errors, HasSubstr("422"));
    EXPECT_EQ(runConfigured({"profiles", "validate", ""}).code, 7);
}

TEST_F(ProfilesCommand, AreEditedByNameAndByIdentifierAndKeepWhatIsNotGiven) {
    const std::string id = create("Anna");
    EXPECT_THAT(outputOf({"profiles", "edit", "Anna", "--avatar", "cat", "--default"}),
                HasSubstr(id));
    EXPECT_THAT(outputOf({"profiles", "edit", id, "--name", "Änne"}), HasSubstr(id));
    EXPECT_THAT(outputOf({"profiles", "list", "--json"}),
                HasSubstr(R"("username":"Änne","avatar":"cat","default":true)"));
    EXPECT_THAT(outputOf({"profiles", "edit", "Änne", "--not-default", "--json"}),
                HasSubstr(R"("default":false)"));
}

TEST_F(ProfilesCommand, AnEditThatChangesNothingIsAUsageError) {
    const auto result = runConfigured({"profiles", "edit", "parent"});
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.errors, HasSubstr("--name"));
}

TEST_F(ProfilesCommand, TheParentIsNeitherEditedNorDeleted) {
    EXPECT_EQ(runConfigured({"profiles", "edit", "parent", "--name", "Boss"}).code, 7);
    const auto result = runConfigured({"profiles", "delete", "parent", "--yes"});
    EXPECT_EQ(result.code, 7);
    EXPECT_THAT(result.errors, HasSubstr("choose another profile"));
}

TEST_F(ProfilesCommand, SeveralAreDeletedAtOnceAndAnUnknownOneIsNotFound) {
    const std::string bob = create("Bob");
    create("Anna");
    EXPECT_EQ(outputOf({"profiles", "delete", "Anna", bob, "--yes"}), "deleted 2 of 2 profiles\n");
    EXPECT_THAT(outputOf({"profiles", "list"}), AllOf(Not(HasSubstr("Anna")), Not(HasSubstr(bob))));
    const auto again = runConfigured({"profiles", "delete", "Anna", "--yes"});
    EXPECT_EQ(again.code, 6);
    EXPECT_THAT(again.errors, AllOf(HasSubstr("'Anna'"), HasSubstr("profiles list")));
}

TEST_F(ProfilesCommand, AProfileActsForItselfAndNotForOthers) {
    const std::string anna = create("Anna");
    const std::string bob = create("Bob");
    outputOf({"watchlist", "add", "v1", "--profile", "Anna"});
    EXPECT_THAT(outputOf({"--profile", anna, "watchlist", "list"}), HasSubstr("v1"));
    EXPECT_THAT(outputOf({"watchlist", "list", "--profile", "Bob"}), Not(HasSubstr("v1")));
    EXPECT_THAT(outputOf({"watchlist", "list"}), Not(HasSubstr("v1")));
    const auto refused = runConfigured({"profiles", "delete", bob, "--profile", "Anna", "--yes"});
    EXPECT_EQ(refused.code, 4);
    EXPECT_THAT(refused.errors, HasSubstr("403"));
}

TEST_F(ProfilesCommand, AnUnknownProfileCannotAct) {
    const auto result = runConfigured({"history", "list", "--profile", "Nobody"});
    EXPECT_EQ(result.code, 6);
    EXPECT_THAT(result.errors, HasSubstr("no profile 'Nobody'"));
}

TEST_F(ProfilesCommand, BindTakesTheProfileThatActs) {
    const std::string anna = create("Anna");
    EXPECT_EQ(outputOf({"bind", "--json", "--profile", "Anna"}),
              R"({"profileId":")" + anna + R"(","source":"service"})" + "\n");
}

TEST_F(ProfilesCommand, OneThatIsGoneIsRefusedAndAfterwardsUnknown) {
    const std::string anna = create("Anna");
    outputOf({"history", "list", "--profile", "Anna"});
    outputOf({"profiles", "delete", "Anna", "--yes"});
    EXPECT_EQ(runConfigured({"history", "list", "--profile", anna}).code, 6);
}

TEST_F(CommandLine, OfTwoProfilesThatAreNamedAlikeNoneIsTaken) {
    const RawServer server([](TestSupport::RawConnection& connection) {
        while (const auto request = connection.readRequest())
            connection.send(
                TestSupport::httpReply(200, request->starts_with("POST")
                                                ? R"({"profileId":"p","token":"t"})"
                                                : R"({"data":[{"profileId":"p","username":"Mum"},)"
                                                  R"({"profileId":"1","username":"Ann"},)"
                                                  R"({"profileId":"2","username":"Ann"},)"
                                                  R"({"profileId":"Ben","username":"Bob"},)"
                                                  R"({"profileId":"4","username":"Ben"}]})"));
    });
    write(configuration,
          R"({"version":1,"parentProfileID":"p","brand":"b","development":true,"services":{)"
          R"("personalization-bind-anonymous":{"method":"POST","url":")" +
              server.url("/bind") + R"("},"personalization-get-profiles":{"url":")" +
              server.url("/list") +
              R"("},"personalization-delete-profile":{"method":"DELETE","url":")" +
              server.url("/?%UXID%") + R"("}}})");
    const auto ambiguous = runConfigured({"profiles", "delete", "Ann", "--yes"});
    EXPECT_EQ(ambiguous.code, 2);
    EXPECT_THAT(ambiguous.errors, HasSubstr("2 profiles have the name 'Ann'"));
    EXPECT_EQ(outputOf({"profiles", "delete", "Ben", "--yes"}), "deleted 1 of 1 profiles\n");
    EXPECT_THAT(server.requests().back(), testing::StartsWith("DELETE /?Ben "))
        << "what is an identifier is no name";
}

}  // namespace
