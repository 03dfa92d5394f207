#include <string>
#include <vector>

#include "CommandLineFixture.hpp"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using TestSupport::CommandLine;

class DryRun : public CommandLine {
  protected:
    /// A configuration of a service that is not there any more.
    void SetUp() override {
        startService();
        service->signal(SIGTERM);
        ASSERT_EQ(service->wait(), 0);
    }

    /// The words that a shell makes of a command line, one a line.
    std::string wordsOf(const std::string& commandLine) {
        TestSupport::Program shell(
            {"/bin/bash", "-c",
             "export KESTRIN_TOKEN=TheToken KESTRIN_X_HOUSEHOLD_SECRET=TheSecret; printf '%s\\n' " +
                 commandLine},
            environment);
        EXPECT_EQ(shell.wait(), 0) << shell.errors();
        return shell.output();
    }
};

TEST_F(DryRun, EveryCommandPrintsOneCurlCommandAndSendsNothing) {
    const std::vector<std::vector<std::string>> commands{
        {"bind"},
        {"profiles", "list"},
        {"profiles", "create", "Anna"},
        {"profiles", "edit", "id", "--name", "Anna", "--not-default"},
        {"profiles", "delete", "id"},
        {"profiles", "validate", "Anna"},
        {"history", "list"},
        {"history", "progress", "v"},
        {"history", "add", "v", "--progress", "1"},
        {"history", "remove", "v"},
        {"history", "clear"},
        {"favorites", "list"},
        {"favorites", "add", "s"},
        {"favorites", "add-many", "s", "t"},
        {"favorites", "remove", "s"},
        {"favorites", "clear"},
        {"watchlist", "list"},
        {"watchlist", "add", "v"},
        {"watchlist", "remove", "v"},
        {"watchlist", "clear"},
        {"search", "add", "text"},
        {"search", "delete"},
        {"bind", "--new"},
        {"api", "personalization-history-get"},
        {"api", "personalization-history-add-video", "video=v", "progress=1"}};
    for (auto command : commands) {
        SCOPED_TRACE(testing::PrintToString(command));
        command.emplace_back("--dry-run");
        const auto result = runConfigured(command);
        EXPECT_EQ(result.code, 0);
        EXPECT_THAT(result.errors, IsEmpty());
        EXPECT_THAT(result.output, testing::StartsWith("curl "));
        EXPECT_EQ(std::ranges::count(result.output, '\n'), 1);
        EXPECT_THAT(wordsOf(result.output), HasSubstr("http://127.0.0.1:"));
    }
}

TEST_F(DryRun, TheTokenIsAVariable) {
    const std::string command = outputOf({"history", "list", "--dry-run"});
    EXPECT_THAT(command, HasSubstr(R"('Authorization: JWT '"$KESTRIN_TOKEN")"));
    EXPECT_THAT(wordsOf(command), AllOf(HasSubstr("\nAuthorization: JWT TheToken\n"),
                                        HasSubstr("\nPXRO-PROFILE-ID: parent\n"),
                                        HasSubstr("\nAccept: application/json\n")));
}

TEST_F(DryRun, TheHouseholdsSecretIsAVariable) {
    EXPECT_THAT(
        wordsOf(outputOf({"bind", "--dry-run"})),
        AllOf(HasSubstr("\nX-Household-Secret: TheSecret\n"), HasSubstr("\n--request\nPOST\n"),
              HasSubstr("\n--data-raw\n{\"profileId\":\"parent\"}\n")));
}

TEST_F(DryRun, WhatIsTypedStaysOneWord) {
    const std::string words =
        wordsOf(outputOf({"profiles", "create", "O'Hara; $(rm) `x` \"y\" \\ ü", "--dry-run"}));
    EXPECT_THAT(words, HasSubstr(R"({"username":"O'Hara; $(rm) `x` \"y\" \\ ü","default":false})"));
}

TEST_F(DryRun, ManyItemsMakeManyCommandsInTheirOrder) {
    const std::string output = outputOf({"watchlist", "add", "v1", "v2", "v3", "--dry-run"});
    EXPECT_EQ(std::ranges::count(output, '\n'), 3);
    EXPECT_LT(output.find("video=v1"), output.find("video=v2"));
    EXPECT_LT(output.find("video=v2"), output.find("video=v3"));
}

TEST_F(DryRun, WhatCouldNotBeSentFailsHereToo) {
    EXPECT_EQ(runConfigured({"watchlist", "add", "a b", "c\nd", "--dry-run"}).code, 2);
    EXPECT_EQ(runConfigured({"profiles", "delete", "parent", "--dry-run"}).code, 7);
}

TEST_F(DryRun, NothingIsLookedUpAndNoBindIsKept) {
    EXPECT_THAT(outputOf({"history", "list", "--profile", "Anna", "--dry-run"}),
                HasSubstr("'PXRO-PROFILE-ID: Anna'"));
    EXPECT_FALSE(std::filesystem::exists(directory.path() / "state"));
    EXPECT_THAT(runConfigured({"profiles", "edit", "id", "--name", "A", "--dry-run"}).errors,
                HasSubstr("looks nothing up"));
}

/// With the service there.
class DryRunCommand : public CommandLine {};

TEST_F(DryRunCommand, DoesWhatTheProgramWouldHaveDone) {
    if (!std::filesystem::exists("/usr/bin/curl")) GTEST_SKIP() << "no curl";
    startService();
    outputOf({"bind"});
    const auto result = runShell(
        "KESTRIN_TOKEN=$(sed 's/.*\"token\":\"\\([^\"]*\\)\".*/\\1/' \"$XDG_STATE_HOME\"/"
        "kestrin-profile/binds/*/*/config.json); "
        "eval \"$($client history add 'ü-v' --progress 61 --completed --dry-run) --fail "
        "--silent\"");
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_THAT(outputOf({"history", "list"}),
                testing::ContainsRegex("ü-v +VIDEO +0:01:01 .* completed"));
}

}  // namespace
