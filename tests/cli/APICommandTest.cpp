#include <algorithm>
#include <string>
#include <utility>
#include <vector>

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

/// One operation, and what is sent and answered.
class APICommand : public CommandLine {
  protected:
    void SetUp() override { startService(); }
};

TEST_F(APICommand, WithoutAnOperationShowsAllWithTheirFields) {
    const std::string shown = outputOf({"api"});
    EXPECT_THAT(shown, ContainsRegex("personalization-history-add-video +video progress "
                                     "\\[completed\\]\n"));
    EXPECT_EQ(std::ranges::count(shown, '\n'), 23) << "a heading and 22 operations";
    EXPECT_THAT(outputOf({"api", "--json"}),
                HasSubstr(R"({"operation":"personalization-favorites-add-shows",)"
                          R"("required":["shows"],"optional":[]})"));
}

TEST_F(APICommand, EveryOperationIsSentAndAnswered) {
    const std::string created =
        outputOf({"api", "personalization-create-profile", "name=Anna", "avatar=fox", "--json"});
    const auto parsed = JSONDictionary::parse(created);
    const JSONDictionary exchange =
        *std::get<JSONDictionary>(parsed).dictionaries("exchanges")->begin();
    const std::string anna(*exchange.dictionary("reply")->dictionary("body")->text("profileId"));
    const std::vector<std::vector<std::string>> calls{
        {"personalization-bind-anonymous"},
        {"personalization-validator", "name=Ben"},
        {"personalization-get-profiles"},
        {"personalization-edit-profile", "profile=" + anna, "name=Anne", "default=true"},
        {"personalization-history-add-video", "video=v1", "progress=1:30", "completed=true"},
        {"personalization-history-get"},
        {"personalization-get-video-history", "video=v1"},
        {"personalization-history-delete-video", "video=v1"},
        {"personalization-history-clear", "--yes"},
        {"personalization-favorites-add-show", "show=s1"},
        {"personalization-favorites-add-shows", "shows=s2,s3"},
        {"personalization-favorites-get"},
        {"personalization-favorites-delete-show", "show=s1"},
        {"personalization-favorites-clear", "--yes"},
        {"personalization-watchlist-add-video", "video=v1"},
        {"personalization-watchlist-get"},
        {"personalization-watchlist-delete-video", "video=v1"},
        {"personalization-watchlist-clear", "--yes"},
        {"personalization-searchhistory-add", "search=a fox"},
        {"personalization-searchhistory-delete", "--yes"},
        {"personalization-delete-profile", "profile=" + anna, "--yes"}};
    for (auto call : calls) {
        SCOPED_TRACE(call.front());
        call.insert(call.begin(), "api");
        const std::string shown = outputOf(call);
        EXPECT_THAT(shown, testing::MatchesRegex("> (GET|POST|PUT|PATCH|DELETE) http://(.|\n)*"));
        EXPECT_THAT(shown, ContainsRegex("\n< status 20[014]\n"));
        EXPECT_THAT(shown, Not(HasSubstr("eyJ")));
    }
}

TEST_F(APICommand, ShowsWhatIsSentAndAnsweredWithoutSecrets) {
    const std::string shown =
        outputOf({"api", "personalization-history-add-video", "video=v1", "progress=90"});
    EXPECT_THAT(
        shown,
        AllOf(ContainsRegex("^> PUT http://127[^\n]*/v1/history/video\\?video=v1"),
              HasSubstr("\n> Authorization: ***\n"), HasSubstr("\n> PXRO-PROFILE-ID: parent\n"),
              ContainsRegex("\n> X-Request-ID: [0-9a-f-]+\n"),
              ContainsRegex("\n>\n> \\{.*\"progress\":\"90\""), HasSubstr("\n< status 204\n")));
    EXPECT_THAT(outputOf({"history", "list"}), HasSubstr("0:01:30"));
    const std::string bind = outputOf({"api", "personalization-bind-anonymous"});
    EXPECT_THAT(bind, AllOf(HasSubstr(R"("token":"***")"),
                            HasSubstr("\n> X-Household-Secret: ***\n"), Not(HasSubstr("eyJ"))));
    const auto parsed =
        JSONDictionary::parse(outputOf({"api", "personalization-history-get", "--json"}));
    const auto& document = std::get<JSONDictionary>(parsed);
    EXPECT_EQ(document.text("operation"), "personalization-history-get");
    const JSONDictionary exchange = *document.dictionaries("exchanges")->begin();
    EXPECT_EQ(exchange.dictionary("request")->dictionary("headers")->text("Authorization"), "***");
    EXPECT_EQ(exchange.dictionary("reply")->integer("status"), 200);
    EXPECT_TRUE(exchange.dictionary("reply")->dictionary("body")->dictionaries("elements"));
}

TEST_F(APICommand, TokensAreMaskedHoweverDeepTheyStand) {
    const TestSupport::RawServer server([](TestSupport::RawConnection& connection) {
        while (const auto request = connection.readRequest())
            connection.send(TestSupport::httpReply(
                200,
                R"({"profileId":"p","token":"s3cret-0","data":[{"profileId":"p",)"
                R"("said":"\"token\":\"plain\"","token":"s3cret-1","in":{"token":"s3\"cret-2"}}],)"
                R"("lists":[[{"token":"s3cret-3"}]]})"));
    });
    TestSupport::write(
        configuration,
        R"({"version":1,"parentProfileID":"p","brand":"b","development":true,"services":{)"
        R"("personalization-bind-anonymous":{"method":"POST","body":"json","url":")" +
            server.url("/bind") + R"("},"personalization-get-profiles":{"url":")" +
            server.url("/list") + R"("}}})");
    for (const auto& more : {std::vector<std::string>{}, {"--json"}}) {
        std::vector<std::string> words{"api", "personalization-get-profiles"};
        words.insert(words.end(), more.begin(), more.end());
        EXPECT_THAT(outputOf(words), AllOf(HasSubstr(R"("token":"***")"), HasSubstr("plain"),
                                           Not(HasSubstr("cret-"))));
    }
}

TEST_F(APICommand, WhatTheServiceRefusesIsShownAndFails) {
    const auto refused =
        runConfigured({"api", "personalization-watchlist-add-video", "video=a&b=c"});
    EXPECT_EQ(refused.code, 7);
    EXPECT_THAT(refused.output, AllOf(HasSubstr("\n< status 400\n"), HasSubstr("\n< {\"")));
    EXPECT_THAT(refused.errors, HasSubstr("status 400"));
}

TEST_F(APICommand, OperationsAndFieldsThatAreNoneAreNamedWithTheNearest) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"api", "personalization-histroy-get"}, R"(did you mean "personalization-history-get"?)"},
        {{"api", "personalization-get-video-history", "vido=v1"},
         R"(unknown field "vido"; did you mean "video"?)"},
        {{"api", "personalization-get-video-history"}, R"(the field "video" is missing)"},
        {{"api", "personalization-history-get", "video=v1"}, "takes no field"},
        {{"api", "personalization-watchlist-add-video", "v1"}, R"("v1" is no field)"},
        {{"api", "personalization-watchlist-add-video", "video=v1", "video=v2"}, "given twice"},
        {{"api", "personalization-history-add-video", "video=v1", "progress=soon"}, "is no time"},
        {{"api", "personalization-create-profile", "name=A", "default=yes"},
         "neither true nor false"}};
    for (const auto& [arguments, text] : cases) {
        const auto result = runConfigured(arguments);
        EXPECT_EQ(result.code, 2) << text;
        EXPECT_THAT(result.errors, HasSubstr(text));
    }
}

}  // namespace
