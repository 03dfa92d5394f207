#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include <HalvardSling/json/JSONDictionary.hpp>

#include "BusyService.hpp"
#include "CommandLineFixture.hpp"
#include "support/RawServer.hpp"

namespace {

namespace fs = std::filesystem;
using HalvardSling::JSONDictionary;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using TestSupport::BusyService;
using TestSupport::CommandLine;
using TestSupport::Program;
using TestSupport::RawConnection;
using TestSupport::RawServer;

constexpr const char* kept = "kept; will be sent by 'kestrin-profile outbox send'\n";

class Later : public CommandLine {
  protected:
    void SetUp() override { startService(); }

    void stopService() {
        service->signal(SIGTERM);
        ASSERT_EQ(service->wait(), 0);
    }

    /// Runs a command that keeps its write, with time enough to send it.
    Result later(std::vector<std::string> arguments) {
        arguments.emplace_back("--later=3600");
        return runConfigured(std::move(arguments));
    }

    /// The entries that are listed as "waiting" or "refused".
    std::vector<JSONDictionary> listed(const char* state) {
        const auto parsed = JSONDictionary::parse(outputOf({"outbox", "list", "--json"}));
        const auto& document = std::get<JSONDictionary>(parsed);
        std::vector<JSONDictionary> entries;
        const auto list = document.dictionaries(state).value();
        for (const auto& entry : list)
            entries.push_back(entry);
        return entries;
    }

    std::size_t count(const char* state) { return listed(state).size(); }

    std::string create(const std::string& name) {
        const std::string document = outputOf({"profiles", "create", name, "--json"});
        std::smatch found;
        EXPECT_TRUE(std::regex_search(document, found, std::regex(R"re("profileId":"([^"]*)")re")));
        return found[1];
    }
};

/// Every command that keeps a write.
const std::vector<std::vector<std::string>> writes{{"history", "add", "v", "--progress", "1"},
                                                   {"history", "remove", "v"},
                                                   {"history", "clear", "--yes"},
                                                   {"favorites", "add", "s"},
                                                   {"favorites", "add-many", "s", "t"},
                                                   {"favorites", "remove", "s"},
                                                   {"favorites", "clear", "--yes"},
                                                   {"watchlist", "add", "v"},
                                                   {"watchlist", "remove", "v"},
                                                   {"watchlist", "clear", "--yes"},
                                                   {"search", "add", "text"},
                                                   {"search", "delete", "--yes"}};

TEST_F(Later, EveryWriteIsSentIfTheServiceIsThere) {
    for (const auto& command : writes) {
        const auto result = later(command);
        EXPECT_EQ(result.code, 0) << result.errors;
        EXPECT_EQ(result.output, "kept; sent\n") << testing::PrintToString(command);
        EXPECT_THAT(result.errors, IsEmpty());
    }
    EXPECT_THAT(outputOf({"outbox", "list"}), HasSubstr("0 waiting, 0 refused\n"));
}

TEST_F(Later, EveryWriteIsKeptAndSentWhenTheServiceIsBack) {
    outputOf({"bind"});
    for (const auto& command : writes) {
        SCOPED_TRACE(testing::PrintToString(command));
        stopService();
        const auto result = later(command);
        EXPECT_EQ(result.code, 0) << result.errors;
        EXPECT_EQ(result.output, kept);
        EXPECT_THAT(result.errors, HasSubstr("not sent yet: "));
        startService();
        EXPECT_EQ(outputOf({"outbox", "send"}), "1 sent\n");
        EXPECT_EQ(outputOf({"outbox", "send"}), "nothing\n");
    }
}

TEST_F(Later, WhatArrivesIsWhatWasWritten) {
    outputOf({"watchlist", "add", "old"});
    stopService();
    outputOf({"history", "add", "film", "--progress", "1:02:03", "--completed", "--later"});
    outputOf({"favorites", "add-many", "s1", "s2", "--later"});
    outputOf({"watchlist", "remove", "old", "--later"});
    outputOf({"watchlist", "add", "v1", "v2", "v1", "--later"});
    startService();
    outputOf({"outbox", "send"});
    EXPECT_THAT(outputOf({"history", "list"}),
                testing::ContainsRegex("film +VIDEO +1:02:03 .* completed"));
    EXPECT_THAT(outputOf({"favorites", "list"}), AllOf(HasSubstr("s1"), HasSubstr("s2")));
    EXPECT_THAT(
        outputOf({"watchlist", "list"}),
        AllOf(testing::ContainsRegex("v1.*\nv2"), Not(HasSubstr("old")), HasSubstr("2 entries")));
}

TEST_F(Later, ALaterWriteOfAnotherProcessComesAfterTheEarlierOne) {
    outputOf({"bind"});
    stopService();
    outputOf({"watchlist", "add", "v1", "--later"});
    outputOf({"watchlist", "remove", "v1", "--later"});
    // The first one is there still if the second process was just trying to send it.
    const auto waiting = listed("waiting");
    ASSERT_FALSE(waiting.empty());
    EXPECT_EQ(waiting.back().text("operation"), "personalization-watchlist-delete-video");
    EXPECT_EQ(waiting.back().text("item"), "v1");
    startService();
    outputOf({"outbox", "send"});
    EXPECT_THAT(outputOf({"watchlist", "list"}), HasSubstr("0 entries"));
}

TEST_F(Later, ManyAtOnceAreCountedAndInJSONToo) {
    EXPECT_EQ(later({"watchlist", "add", "v1", "v2"}).output, "kept 2 of 2; 2 sent\n");
    stopService();
    EXPECT_EQ(later({"watchlist", "add", "v1", "v2"}).output,
              "kept 2 of 2; 2 will be sent by 'kestrin-profile outbox send'\n");
    const auto parsed =
        JSONDictionary::parse(later({"favorites", "add", "s1", "s1", "--json"}).output);
    const auto& document = std::get<JSONDictionary>(parsed);
    EXPECT_EQ(document.integer("kept"), 2);
    EXPECT_EQ(document.integer("sent"), 0);
    EXPECT_EQ(document.integer("superseded").value() + document.integer("waiting").value(), 2);
    EXPECT_EQ(document.dictionaries("failures")->size(), 0U);
}

TEST_F(Later, WhatCannotBeKeptIsSaidWithItsPlace) {
    const std::string file = directory / "ids.txt";
    TestSupport::write(file, "v1\n\xff\nv2\n");
    const auto result = later({"watchlist", "add", "--from", file});
    EXPECT_EQ(result.code, 7);
    EXPECT_EQ(result.output, "kept 2 of 3; 2 sent\n");
    EXPECT_THAT(result.errors, AllOf(HasSubstr(file + ":2: "), HasSubstr("UTF-8")));
}

TEST_F(Later, WhatTheServiceRefusesForGoodIsSaidAndListed) {
    const auto result = later({"watchlist", "add", "v1", "a&color=red"});
    EXPECT_EQ(result.code, 7);
    EXPECT_EQ(result.output, "kept 2 of 2; 1 sent, 1 refused\n");
    EXPECT_THAT(result.errors, AllOf(HasSubstr("'a&color=red': the service refuses it: status 400"),
                                     HasSubstr("outbox list")));
    EXPECT_THAT(
        outputOf({"outbox", "list"}),
        AllOf(testing::ContainsRegex(
                  "refused +parent +[0-9]+ (s|min) +watchlist add 'a&color=red' +status 400"),
              HasSubstr("0 waiting, 1 refused\n")));
    const auto refused = listed("refused");
    ASSERT_EQ(refused.size(), 1U);
    EXPECT_EQ(refused[0].integer("status"), 400);
    EXPECT_EQ(refused[0].text("profileId"), "parent");
    EXPECT_EQ(outputOf({"outbox", "send"}), "nothing\n") << "it is not sent again";
}

TEST_F(Later, WhatIsRefusedWhenItIsSentFailsTheSending) {
    outputOf({"bind"});
    stopService();
    outputOf({"watchlist", "add", "v1", "a&color=red", "--later"});
    startService();
    const auto result = runConfigured({"outbox", "send"});
    EXPECT_EQ(result.code, 7);
    EXPECT_THAT(result.output,
                AllOf(testing::StartsWith("1 sent, 1 refused\n"),
                      testing::ContainsRegex("refused [0-9]+, watchlist add 'a&color=red': status "
                                             "400")));
}

TEST_F(Later, WhatCannotBeSentStaysAndTheSendingFails) {
    outputOf({"bind"});
    stopService();
    outputOf({"watchlist", "add", "v1", "--later"});
    outputOf({"search", "add", "text", "--later"});
    const auto result = runConfigured({"outbox", "send"});
    EXPECT_EQ(result.code, 5);
    EXPECT_EQ(result.output, "2 will be sent by 'kestrin-profile outbox send'\n");
    EXPECT_THAT(result.errors, HasSubstr("2 not sent: "));
    EXPECT_EQ(count("waiting"), 2U);
}

TEST_F(Later, WhatIsRefusedForTheProfileWaitsForABind) {
    const std::string anna = create("Anna");
    outputOf({"bind", anna});
    stopService();
    startService({"--block", anna});
    const auto result = later({"favorites", "add", "s1", "--profile", anna});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.output, kept);
    const auto sent = runConfigured({"outbox", "send"});
    EXPECT_EQ(sent.code, 4);
    EXPECT_THAT(sent.errors, HasSubstr("kestrin-profile bind"));
    stopService();
    startService({"--unblock", anna});
    EXPECT_EQ(outputOf({"outbox", "send"}), "1 sent\n");
    EXPECT_THAT(outputOf({"favorites", "list", "--profile", anna}), HasSubstr("s1"));
}

TEST_F(Later, SendingForAMinuteEndsWhereOnlyABindIsWaitedFor) {
    const std::string anna = create("Anna");
    outputOf({"bind", anna});
    stopService();
    outputOf({"favorites", "add", "s1", "s2", "--profile", anna, "--later=0"});
    startService({"--block", anna});
    const auto begin = std::chrono::steady_clock::now();
    const auto sent = runConfigured({"outbox", "send", "--retry"});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60))
        << "it waited for what cannot come";
    EXPECT_EQ(sent.code, 4);
    EXPECT_EQ(sent.output, "2 will be sent by 'kestrin-profile outbox send'\n");
}

TEST_F(Later, ARefusedEntryThatMadeRoomIsNotRefusedAnew) {
    std::vector<std::string> first{"watchlist", "add"};
    for (int entry = 0; entry < 100; ++entry)  // as many as are kept
        first.push_back("a&" + std::to_string(entry));
    EXPECT_EQ(later(first).code, 7);
    stopService();
    outputOf({"watchlist", "add", "b&1", "--later=0"});
    startService();
    const auto result = runConfigured({"outbox", "send"});
    EXPECT_EQ(result.code, 7);
    EXPECT_THAT(result.output, testing::StartsWith("1 refused\n"));
    EXPECT_EQ(count("refused"), 100U);
}

TEST_F(Later, WhatWaitsIsListedAsAShellTakesIt) {
    stopService();
    outputOf({"search", "add", "a fox's den", "--later=0"});
    EXPECT_THAT(outputOf({"outbox", "list"}), HasSubstr(R"(search add 'a fox'\''s den')"));
}

TEST_F(Later, TheFileIsItsOwnersAloneAsAreItsFolders) {
    stopService();
    outputOf({"watchlist", "add", "v1", "--later"});
    EXPECT_EQ(fs::status(outboxFile()).permissions(), fs::perms(0600));
    for (fs::path folder = outboxFile().parent_path(); folder != directory.path();
         folder = folder.parent_path())
        EXPECT_EQ(fs::status(folder).permissions(), fs::perms(0700)) << folder;
}

TEST_F(Later, WhereNothingCanBeKeptTheCommandFails) {
    TestSupport::write(directory / "state", "a file in the place of the folder");
    const auto result = later({"watchlist", "add", "v1"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.errors, HasSubstr("the outbox cannot be used: "));
    EXPECT_THAT(outputOf({"watchlist", "list"}), HasSubstr("0 entries"));
}

TEST_F(Later, ProcessesThatKeepAtOnceLoseAndDoubleNothing) {
    stopService();
    constexpr int processes = 4;
    std::vector<std::unique_ptr<Program>> programs;
    for (int number = 0; number < processes; ++number)
        programs.push_back(
            std::make_unique<Program>(words({"--config", configuration, "search", "add",
                                             "text " + std::to_string(number), "--later"}),
                                      environment));
    for (const auto& program : programs)
        EXPECT_EQ(program->wait(), 0) << program->errors();
    const auto waiting = listed("waiting");
    std::vector<std::string> texts;
    for (const auto& entry : waiting)
        texts.emplace_back(entry.text("item").value_or(""));
    EXPECT_THAT(texts, testing::UnorderedElementsAre("text 0", "text 1", "text 2", "text 3"));
}

TEST_F(Later, ADryRunShowsTheRequestsAndKeepsNothing) {
    for (const auto& command : writes) {
        auto arguments = command;
        arguments.insert(arguments.end(), {"--later", "--dry-run"});
        EXPECT_THAT(outputOf(arguments), testing::StartsWith("curl "));
    }
    EXPECT_FALSE(fs::exists(directory.path() / "state"));
    stopService();
    outputOf({"watchlist", "add", "v1", "--later"});
    outputOf({"favorites", "add", "s1", "--later", "--profile", "parent"});
    const std::string shown = outputOf({"outbox", "send", "--dry-run"});
    EXPECT_EQ(std::ranges::count(shown, '\n'), 2);
    EXPECT_THAT(shown,
                AllOf(HasSubstr("video=v1"), HasSubstr("$KESTRIN_TOKEN"), Not(HasSubstr("eyJ"))));
    EXPECT_EQ(outputOf({"outbox", "drop", "--all", "--dry-run"}), "would drop 2 entries\n");
    EXPECT_EQ(count("waiting"), 2U);
}

TEST_F(Later, ATimeThatIsNoneIsAUsageError) {
    for (const auto* const time : {"soon", "-1", "1e9", "nan"})
        EXPECT_EQ(runConfigured({"watchlist", "add", "v", "--later=" + std::string(time)}).code, 2)
            << time;
}

TEST_F(Later, WhatIsDroppedIsNotSent) {
    stopService();
    outputOf({"watchlist", "add", "v1", "v2", "v3", "--later"});
    const auto first = listed("waiting").at(0).integer("number").value();
    EXPECT_EQ(runConfigured({"outbox", "drop", "12345", "--yes"}).code, 6);
    EXPECT_EQ(runConfigured({"outbox", "drop"}).code, 2);
    EXPECT_EQ(runConfigured({"outbox", "drop", "1", "--all"}).code, 2);
    EXPECT_EQ(count("waiting"), 3U);
    EXPECT_EQ(outputOf({"outbox", "drop", std::to_string(first), "--json", "--yes"}),
              "{\"dropped\":1}\n");
    EXPECT_EQ(count("waiting"), 2U);
    EXPECT_EQ(outputOf({"outbox", "drop", "--all", "--yes"}), "dropped 2 entries\n");
    startService();
    EXPECT_EQ(outputOf({"outbox", "send"}), "nothing\n");
}

TEST_F(Later, NothingIsDroppedWithoutAYes) {
    if (!fs::exists("/usr/bin/script")) GTEST_SKIP() << "no program to make a terminal";
    stopService();
    outputOf({"watchlist", "add", "v1", "--later"});
    const auto refused = runOnTerminal("outbox drop --all", "n\\n");
    EXPECT_EQ(refused.code, 130);
    EXPECT_THAT(refused.output, HasSubstr("drop every entry of the outbox? [y/N]"));
    EXPECT_EQ(count("waiting"), 1U);
    EXPECT_EQ(runOnTerminal("outbox drop --all", "y\\n").code, 0);
    EXPECT_EQ(count("waiting"), 0U);
}

TEST_F(Later, AnOutboxThatIsNotThereIsEmptyAndIsNotMade) {
    EXPECT_EQ(outputOf({"outbox", "list"}), "0 waiting, 0 refused\n");
    EXPECT_EQ(outputOf({"outbox", "drop", "--all", "--yes"}), "dropped 0 entries\n");
    EXPECT_FALSE(fs::exists(outboxFile()));
}

TEST_F(Later, TheListShowsTheFieldsThatAreChosen) {
    outputOf({"bind"});
    stopService();
    outputOf({"watchlist", "add", "v1", "--later=0"});
    EXPECT_EQ(outputOf({"outbox", "list", "--fields", "item,profileId"}),
              "ITEM  PROFILE\nv1    parent\n1 waiting, 0 refused\n");
    EXPECT_EQ(outputOf({"outbox", "list", "--json", "--fields", "number,item"}),
              R"({"waiting":[{"number":1,"item":"v1"}],"refused":[]})"
              "\n");
    const auto wrong = runConfigured({"outbox", "list", "--fields", "items"});
    EXPECT_EQ(wrong.code, 2);
    EXPECT_THAT(wrong.errors, HasSubstr("did you mean \"item\"?"));
}

/// A service of the test's own.
class LaterService : public CommandLine {};

TEST_F(LaterService, ThatDoesNotAnswerIsNotWaitedFor) {
    const RawServer silent([](RawConnection& connection) {
        if (connection.readRequest()) connection.awaitClose();
    });
    configureWatchList(silent.url(""));
    const auto result = runConfigured({"watchlist", "add", "v1", "--later=0"});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_EQ(result.output, kept);
}

TEST_F(LaterService, ThatDoesNotAnswerIsGivenUpAfterAnInterruptionAndTheWriteStays) {
    const RawServer silent([](RawConnection& connection) {
        if (connection.readRequest()) connection.awaitClose();
    });
    configureWatchList(silent.url(""));
    Program program(words({"--config", configuration, "watchlist", "add", "v1", "--later=3600"}),
                    environment);
    ASSERT_TRUE(silent.awaitRequests(1));
    program.signal(SIGINT);
    EXPECT_EQ(program.wait(), 130);
    EXPECT_EQ(program.output(), kept);
    EXPECT_THAT(outputOf({"outbox", "list"}), HasSubstr("1 waiting, 0 refused"));
}

TEST_F(LaterService, ThatIsBusyIsAskedAgainByOneWhoWaits) {
    BusyService server(1000);
    configureWatchList(server.url());
    EXPECT_EQ(runConfigured({"watchlist", "add", "v1", "--later"}).output, kept);
    server.busy = 2;
    const auto result = runConfigured({"outbox", "send", "--retry"});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_EQ(result.output, "1 sent\n");
}

}  // namespace
