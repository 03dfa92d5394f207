// docs/configuration.md beside the code.

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinConfigManager/FileBindStore.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinConfigManager/internal/BodyFormNames.hpp>
#include <KestrinConfigManager/internal/RequestPolicyOptions.hpp>
#include <KestrinProfile/model/ProfileMapping.hpp>
#include <KestrinProfile/service/ConfigurationCheck.hpp>

#include "Page.hpp"
#include "support/Program.hpp"

namespace {

using KestrinConfigManager::Configuration;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinConfigManager::ConfigurationProblem;
using KestrinConfigManager::WebService;
using KestrinConfigManager::internal::requestPolicyOptions;
using KestrinProfile::ProfileMapping;
using testing::Contains;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAreArray;
using TestSupport::codeIn;
using TestSupport::Page;
using TestSupport::quotedIn;

const Page& page() {
    static const Page only("configuration.md");
    return only;
}

std::vector<ConfigurationProblem> problems(const std::string& text) {
    const auto result = KestrinConfigManager::parseConfiguration(text);
    const auto* const found = std::get_if<std::vector<ConfigurationProblem>>(&result);
    return found != nullptr ? *found : std::vector<ConfigurationProblem>();
}

std::string atTop(const std::string& member) {
    return R"({"version": 1, "parentProfileID": "p", )" + member + "}";
}

std::string inService(const std::string& member) {
    return atTop(R"("services": {"op": {"url": "https://h/", )" + member + "}}");
}

/// The names that a problem lists as what was expected.
std::vector<std::string> expectedIn(const std::string& configuration) {
    const auto found = problems(configuration);
    if (found.size() != 1) return {};
    const std::string& message = found.front().message;
    return quotedIn(std::string_view(message).substr(message.find("expected one of") + 1));
}

/// The keys that a dictionary of the schema may have, as the library lists them.
std::vector<std::string> knownKeys(const std::string& withUnknownKey) {
    const auto found = problems(withUnknownKey);
    if (found.size() != 1) return {};
    EXPECT_THAT(found.front().message, HasSubstr("known are"));
    return quotedIn(found.front().message);
}

constexpr const char* unknownMember = R"("zzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzz": 1)";

std::vector<std::string> keysBelow(std::string_view heading) {
    std::vector<std::string> keys;
    for (const auto& row : page().tableBelow(heading))
        for (auto& key : codeIn(row.at(0)))
            keys.push_back(key);
    return keys;
}

/// The value column by key.
std::map<std::string, std::string> valuesBelow(std::string_view heading) {
    std::map<std::string, std::string> values;
    for (const auto& row : page().tableBelow(heading))
        values.emplace(codeIn(row.at(0)).at(0), row.at(1));
    return values;
}

TEST(ConfigurationPage, NamesEveryKeyAndNoOther) {
    EXPECT_THAT(keysBelow("### At the top"),
                UnorderedElementsAreArray(knownKeys(atTop(unknownMember))));
    EXPECT_THAT(keysBelow("### In a service"),
                UnorderedElementsAreArray(knownKeys(inService(unknownMember))));
}

TEST(ConfigurationPage, GivesTheRangesAndDefaultsOfTheLimits) {
    const auto values = valuesBelow("### At the top");
    for (const auto& option : requestPolicyOptions)
        EXPECT_EQ(values.at(std::string(option.key)),
                  std::to_string(option.least) + " to " + std::to_string(option.greatest) +
                      ", default " + std::to_string(option.get({})))
            << option.key;
}

TEST(ConfigurationPage, GivesTheDefaultsOfAService) {
    const auto values = valuesBelow("### In a service");
    const WebService service;
    EXPECT_THAT(values.at("method"), HasSubstr("`\"" + service.method + "\"` (default)"));
    EXPECT_THAT(values.at("body"),
                HasSubstr("`\"" + std::string(name(service.body)) + "\"` (default)"));
    EXPECT_EQ(values.at("enabled"), service.enabled ? "Boolean, default `true`" : "");
    EXPECT_EQ(valuesBelow("### At the top").at("strictIdentifiers"),
              service.strictIdentifiers ? "" : "Boolean, default `false`");
}

TEST(ConfigurationPage, NamesTheMethodsAndBodies) {
    const auto values = valuesBelow("### In a service");
    EXPECT_THAT(quotedIn(values.at("method")),
                ElementsAreArray(expectedIn(inService(R"("method": "?")"))));
    const auto bodies = expectedIn(inService(R"("body": "?")"));
    EXPECT_THAT(quotedIn(values.at("body")), ElementsAreArray(bodies));
    EXPECT_THAT(bodies, ElementsAreArray(KestrinConfigManager::internal::bodyFormNames));
    EXPECT_THAT(keysBelow("## What a request is made of"), ElementsAreArray(bodies));
}

TEST(ConfigurationPage, NamesThePlaceholders) {
    EXPECT_THAT(keysBelow("## URL templates"),
                UnorderedElementsAreArray({ProfileMapping::uxid, ProfileMapping::brand,
                                           ProfileMapping::show, ProfileMapping::video,
                                           ProfileMapping::userName, ProfileMapping::search}));
}

TEST(ConfigurationPage, NamesEveryReasonForARefusal) {
    using Error = ConfigurationManagerError;
    const std::string& text = page().text();
    const auto reasons = codeIn(std::string_view(text).substr(text.find("## Before a request")));
    for (const Error& error :
         {Error::invalidParameters, Error::serviceDisabled, Error::placeholderUnfilled,
          Error::serviceNotConfigured, Error::identifierRefused}) {
        const std::string what = error.what();
        EXPECT_THAT(reasons, Contains(what.substr(0, what.find(':'))));
    }
}

/// The blocks of a page that are configurations.
std::vector<std::string> configurationsOn(const Page& source) {
    auto blocks = source.jsonBlocks();
    std::erase_if(blocks, [](const std::string& block) {
        return block.find("\"services\"") == std::string::npos;
    });
    return blocks;
}

TEST(Pages, TheirConfigurationsAreSoundAndFitTheOperations) {
    for (const auto* const name : {"configuration.md", "protocol.md"}) {
        const auto configurations = configurationsOn(Page(name));
        ASSERT_THAT(configurations, SizeIs(1)) << name;
        const auto result = KestrinConfigManager::parseConfiguration(configurations.front());
        const auto* const configuration = std::get_if<Configuration>(&result);
        ASSERT_THAT(problems(configurations.front()), IsEmpty()) << name;
        // Neither has all operations.
        for (const auto& problem : KestrinProfile::checkConfiguration(*configuration))
            EXPECT_EQ(problem.severity, KestrinConfigManager::ProblemSeverity::warning)
                << problem.path << ": " << problem.message;
    }
}

TEST(ConfigurationPage, ShowsABindFileAsItIsRead) {
    auto blocks = page().jsonBlocks();
    const TestSupport::TemporaryDirectory directory;
    const auto file = directory / "binds.json";
    TestSupport::write(file, blocks.back());
    std::filesystem::permissions(file, std::filesystem::perms::owner_read);
    const auto loaded = KestrinConfigManager::FileBindStore(file).load();
    EXPECT_EQ(loaded.warning, std::nullopt);
    EXPECT_THAT(loaded.held.binds, SizeIs(1));
    EXPECT_EQ(loaded.held.selectedProfileID, "p1");
}

}  // namespace
