#include <csignal>
#include <string>

#include "CommandLineFixture.hpp"
#include "support/Waiting.hpp"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using TestSupport::CommandLine;
using TestSupport::Program;

class Watch : public CommandLine {
  protected:
    void SetUp() override { startService(); }

    /// What is shown on a terminal up to a text.
    std::string watchedOnTerminal(const std::string& what, const std::string& shown,
                                  const std::string& prepared = "") {
        const auto result = interruptedOnTerminal(what + " --watch", shown, prepared);
        EXPECT_EQ(result.code, 130);
        return result.output;
    }
};

TEST_F(Watch, PrintsAListAnewAfterAChangeAndEndsWith130) {
    Program program(words({"--config", configuration, "watchlist", "list", "--watch", "0.1"}),
                    environment);
    EXPECT_THAT(program.awaitOutput("0 entries"), HasSubstr("0 entries"));
    outputOf({"watchlist", "add", "v1"});
    EXPECT_THAT(program.awaitOutput("1 entry"), HasSubstr("v1"));
    program.signal(SIGINT);
    EXPECT_EQ(program.wait(), 130);
    EXPECT_THAT(program.errors(), IsEmpty());
    EXPECT_THAT(program.output(), testing::Not(HasSubstr("\x1b")));
}

TEST_F(Watch, PrintsAListOnceHoweverOftenItIsReadWithoutAChange) {
    Program program(words({"--config", configuration, "watchlist", "list", "--watch", "0.1", "-v"}),
                    environment);
    const auto timesRead = [&] {
        std::size_t count = 0;
        const std::string log = program.errors();
        for (auto at = log.find("GET "); at != std::string::npos; at = log.find("GET ", at + 1))
            ++count;
        return count;
    };
    EXPECT_TRUE(TestSupport::eventually([&] { return timesRead() >= 5; })) << program.errors();
    program.signal(SIGINT);
    EXPECT_EQ(program.wait(), 130);
    const std::string shown = program.output();
    EXPECT_NE(shown.find("0 entries"), std::string::npos);
    EXPECT_EQ(shown.find("0 entries"), shown.rfind("0 entries"));
}

TEST_F(Watch, PrintsADocumentOfJSONForEachChange) {
    Program program(words({"--config", configuration, "--json", "profiles", "list", "--watch=0.1"}),
                    environment);
    EXPECT_THAT(program.awaitOutput("parent"), HasSubstr("parent"));
    outputOf({"profiles", "create", "Anna"});
    EXPECT_THAT(program.awaitOutput("Anna"), HasSubstr("Anna"));
    program.signal(SIGTERM);
    EXPECT_EQ(program.wait(), 130);
    EXPECT_EQ(std::ranges::count(program.output(), '\n'), 2);
}

TEST_F(Watch, GoesOnWhereTheServiceDoesNotAnswer) {
    Program program(words({"--config", configuration, "history", "list", "--watch", "0.1"}),
                    environment);
    EXPECT_THAT(program.awaitOutput("0 entries"), HasSubstr("0 entries"));
    service->signal(SIGTERM);
    ASSERT_EQ(service->wait(), 0);
    EXPECT_THAT(program.awaitErrors("still trying"), HasSubstr("still trying"));
    program.signal(SIGINT);
    EXPECT_EQ(program.wait(), 130);
}

TEST_F(Watch, EndsWhereTheServiceRefuses) {
    outputOf({"profiles", "create", "Anna"});
    Program program(words({"--config", configuration, "--profile", "Anna", "history", "list",
                           "--watch", "0.1"}),
                    environment);
    EXPECT_THAT(program.awaitOutput("0 entries"), HasSubstr("0 entries"));
    outputOf({"profiles", "delete", "Anna", "--yes"});
    EXPECT_EQ(program.wait(), 4);
    EXPECT_THAT(program.errors(), HasSubstr("403"));
}

TEST_F(Watch, APeriodThatIsNoneIsAUsageError) {
    for (const auto* const period : {"0", "soon", "-1", "1e9", "nan"})
        EXPECT_EQ(runConfigured({"history", "list", "--watch=" + std::string(period)}).code, 2)
            << period;
}

TEST_F(Watch, ATerminalIsRedrawn) {
    if (!std::filesystem::exists("/usr/bin/script"))
        GTEST_SKIP() << "no program to make a terminal";
    environment["TERM"] = "xterm";
    EXPECT_THAT(watchedOnTerminal("favorites list", "0 entries"),
                AllOf(HasSubstr("\x1b[H\x1b[2J"), HasSubstr("every 2 s"), HasSubstr("0 entries")));
}

TEST_F(Watch, ANarrowTerminalShowsTheBeginOfEachCellAndLine) {
    if (!std::filesystem::exists("/usr/bin/script"))
        GTEST_SKIP() << "no program to make a terminal";
    outputOf({"favorites", "add", "a-show-with-a-long-name", "夜夜夜夜夜夜夜夜夜夜夜夜"});
    environment["TERM"] = "xterm";
    const std::string shown =
        watchedOnTerminal("favorites list", "2 entries, 500 at m…\x1b[0m\r\n", "stty cols 20; ");
    EXPECT_THAT(shown, AllOf(HasSubstr("\x1b[1mSHOW    KIND  ADDED\x1b[0m\r\n"),
                             HasSubstr("\na-sho…  SHOW  2"), HasSubstr("\n夜夜…   SHOW  2")));
}

TEST_F(Watch, ATerminalThatCanOnlyPrintIsNotRedrawn) {
    if (!std::filesystem::exists("/usr/bin/script"))
        GTEST_SKIP() << "no program to make a terminal";
    environment["TERM"] = "dumb";
    EXPECT_THAT(watchedOnTerminal("favorites list", "0 entries"),
                AllOf(HasSubstr("0 entries"), testing::Not(HasSubstr("\x1b"))));
}

}  // namespace
