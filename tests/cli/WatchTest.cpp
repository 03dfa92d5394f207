#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include "CommandLineFixture.hpp"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using TestSupport::CommandLine;
using TestSupport::Program;

class Watch : public CommandLine {
  protected:
    void SetUp() override { startService(); }

    static std::string waitFor(const Program& program, const std::string& text,
                               std::string (Program::*where)() const = &Program::output) {
        using namespace std::chrono_literals;
        for (int attempt = 0; attempt < 1000; ++attempt, std::this_thread::sleep_for(10ms))
            if ((program.*where)().find(text) != std::string::npos) break;
        return (program.*where)();
    }

    /// What a second of watching shows on a terminal, which is prepared with commands of the shell.
    std::string watchedOnTerminal(const std::string& what, const std::string& prepared = "") {
        Program program({"/usr/bin/script", "-qec",
                         prepared + KESTRIN_CLIENT + " --config " + configuration + " " + what +
                             " --watch & watching=$!; sleep 1; kill -INT $watching; wait $watching",
                         "/dev/null"},
                        environment);
        EXPECT_EQ(program.wait(), 130);
        return program.output();
    }
};

TEST_F(Watch, PrintsAListAnewOnlyAfterAChangeAndEndsWith130) {
    Program program(words({"--config", configuration, "watchlist", "list", "--watch", "0.1"}),
                    environment);
    EXPECT_THAT(waitFor(program, "0 entries"), HasSubstr("0 entries"));
    outputOf({"watchlist", "add", "v1"});
    EXPECT_THAT(waitFor(program, "1 entry"), HasSubstr("v1"));
    const std::string before = program.output();
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    EXPECT_EQ(program.output(), before);
    program.signal(SIGINT);
    EXPECT_EQ(program.wait(), 130);
    EXPECT_THAT(program.errors(), IsEmpty());
    EXPECT_THAT(program.output(), testing::Not(HasSubstr("\x1b")));
}

TEST_F(Watch, PrintsADocumentOfJSONForEachChange) {
    Program program(words({"--config", configuration, "--json", "profiles", "list", "--watch=0.1"}),
                    environment);
    EXPECT_THAT(waitFor(program, "parent"), HasSubstr("parent"));
    outputOf({"profiles", "create", "Anna"});
    EXPECT_THAT(waitFor(program, "Anna"), HasSubstr("Anna"));
    program.signal(SIGTERM);
    EXPECT_EQ(program.wait(), 130);
    EXPECT_EQ(std::ranges::count(program.output(), '\n'), 2);
}

TEST_F(Watch, GoesOnWhereTheServiceDoesNotAnswer) {
    Program program(words({"--config", configuration, "history", "list", "--watch", "0.1"}),
                    environment);
    EXPECT_THAT(waitFor(program, "0 entries"), HasSubstr("0 entries"));
    service->signal(SIGTERM);
    ASSERT_EQ(service->wait(), 0);
    EXPECT_THAT(waitFor(program, "still trying", &Program::errors), HasSubstr("still trying"));
    program.signal(SIGINT);
    EXPECT_EQ(program.wait(), 130);
}

TEST_F(Watch, EndsWhereTheServiceRefuses) {
    outputOf({"profiles", "create", "Anna"});
    Program program(words({"--config", configuration, "--profile", "Anna", "history", "list",
                           "--watch", "0.1"}),
                    environment);
    EXPECT_THAT(waitFor(program, "0 entries"), HasSubstr("0 entries"));
    outputOf({"profiles", "delete", "Anna"});
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
    EXPECT_THAT(watchedOnTerminal("favorites list"),
                AllOf(HasSubstr("\x1b[H\x1b[2J"), HasSubstr("every 2 s"), HasSubstr("0 entries")));
}

TEST_F(Watch, ANarrowTerminalShowsTheBeginOfEachLine) {
    if (!std::filesystem::exists("/usr/bin/script"))
        GTEST_SKIP() << "no program to make a terminal";
    outputOf({"favorites", "add", "a-show-with-a-long-name", "夜夜夜夜夜夜夜夜夜夜夜夜"});
    environment["TERM"] = "xterm";
    const std::string shown = watchedOnTerminal("favorites list", "stty cols 20; ");
    EXPECT_THAT(shown, AllOf(HasSubstr("\x1b[1mSHOW               …\x1b[0m\r\n"),
                             HasSubstr("\na-show-with-a-long-…\r\n"),
                             HasSubstr("\n夜夜夜夜夜夜夜夜夜…\r\n")));
}

TEST_F(Watch, ATerminalThatCanOnlyPrintIsNotRedrawn) {
    if (!std::filesystem::exists("/usr/bin/script"))
        GTEST_SKIP() << "no program to make a terminal";
    environment["TERM"] = "dumb";
    EXPECT_THAT(watchedOnTerminal("favorites list"),
                AllOf(HasSubstr("0 entries"), testing::Not(HasSubstr("\x1b"))));
}

}  // namespace
