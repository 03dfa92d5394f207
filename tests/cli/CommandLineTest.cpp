#include <filesystem>
#include <sstream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <HalvardSling/json/JSONDictionary.hpp>

#include "CommandLineFixture.hpp"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using TestSupport::CommandLine;
using TestSupport::write;

TEST_F(CommandLine, WithoutACommandItSaysWhatIsExpectedAndFails) {
    const auto result = run({});
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.output, IsEmpty());
    EXPECT_THAT(result.errors, HasSubstr("subcommand"));
}

TEST_F(CommandLine, AnUnknownOptionIsAUsageError) {
    EXPECT_EQ(run({"bind", "--nonsense"}).code, 2);
    EXPECT_EQ(run({"nonsense"}).code, 2);
}

TEST_F(CommandLine, AnUnknownCommandIsNamedWithTheNearest) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"hstory"}, R"(unknown command "hstory"; did you mean "history"?)"},
        {{"hstory", "list"}, R"(unknown command "hstory"; did you mean "history"?)"},
        {{"profiles", "lst"}, R"(unknown command "lst"; did you mean "list"?)"},
        {{"--json", "profiles", "lst", "--profile", "x"}, R"(unknown command \"lst\")"},
        {{"config", "xyzzy"}, R"(unknown command "xyzzy"; known are "check", "show")"},
        {{"help", "profiles", "lst"}, R"(unknown command "lst"; did you mean "list"?)"}};
    for (const auto& [arguments, text] : cases) {
        const auto result = run(arguments);
        EXPECT_EQ(result.code, 2);
        EXPECT_THAT(result.output, IsEmpty());
        EXPECT_THAT(result.errors, HasSubstr(text));
        EXPECT_THAT(result.errors, HasSubstr("--help"));
    }
}

TEST_F(CommandLine, AnUnknownOptionIsNamedWithTheNearest) {
    for (const auto& arguments :
         {std::vector<std::string>{"history", "add", "v1", "--progess", "5"},
          {"history", "add", "v1", "--progess=5"}}) {
        const auto result = run(arguments);
        EXPECT_EQ(result.code, 2);
        EXPECT_THAT(result.errors,
                    HasSubstr(R"(unknown option "--progess"; did you mean "--progress"?)"));
        EXPECT_THAT(result.errors, HasSubstr("kestrin-profile history add --help"));
    }
}

TEST_F(CommandLine, ArgumentsThatAreTooManyAreQuotedInTheirOrder) {
    const auto result = run({"bind", "Anna", "b c", "d\"e"});
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.errors, HasSubstr(R"(too many arguments: "b c", "d\"e")"));
}

TEST_F(CommandLine, InJSONAnErrorIsOneDocumentOnStandardError) {
    using HalvardSling::JSONDictionary;
    const auto documentOf = [&](std::vector<std::string> arguments) {
        arguments.emplace_back("--json");
        const auto result = runConfigured(std::move(arguments));
        EXPECT_THAT(result.output, IsEmpty());
        const auto parsed = JSONDictionary::parse(result.errors);
        EXPECT_TRUE(std::holds_alternative<JSONDictionary>(parsed)) << result.errors;
        const auto* const document = std::get_if<JSONDictionary>(&parsed);
        if (document == nullptr) return JSONDictionary();
        EXPECT_EQ(document->integer("exitCode"), result.code);
        EXPECT_TRUE(document->text("message"));
        return *document;
    };
    EXPECT_EQ(documentOf({"history", "lst"}).integer("exitCode"), 2);
    EXPECT_EQ(documentOf({"history", "list"}).integer("exitCode"), 2) << "no configuration";
    startService();
    const auto missing = documentOf({"bind", "nobody"});
    EXPECT_EQ(missing.integer("exitCode"), 6);
    EXPECT_EQ(missing.integer("status"), 404);
    EXPECT_TRUE(missing.text("advice"));
}

TEST_F(CommandLine, VariablesNameConfigurationProfileAndBrandAndOptionsCountMore) {
    startService();
    outputOf({"profiles", "create", "Anna"});
    outputOf({"watchlist", "add", "v1", "--profile", "Anna", "--brand", "other"});
    environment["KESTRIN_PROFILE_CONFIG"] = configuration;
    environment["KESTRIN_PROFILE_PROFILE"] = "Anna";
    environment["KESTRIN_PROFILE_BRAND"] = "other";
    EXPECT_THAT(run({"watchlist", "list"}).output, HasSubstr("v1"));
    EXPECT_THAT(run({"watchlist", "list", "--brand", "kestrin"}).output, Not(HasSubstr("v1")));
    EXPECT_THAT(run({"watchlist", "list", "--profile", "parent"}).output, Not(HasSubstr("v1")));
    EXPECT_EQ(run({"watchlist", "list", "--config", directory / "none.json"}).code, 2);
    environment["KESTRIN_PROFILE_PROFILE"] = "";
    EXPECT_THAT(run({"watchlist", "list"}).output, Not(HasSubstr("v1"))) << "empty is not set";
}

TEST_F(CommandLine, ATableFitsTheTerminalAndIsWholeInAPipe) {
    if (!std::filesystem::exists("/usr/bin/script"))
        GTEST_SKIP() << "no program to make a terminal";
    startService();
    const std::string longID(120, 'x');
    outputOf({"watchlist", "add", longID});
    environment["NO_COLOR"] = "1";
    const auto shown = runShell("script -qec \"stty cols 60; $client watchlist list\" /dev/null");
    EXPECT_THAT(shown.output, HasSubstr("x…  VIDEO  2"));
    EXPECT_THAT(shown.output, testing::ContainsRegex("(^|\n)VIDEO +KIND +ADDED\r\n"));
    std::istringstream lines(shown.output);
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 60U + std::string("…\r").size() - 1) << line;
    EXPECT_THAT(outputOf({"watchlist", "list"}), HasSubstr(longID));
}

TEST_F(CommandLine, OptionsThatContradictEachOtherAreAUsageError) {
    startService();
    for (const auto& arguments : {std::vector<std::string>{"history", "add", "v", "--progress", "1",
                                                           "--completed", "--not-completed"},
                                  {"profiles", "edit", "parent", "--default", "--not-default"}}) {
        const auto result = runConfigured(arguments);
        EXPECT_EQ(result.code, 2);
        EXPECT_THAT(result.errors, HasSubstr("excludes"));
    }
}

TEST_F(CommandLine, HelpAndVersionGoToStandardOutput) {
    const auto help = run({"--help"});
    EXPECT_EQ(help.code, 0);
    for (const auto* const text : {"bind", "config", "--config", "--json", "man -l"})
        EXPECT_THAT(help.output, HasSubstr(text));
    EXPECT_EQ(run({"--version"}).code, 0);
    EXPECT_THAT(run({"--version"}).output, testing::MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+\n"));
    EXPECT_EQ(run({"-V"}).output, run({"--version"}).output);
    EXPECT_EQ(run({"help"}).output, help.output);
    EXPECT_EQ(run({"help", "history", "add"}).output, run({"history", "add", "--help"}).output);
}

TEST_F(CommandLine, AMissingConfigurationIsAUsageErrorThatSaysWhatToDo) {
    const auto result = run({"bind"});
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.errors, HasSubstr("settings/kestrin-profile/config.json"));
    EXPECT_THAT(result.errors, HasSubstr("--config"));
    EXPECT_THAT(result.output, IsEmpty());
}

TEST_F(CommandLine, ConfigCheckAcceptsWhatTheServiceWrites) {
    startService();
    const auto result = runConfigured({"config", "check"});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_THAT(result.output, HasSubstr("22 services"));
    const auto json = runConfigured({"--json", "config", "check"});
    EXPECT_EQ(json.code, 0);
    EXPECT_THAT(json.output, HasSubstr(R"("problems":[])"));
}

TEST_F(CommandLine, ConfigCheckReportsEveryProblemWithItsPlace) {
    write(configuration,
          R"({"version":2,"parentProfileID":"","services":{"x":{"url":"ftp://a","body":"xml"}}})");
    const auto result = runConfigured({"config", "check"});
    EXPECT_EQ(result.code, 2);
    for (const auto* const place :
         {"$.version", "$.parentProfileID", R"($.services["x"].url)", R"($.services["x"].body)"})
        EXPECT_THAT(result.output, HasSubstr(place));
    const auto json = runConfigured({"config", "check", "--json"});
    EXPECT_EQ(json.code, 2);
    EXPECT_THAT(json.output, HasSubstr(R"("path":"$.version")"));
}

TEST_F(CommandLine, ConfigCheckReportsWhatDoesNotFitTheOperations) {
    write(configuration,
          R"({"version":1,"parentProfileID":"p","services":{"personalization-history-clear":)"
          R"({"url":"https://a/v1","method":"GET"}}})");
    const auto result = runConfigured({"config", "check"});
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.output, HasSubstr(R"($.services["personalization-history-clear"].method)"));
    const auto json = runConfigured({"config", "check", "--json"});
    EXPECT_EQ(json.code, 2);
    EXPECT_THAT(json.output, HasSubstr(R"({"severity":"error","path":"$.services[)"));
}

TEST_F(CommandLine, ConfigCheckPassesWithWarningsForOperationsWithoutAService) {
    write(configuration,
          R"({"version":1,"parentProfileID":"p","services":{"personalization-history-get":)"
          R"({"url":"https://a/v1/%UXID%"}}})");
    const auto result = runConfigured({"config", "check"});
    EXPECT_EQ(result.code, 0) << result.errors;
    for (const auto* const text : {"sound", "warning", "personalization-bind-anonymous"})
        EXPECT_THAT(result.output, HasSubstr(text));
}

TEST_F(CommandLine, ConfigShowHidesTheValuesOfHeadersAndOfTheQuery) {
    write(configuration,
          R"({"version":1,"parentProfileID":"p","brand":"b","services":{"x":{"url":"https://a/v1",)"
          R"("headers":{"X-Key":"geheim","Accept":"text/plain"},"query":{"key":"geheim"}}}})");
    const auto shown = runConfigured({"config", "show"});
    EXPECT_EQ(shown.code, 0) << shown.errors;
    for (const auto* const text : {"https://a/v1", "X-Key: ***", "Accept: text/plain", "key: ***"})
        EXPECT_THAT(shown.output, HasSubstr(text));
    const auto json = runConfigured({"config", "show", "--json"});
    EXPECT_THAT(json.output, HasSubstr(R"("headers":{"X-Key":"***","Accept":"text/plain"})"));
    EXPECT_THAT(json.output, HasSubstr(R"("connectTimeoutMilliseconds":10000)"));
    EXPECT_THAT(shown.output + json.output, Not(HasSubstr("geheim")));
}

TEST_F(CommandLine, ConfigShowOfAWrongConfigurationSaysWhatIsWrong) {
    write(configuration, "{}");
    const auto result = runConfigured({"config", "show"});
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.output, HasSubstr("$.version"));
}

TEST_F(CommandLine, ATerminalHasColoursUnlessTheyAreRefused) {
    if (!std::filesystem::exists("/usr/bin/script"))
        GTEST_SKIP() << "no program to make a terminal";
    startService();
    environment["TERM"] = "xterm";
    EXPECT_THAT(runOnTerminal("config check").output, HasSubstr("\x1b[32m"));
    environment["NO_COLOR"] = "1";
    EXPECT_THAT(runOnTerminal("config check").output, Not(HasSubstr("\x1b[")));
}

TEST_F(CommandLine, OutputThatCannotBeWrittenIsAnError) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no full device";
    EXPECT_EQ(runShell("$client man > /dev/full").code, 1);
}

TEST_F(CommandLine, OutputThatIsClosedIsAnErrorAndGoesNowhereElse) {
    startService();
    EXPECT_EQ(runShell("$client bind >&-").code, 1);
    EXPECT_EQ(runShell("$client watchlist add --from - <&-").code, 2);
    EXPECT_EQ(runShell("$client profiles list 2>&-").code, 0);
}

TEST_F(CommandLine, TheDefaultConfigurationIsFoundInTheSettingsOfTheUser) {
    startService();
    const auto place = directory.path() / "settings" / "kestrin-profile";
    std::filesystem::create_directories(place);
    std::filesystem::copy_file(configuration, place / "config.json");
    EXPECT_EQ(run({"config", "check"}).code, 0);
}

TEST_F(CommandLine, NothingIsColouredWhereTheOutputIsNoTerminal) {
    startService();
    EXPECT_THAT(runConfigured({"config", "check"}).output, Not(HasSubstr("\x1b")));
}

}  // namespace
