#include <csignal>
#include <string>

#include <HalvardSling/json/JSONDictionary.hpp>

#include "CommandLineFixture.hpp"
#include "support/RawServer.hpp"

namespace {

using HalvardSling::JSONDictionary;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using TestSupport::CommandLine;
using TestSupport::Pipe;
using TestSupport::Program;
using TestSupport::RawServer;
using TestSupport::write;

class Batch : public CommandLine {
  protected:
    /// A file of identifiers of which the fourth line is one that the service refuses: the name of
    /// another parameter.
    std::string fileWithAWrongLine() {
        const std::string file = directory / "ids.txt";
        write(file, "# videos to watch\nv1\n\n  a&color=red \r\nv2\r\nv3");
        return file;
    }
};

TEST_F(Batch, TheRestIsDoneAndTheFailureHasItsPlace) {
    startService();
    const std::string file = fileWithAWrongLine();
    const auto result = runConfigured({"watchlist", "add", "v0", "--from", file});
    EXPECT_EQ(result.code, 7);
    EXPECT_EQ(result.output, "added 4 of 5 to the watch list; 1 failed\n");
    EXPECT_THAT(result.errors,
                AllOf(HasSubstr(file + ":4: 'a&color=red'"), HasSubstr("400"), HasSubstr("color")));
    const std::string list = outputOf({"watchlist", "list"});
    for (const auto* const id : {"v0", "v1", "v2", "v3"})
        EXPECT_THAT(list, HasSubstr(id));
}

TEST_F(Batch, FailFastBeginsNothingMore) {
    startService();
    const auto result = runConfigured(
        {"watchlist", "add", "--from", fileWithAWrongLine(), "--jobs", "1", "--fail-fast"});
    EXPECT_EQ(result.code, 7);
    EXPECT_EQ(result.output, "added 1 of 4 to the watch list; 1 failed; 2 not tried\n");
    EXPECT_THAT(outputOf({"watchlist", "list"}), AllOf(HasSubstr("v1"), Not(HasSubstr("v2"))));
}

TEST_F(Batch, InJSONTheSummaryHoldsEveryFailure) {
    startService();
    const std::string file = fileWithAWrongLine();
    const auto result = runConfigured({"favorites", "add", "", "--from", file, "--json"});
    EXPECT_EQ(result.code, 7);
    const auto parsed = JSONDictionary::parse(result.output);
    const auto& summary = std::get<JSONDictionary>(parsed);
    EXPECT_EQ(summary.integer("done"), 3);
    EXPECT_EQ(summary.integer("failed"), 2);
    EXPECT_EQ(summary.integer("notTried"), 0);
    EXPECT_EQ(summary.dictionaries("failures")->size(), 2U);
    EXPECT_THAT(result.output, HasSubstr(file + ":4"));
}

TEST_F(Batch, StandardInputNamesItemsToo) {
    startService();
    const auto result = runShell("printf 's1\\ns2\\n' | $client favorites add --from - --jobs 2");
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_EQ(result.output, "added 2 of 2 to the favorites\n");
    const auto wrong = runShell("printf '\\nx&y\\n' | $client favorites remove --from -");
    EXPECT_EQ(wrong.code, 7);
    EXPECT_THAT(wrong.errors, HasSubstr("standard input:2"));
}

TEST_F(Batch, TheByteOrderMarkOfAFileIsNoPartOfItsFirstItem) {
    startService();
    const std::string file = directory / "ids.txt";
    write(file, "\xEF\xBB\xBFv1\r\n");
    outputOf({"watchlist", "add", "--from", file});
    EXPECT_THAT(outputOf({"watchlist", "list", "--json"}), HasSubstr(R"("id":"v1")"));
}

TEST_F(Batch, AFailureShowsTheBeginOfALongItem) {
    startService();
    const std::string item(3000, 'x');
    const auto result = runConfigured({"watchlist", "add", item});
    EXPECT_THAT(result.errors, HasSubstr("'" + std::string(79, 'x') + "…': "));
    EXPECT_THAT(runConfigured({"watchlist", "add", item, "--json"}).output,
                HasSubstr(R"("item":")" + item + '"'));
}

TEST_F(Batch, AFileThatIsNotThereOrNamesNothingIsAUsageError) {
    startService();
    const auto missing = runConfigured({"history", "remove", "--from", directory / "none"});
    EXPECT_EQ(missing.code, 2);
    EXPECT_THAT(missing.errors, HasSubstr("No such file"));
    EXPECT_EQ(runConfigured({"history", "remove", "--from", directory.path()}).code, 2);
    EXPECT_EQ(runConfigured({"history", "remove", "--from", "/dev/null"}).code, 2);
    EXPECT_EQ(runConfigured({"history", "remove", "v", "--jobs", "0"}).code, 2);
    EXPECT_EQ(runConfigured({"history", "remove", "v", "--jobs", "65"}).code, 2);
}

TEST_F(Batch, SoManyRequestsAreInFlightAndAnInterruptionEndsThem) {
    RawServer server([](TestSupport::RawConnection& connection) {
        if (const auto request = connection.readRequest(); request->starts_with("POST"))
            connection.send(TestSupport::httpReply(200, R"({"profileId":"p","token":"t"})"));
        else
            connection.awaitClose();
    });
    configureWatchList(server.url(""));
    Program program(words({"--config", configuration, "watchlist", "add", "1", "2", "3", "4", "5",
                           "--jobs", "3"}),
                    environment);
    ASSERT_TRUE(server.awaitRequests(4));
    program.signal(SIGINT);
    EXPECT_EQ(program.wait(), 130);
    EXPECT_EQ(server.requests().size(), 4U);
    EXPECT_EQ(program.output(), "added 0 of 5 to the watch list; 3 aborted; 2 not tried\n");
}

TEST_F(Batch, AnInterruptionEndsTheWaitForStandardInput) {
    startService();
    outputOf({"bind"});
    const Pipe input(directory / "input");
    input.write("s1\n");
    Program program(words({"--config", configuration, "favorites", "add", "--from", "-"}),
                    environment, input.file());
    ASSERT_TRUE(input.isRead());
    program.signal(SIGINT);
    EXPECT_EQ(program.wait(), 130) << program.errors();
}

TEST_F(Batch, ATerminalShowsHowFarItIs) {
    if (!std::filesystem::exists("/usr/bin/script"))
        GTEST_SKIP() << "no program to make a terminal";
    startService();
    environment["TERM"] = "xterm";
    const auto onTerminal = runOnTerminal("favorites add s1 s2 s3");
    EXPECT_EQ(onTerminal.code, 0) << onTerminal.errors;
    EXPECT_THAT(onTerminal.output, HasSubstr("██████████ 3 of 3, 0 failed"));
    environment["TERM"] = "dumb";
    EXPECT_EQ(runOnTerminal("favorites add s1 s2").output, "added 2 of 2 to the favorites\r\n");
    EXPECT_THAT(runConfigured({"favorites", "add", "s1", "s2"}).errors, testing::IsEmpty());
}

}  // namespace
