#include <filesystem>
#include <string>

#include "CommandLineFixture.hpp"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using TestSupport::CommandLine;

/// The questions before something is deleted that cannot be had back.
class Confirmation : public CommandLine {
  protected:
    void SetUp() override {
        if (!std::filesystem::exists("/usr/bin/script"))
            GTEST_SKIP() << "no program to make a terminal";
        startService();
        outputOf({"watchlist", "add", "v1"});
    }

    std::string watchList() { return outputOf({"watchlist", "list"}); }
};

TEST_F(Confirmation, OnATerminalOnlyYesGoesOn) {
    for (const auto* const typed : {"", "\\n", "n\\n", "no\\n", "yess\\n", "x\\ny\\n"}) {
        SCOPED_TRACE(typed);
        const auto refused = runOnTerminal("watchlist clear", typed);
        EXPECT_EQ(refused.code, 130);
        EXPECT_THAT(refused.output,
                    AllOf(HasSubstr("clear the watch list of the profile 'parent'? [y/N] "),
                          HasSubstr("nothing was done"), HasSubstr("--yes")));
        EXPECT_THAT(watchList(), HasSubstr("v1"));
    }
    for (const auto* const typed : {"y\\n", " YES \\n"}) {
        SCOPED_TRACE(typed);
        outputOf({"watchlist", "add", "v1"});
        const auto done = runOnTerminal("watchlist clear", typed);
        EXPECT_EQ(done.code, 0) << done.output;
        EXPECT_THAT(done.output, HasSubstr("cleared the watch list"));
        EXPECT_THAT(watchList(), Not(HasSubstr("v1")));
    }
}

TEST_F(Confirmation, YesOnTheCommandLineAsksNothing) {
    const auto done = runOnTerminal("watchlist clear --yes");
    EXPECT_EQ(done.code, 0) << done.output;
    EXPECT_THAT(done.output, Not(HasSubstr("?")));
    EXPECT_THAT(watchList(), Not(HasSubstr("v1")));
}

TEST_F(Confirmation, WhereNobodyCanBeAskedNothingIsDestroyedWithoutYes) {
    for (const auto* const command : {"watchlist clear", "search delete", "outbox drop --all",
                                      "profiles delete x", "api personalization-watchlist-clear"})
        for (const auto* const redirection : {" < /dev/null", " 2> /dev/null"}) {
            SCOPED_TRACE(command);
            EXPECT_EQ(runOnTerminal(std::string(command) + redirection).code, 2);
        }
    const auto piped = runShell("echo y | $client watchlist clear");
    EXPECT_EQ(piped.code, 2);
    EXPECT_THAT(piped.errors, AllOf(HasSubstr("nothing was done"), HasSubstr("--yes")));
    EXPECT_THAT(watchList(), HasSubstr("v1"));
    EXPECT_EQ(runShell("$client watchlist clear --yes").code, 0);
    EXPECT_THAT(watchList(), Not(HasSubstr("v1")));
}

TEST_F(Confirmation, ADryRunAsksNothing) {
    const auto shown = runOnTerminal("watchlist clear --dry-run");
    EXPECT_EQ(shown.code, 0);
    EXPECT_THAT(shown.output, AllOf(testing::StartsWith("curl "), Not(HasSubstr("[y/N]"))));
}

TEST_F(Confirmation, IsAskedOnceForManyProfiles) {
    outputOf({"profiles", "create", "Anna"});
    outputOf({"profiles", "create", "Bob"});
    const auto refused = runOnTerminal("profiles delete Anna", "n\\n");
    EXPECT_EQ(refused.code, 130);
    EXPECT_THAT(refused.output, HasSubstr("delete the profile 'Anna' with all lists? [y/N] "));
    const auto done = runOnTerminal("profiles delete Anna Bob", "y\\n");
    EXPECT_EQ(done.code, 0) << done.output;
    EXPECT_THAT(done.output, AllOf(HasSubstr("delete 2 profiles with all lists? [y/N] "),
                                   HasSubstr("deleted 2 of 2 profiles")));
}

TEST_F(Confirmation, ComesBeforeEveryClearAndTheDeletionOfSearches) {
    for (const auto* const command : {"history clear", "favorites clear", "search delete"}) {
        SCOPED_TRACE(command);
        const auto refused = runOnTerminal(command, "n\\n");
        EXPECT_EQ(refused.code, 130);
        EXPECT_THAT(refused.output, HasSubstr("of the profile 'parent'? [y/N] "));
    }
}

TEST_F(Confirmation, AnInterruptionEndsTheQuestion) {
    const auto result = interruptedOnTerminal("watchlist clear", "[y/N] ");
    EXPECT_EQ(result.code, 130);
    EXPECT_THAT(result.output, HasSubstr("interrupted"));
    EXPECT_THAT(watchList(), HasSubstr("v1"));
}

}  // namespace
