#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinConfigManager/WebService.hpp>

#include "Support.hpp"
#include "support/Observed.hpp"

namespace {

using HalvardSling::Observable;
using HalvardSling::Response;
using KestrinConfigManager::APIParams;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinConfigManager::ServiceTable;
using KestrinConfigManager::TextMap;
using KestrinConfigManager::URLTemplate;
using KestrinConfigManager::WebService;
using testing::HasSubstr;
using testing::Not;
using TestSupport::Observed;
using TestSupport::Params;

WebService service(std::string_view url = "https://h/%UXID%?show=%SHOWID%") {
    WebService result;
    result.operation = "history-get";
    result.url = URLTemplate{std::string(url)};
    return result;
}

Params params(TextMap mapping) {
    Params result;
    result.mapping = std::move(mapping);
    return result;
}

/// The error that the guard answers with; absent where the request may go.
std::optional<ConfigurationManagerError> refusal(const WebService& service,
                                                 const APIParams& params) {
    const auto answer = service.configurationGuard(params);
    if (!answer) return std::nullopt;
    const Observed<Response> observed(*answer);
    EXPECT_TRUE(observed.endedAtOnce());
    EXPECT_TRUE(observed.values().empty());
    const auto error = observed.error<ConfigurationManagerError>();
    EXPECT_TRUE(error.has_value());
    return error;
}

TEST(ConfigurationGuard, LetsACompleteRequestGo) {
    EXPECT_EQ(refusal(service(), params({{"%UXID%", "u"}, {"%SHOWID%", "s"}})), std::nullopt);
    EXPECT_EQ(refusal(service("https://h/a"), Params()), std::nullopt);
}

TEST(ConfigurationGuard, RefusesInTheOrderOfTheRules) {
    WebService strict = service();
    strict.enabled = false;
    strict.strictIdentifiers = true;
    Params record = params({{"%UXID%", "a/b"}});
    record.valid = false;

    EXPECT_EQ(refusal(strict, record), ConfigurationManagerError::serviceDisabled);
    strict.enabled = true;
    EXPECT_EQ(refusal(strict, record), ConfigurationManagerError::invalidParameters);
    record.valid = true;
    EXPECT_EQ(refusal(strict, record), ConfigurationManagerError::placeholderUnfilled);
    record.mapping->emplace("%SHOWID%", "s");
    EXPECT_EQ(refusal(strict, record), ConfigurationManagerError::identifierRefused);
    record.mapping->insert_or_assign("%UXID%", "ab");
    EXPECT_EQ(refusal(strict, record), std::nullopt);
}

TEST(ConfigurationGuard, APlaceholderWithoutAnyMappingIsUnfilled) {
    const auto error = refusal(service(), Params());
    EXPECT_EQ(error, ConfigurationManagerError::placeholderUnfilled);
    EXPECT_THAT(error->what(), HasSubstr("%UXID%"));
    EXPECT_THAT(error->what(), HasSubstr("\"history-get\""));
}

TEST(ConfigurationGuard, AnEmptyValueIsAValue) {
    EXPECT_EQ(refusal(service(), params({{"%UXID%", ""}, {"%SHOWID%", ""}})), std::nullopt);
}

TEST(ConfigurationGuard, StrictModeRefusesDelimitersUnlessTheyAreEncoded) {
    const std::vector<std::pair<std::string, bool>> identifiers{
        {"abc", false},       {"", false},   {"a%3Fb%23c%2Fd", false},
        {"a&b=c:d@e", false}, {"a?b", true}, {"a#b", true},
        {"a/b", true},        {"/", true},
    };
    for (const auto& [identifier, refused] : identifiers) {
        SCOPED_TRACE(identifier);
        WebService strict = service("https://h/%UXID%");
        const Params record = params({{"%UXID%", identifier}});
        EXPECT_EQ(refusal(strict, record), std::nullopt) << "without strict mode";
        strict.strictIdentifiers = true;
        EXPECT_EQ(refusal(strict, record).has_value(), refused);
    }
}

TEST(ConfigurationGuard, StrictModeLooksOnlyAtValuesThatTheUrlUses) {
    WebService strict = service("https://h/%UXID%");
    strict.strictIdentifiers = true;
    EXPECT_EQ(refusal(strict, params({{"%UXID%", "u"}, {"%SHOWID%", "a/b"}})), std::nullopt);
}

TEST(ConfigurationGuard, ARefusedIdentifierIsNamedButNotShown) {
    WebService strict = service("https://h/%UXID%");
    strict.strictIdentifiers = true;
    const auto error = refusal(strict, params({{"%UXID%", "private#name"}}));
    ASSERT_TRUE(error.has_value());
    EXPECT_THAT(error->what(), HasSubstr("%UXID% holds \"#\""));
    EXPECT_THAT(error->what(), Not(HasSubstr("private")));
}

TEST(ConfigurationGuard, AGuardOfTheApplicationDecidesInsteadOfTheRules) {
    WebService guarded = service();
    guarded.enabled = false;
    const WebService* seenService = nullptr;
    const APIParams* seenParams = nullptr;
    guarded.guard = [&](const WebService& aService,
                        const APIParams& someParams) -> std::optional<Observable<Response>> {
        seenService = &aService;
        seenParams = &someParams;
        return std::nullopt;
    };
    Params record;
    record.valid = false;
    EXPECT_FALSE(guarded.configurationGuard(record).has_value());
    EXPECT_EQ(seenService, &guarded);
    EXPECT_EQ(seenParams, &record);
}

TEST(ConfigurationGuard, TheAnswerOfAGuardIsPassedOn) {
    WebService guarded = service();
    guarded.guard = [](const WebService&, const APIParams&) {
        return std::optional<Observable<Response>>(rxcpp::observable<>::just(Response(
            {.status = 204, .headers = {}, .body = "own", .effectiveURL = {}, .timings = {}})));
    };
    const auto answer = guarded.configurationGuard(Params());
    ASSERT_TRUE(answer.has_value());
    const Observed<Response> observed(*answer);
    ASSERT_EQ(observed.values().size(), 1U);
    EXPECT_EQ(observed.values().front().body(), "own");
    EXPECT_TRUE(observed.completed());
}

TEST(ConfigurationGuard, WhatAGuardThrowsIsItsAnswer) {
    WebService guarded = service();
    guarded.guard = [](const WebService&, const APIParams&) -> std::optional<Observable<Response>> {
        throw std::out_of_range("guard");
    };
    const auto answer = guarded.configurationGuard(Params());
    ASSERT_TRUE(answer.has_value());
    EXPECT_TRUE(Observed<Response>(*answer).error<std::out_of_range>().has_value());
}

TEST(ServiceTable, FindsServicesByTheirExactNames) {
    ServiceTable table;
    table.add(service());
    ASSERT_NE(table.find("history-get"), nullptr);
    EXPECT_EQ(table.find("history-get")->operation, "history-get");
    EXPECT_EQ(table.find("History-Get"), nullptr);
    EXPECT_EQ(table.find("history"), nullptr);
    EXPECT_EQ(table.find(""), nullptr);
    EXPECT_EQ(ServiceTable().find("history-get"), nullptr);
}

TEST(ServiceTable, AServiceReplacesOneOfTheSameName) {
    ServiceTable table;
    table.add(service("https://old/"));
    table.add(service("https://new/"));
    EXPECT_EQ(table.size(), 1U);
    EXPECT_EQ(table.find("history-get")->url.text(), "https://new/");
}

TEST(ServiceTable, CanBeGoneThrough) {
    ServiceTable table;
    for (const char* const name : {"b", "a"}) {
        WebService each;
        each.operation = name;
        table.add(std::move(each));
    }
    std::vector<std::string> names;
    for (const auto& [name, each] : table)
        names.push_back(name);
    EXPECT_THAT(names, testing::ElementsAre("a", "b"));
}

}  // namespace
