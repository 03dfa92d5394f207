#include <string>

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
using TestSupport::RawServer;

class ListCommands : public CommandLine {
  protected:
    /// Makes everything be answered with this body, by a server that knows nothing of profiles.
    void answerEverythingWith(const std::string& body) {
        server =
            std::make_unique<RawServer>(RawServer::answering(TestSupport::httpReply(200, body)));
        TestSupport::write(
            configuration,
            R"({"version":1,"parentProfileID":"p","brand":"b","development":true,"services":{)"
            R"("personalization-bind-anonymous":{"method":"POST","body":"json","url":")" +
                server->url("/bind") + R"("},"personalization-history-get":{"url":")" +
                server->url("/history") + R"("}}})");
    }

    std::unique_ptr<RawServer> server;
};

TEST_F(ListCommands, TheHistoryShowsProgressAsTimeAndWhatIsCompleted) {
    startService();
    EXPECT_EQ(outputOf({"history", "add", "film", "--progress", "1:02:03"}),
              "added 1 of 1 to the history\n");
    outputOf({"history", "add", "clip", "--progress", "59"});
    outputOf({"history", "add", "news", "--progress", "15:00", "--completed"});
    const std::string output = outputOf({"history", "list"});
    EXPECT_THAT(output, ContainsRegex("film +VIDEO +1:02:03 +[0-9]{4}-"));
    EXPECT_THAT(output, ContainsRegex("clip +VIDEO +0:00:59 +[0-9]{4}-"));
    EXPECT_THAT(output, ContainsRegex("news +VIDEO +0:15:00 +completed"));
    EXPECT_LT(output.find("news"), output.find("film"));
    EXPECT_THAT(output, HasSubstr("3 entries, 500 at most"));
    EXPECT_THAT(output, Not(HasSubstr("█"))) << "nobody knows how long a video is";
}

TEST_F(ListCommands, RemovingWhatIsNotThereSaysSo) {
    startService();
    outputOf({"watchlist", "add", "v1", "v2"});
    EXPECT_EQ(outputOf({"watchlist", "remove", "v1", "v3"}),
              "removed 1 of 2 from the watch list; 1 was not there\n");
    EXPECT_EQ(outputOf({"watchlist", "remove", "v2", "--json"}),
              R"({"done":1,"failed":0,"aborted":0,"notTried":0,"notThere":0,"failures":[]})"
              "\n");
    EXPECT_EQ(outputOf({"favorites", "remove", "s1", "s2"}),
              "removed 0 of 2 from the favorites; 2 were not there\n");
}

TEST_F(ListCommands, WhatCannotBeReadIsRemovedAllTheSame) {
    answerEverythingWith(R"({"profileId":"p","token":"t"})");
    std::string text = TestSupport::contentOf(configuration);
    text.replace(text.find("personalization-history-get"), 27,
                 R"(personalization-history-delete-video":{"method":"DELETE","url":")" +
                     server->url("/?%VIDEO%") + R"("},"x)");
    TestSupport::write(configuration, text);
    EXPECT_EQ(outputOf({"history", "remove", "v1"}), "removed 1 of 1 from the history\n");
}

TEST_F(ListCommands, ChosenFieldsAloneAreShown) {
    startService();
    outputOf({"history", "add", "film", "--progress", "61", "--completed"});
    EXPECT_THAT(outputOf({"history", "list", "--fields", "progress,id"}),
                testing::StartsWith("PROGRESS  VIDEO\n0:01:01   film\n"));
    EXPECT_EQ(outputOf({"history", "list", "--json", "--fields", "id, progress"}),
              R"({"id":"history","maxSize":500,"elements":[{"id":"film","progress":61}]})"
              "\n");
    EXPECT_EQ(outputOf({"history", "progress", "film", "--fields=isCompleted"}),
              "STATE\ncompleted\n1 entry, 500 at most\n");
    EXPECT_EQ(outputOf({"profiles", "list", "--fields", "username"}), "NAME\nParent\n");
    EXPECT_EQ(outputOf({"profiles", "list", "--json", "--fields", "username"}),
              R"({"data":[{"username":"Parent"}]})"
              "\n");
}

TEST_F(ListCommands, AFieldThatIsNoneIsAUsageErrorWithTheNearest) {
    const auto result = run({"history", "list", "--fields", "id,progres"});
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.errors, HasSubstr(R"(unknown field "progres"; did you mean "progress"?)"));
    EXPECT_EQ(run({"favorites", "list", "--fields", "progress"}).code, 2);
    EXPECT_EQ(run({"favorites", "list", "--fields", "id,,type"}).code, 2);
}

TEST_F(ListCommands, ProgressIsShownForOneVideo) {
    startService();
    outputOf({"history", "add", "film", "--progress", "61"});
    EXPECT_THAT(outputOf({"history", "progress", "film"}), HasSubstr("0:01:01"));
    const auto unknown = runConfigured({"history", "progress", "none"});
    EXPECT_EQ(unknown.code, 6);
    EXPECT_THAT(unknown.errors, HasSubstr("history list"));
}

TEST_F(ListCommands, CompletionIsTakenBackAndOtherwiseStays) {
    startService();
    outputOf({"history", "add", "film", "--progress", "9", "--completed"});
    outputOf({"history", "add", "film", "--progress", "10"});
    EXPECT_THAT(outputOf({"history", "list"}), HasSubstr("completed"));
    outputOf({"history", "add", "film", "--progress", "11", "--not-completed"});
    EXPECT_THAT(outputOf({"history", "list"}), Not(HasSubstr("completed")));
}

TEST_F(ListCommands, ATimeThatIsNoneIsAUsageError) {
    for (const auto* const time :
         {"", "soon", "-1", "1:2", "1:60", "1:00:00:00", "99999999999999999"})
        EXPECT_EQ(run({"history", "add", "film", "--progress=" + std::string(time)}).code, 2)
            << time;
    EXPECT_EQ(run({"history", "add", "film"}).code, 2);
}

TEST_F(ListCommands, InJSONAListIsTheArchiveOfItsRecord) {
    startService();
    outputOf({"history", "add", "film", "--progress", "7", "--completed"});
    const auto parsed = JSONDictionary::parse(outputOf({"history", "list", "--json"}));
    const auto& list = std::get<JSONDictionary>(parsed);
    EXPECT_EQ(list.text("id"), "history");
    EXPECT_EQ(list.integer("maxSize"), 500);
    const auto elements = list.dictionaries("elements");
    ASSERT_TRUE(elements && elements->size() == 1);
    const JSONDictionary element = *elements->begin();
    EXPECT_EQ(element.text("id"), "film");
    EXPECT_EQ(element.integer("progress"), 7);
    EXPECT_EQ(element.boolean("isCompleted"), true);
    EXPECT_TRUE(element.text("autoAddTimestamp"));
    EXPECT_EQ(outputOf({"history", "clear", "--json", "--yes"}), "{\"status\":204}\n");
}

TEST_F(ListCommands, FavouritesAreAddedOneByOneAndManyInOneRequest) {
    startService();
    outputOf({"favorites", "add", "s1"});
    EXPECT_THAT(outputOf({"favorites", "add-many", "s2", "s3"}), HasSubstr("2 in one request"));
    const std::string output = outputOf({"favorites", "list"});
    EXPECT_LT(output.find("s3"), output.find("s2"));
    EXPECT_LT(output.find("s2"), output.find("s1"));
    EXPECT_THAT(output, ContainsRegex("s2 +SHOW"));
    EXPECT_EQ(outputOf({"favorites", "remove", "s1", "s3"}), "removed 2 of 2 from the favorites\n");
    EXPECT_THAT(outputOf({"favorites", "list"}), HasSubstr("1 entry"));
    outputOf({"favorites", "clear", "--yes"});
    EXPECT_THAT(outputOf({"favorites", "list"}), HasSubstr("0 entries"));
}

TEST_F(ListCommands, ManyFavouritesWithAnEmptyOneAreRefusedAsAWhole) {
    startService();
    const auto result = runConfigured({"favorites", "add-many", "s1", ""});
    EXPECT_EQ(result.code, 7);
    EXPECT_THAT(outputOf({"favorites", "list"}), HasSubstr("0 entries"));
}

TEST_F(ListCommands, TheWatchListIsFilledAndWorkedOff) {
    startService();
    outputOf({"watchlist", "add", "v1", "v2", "--jobs", "1"});
    outputOf({"watchlist", "remove", "v1"});
    EXPECT_THAT(outputOf({"watchlist", "list"}), AllOf(HasSubstr("v2"), Not(HasSubstr("v1"))));
    EXPECT_EQ(outputOf({"watchlist", "clear", "--yes"}), "cleared the watch list\n");
    EXPECT_EQ(runConfigured({"watchlist", "add", ""}).code, 7);
}

TEST_F(ListCommands, TheHistoryIsRemovedFromAndCleared) {
    startService();
    outputOf({"history", "add", "v1", "v2", "--progress", "1"});
    outputOf({"history", "remove", "v1"});
    EXPECT_THAT(outputOf({"history", "list"}), AllOf(HasSubstr("v2"), Not(HasSubstr("v1"))));
    outputOf({"history", "clear", "--yes"});
    EXPECT_THAT(outputOf({"history", "list"}), HasSubstr("0 entries"));
}

TEST_F(ListCommands, SearchesAreRecordedAndDeleted) {
    startService();
    EXPECT_EQ(outputOf({"search", "add", "crème brûlée & co", "50% #1"}),
              "added 2 of 2 to the search history\n");
    EXPECT_THAT(outputOf({"search", "delete", "--yes"}), HasSubstr("brand kestrin"));
    EXPECT_EQ(runConfigured({"search", "add"}).code, 2);
}

TEST_F(ListCommands, EachBrandHasItsOwnLists) {
    startService();
    outputOf({"favorites", "add", "s1", "--brand", "other"});
    EXPECT_THAT(outputOf({"favorites", "list"}), HasSubstr("0 entries"));
    EXPECT_THAT(outputOf({"favorites", "list", "--brand", "other"}), HasSubstr("s1"));
    EXPECT_THAT(outputOf({"search", "delete", "--brand", "other", "--yes"}),
                HasSubstr("brand other"));
}

TEST_F(ListCommands, WithoutABrandOneHasToBeNamed) {
    answerEverythingWith("{}");
    std::string text = TestSupport::contentOf(configuration);
    text.erase(text.find(R"("brand":"b",)"), 12);
    TestSupport::write(configuration, text);
    const auto result = runConfigured({"history", "list"});
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.errors, HasSubstr("--brand"));
}

TEST_F(ListCommands, DatesAreLocalOrInUTC) {
    answerEverythingWith(
        R"({"profileId":"p","token":"t","elements":[{"id":"v","autoAddTimestamp":"2017-03-09T23:25:43.511Z"}]})");
    environment["TZ"] = "EAST-02:30";
    EXPECT_THAT(outputOf({"history", "list"}), HasSubstr("2017-03-10 01:55:43"));
    EXPECT_THAT(outputOf({"history", "list", "--utc"}),
                AllOf(HasSubstr("2017-03-09 23:25:43"), HasSubstr("(UTC)")));
}

TEST_F(ListCommands, NoControlCharacterOfTheServiceReachesTheTerminal) {
    answerEverythingWith(
        R"({"profileId":"p","token":"t","elements":[{"id":"a\u001b[2Jb\u009bc\u202Ed\u007f"}]})");
    EXPECT_THAT(outputOf({"history", "list"}), HasSubstr("a?[2Jb?c?d?"));
    EXPECT_THAT(outputOf({"history", "list", "--json"}),
                AllOf(HasSubstr(R"(\u009bc\u202ed\u007f)"), Not(HasSubstr("\x1b"))));
}

TEST_F(ListCommands, AReplyWithoutAUsableListIsTheServicesError) {
    answerEverythingWith(R"({"profileId":"p","token":"t","elements":[1]})");
    const auto result = runConfigured({"history", "list"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.errors, HasSubstr("--json"));
}

TEST_F(ListCommands, AnOperationThatIsNotConfiguredIsAUsageError) {
    answerEverythingWith(R"({"profileId":"p","token":"t"})");
    const auto result = runConfigured({"favorites", "list"});
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.errors, HasSubstr("config check"));
}

TEST_F(ListCommands, WideCharactersKeepTheColumnsInPlace) {
    startService();
    outputOf({"watchlist", "add", "映画", "film"});
    const std::string output = outputOf({"watchlist", "list"});
    EXPECT_THAT(output, AllOf(HasSubstr("映画   VIDEO"), HasSubstr("film   VIDEO")));
}

}  // namespace
