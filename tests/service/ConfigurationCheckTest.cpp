#include <algorithm>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/model/internal/OperationTable.hpp>
#include <KestrinProfile/service/ConfigurationCheck.hpp>

namespace KestrinConfigManager {

void PrintTo(const ConfigurationProblem& problem, std::ostream* out) {
    *out << problem.path << ": " << problem.message;
}

}  // namespace KestrinConfigManager

namespace KestrinProfile {
namespace {

using internal::OperationRow;
using internal::operationTable;
using KestrinConfigManager::BodyForm;
using KestrinConfigManager::Configuration;
using KestrinConfigManager::ConfigurationProblem;
using KestrinConfigManager::ServiceTable;
using KestrinConfigManager::URLTemplate;
using KestrinConfigManager::WebService;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using enum ProfileOperation;
using Severity = KestrinConfigManager::ProblemSeverity;

Configuration example() {
    return std::get<Configuration>(
        KestrinConfigManager::loadConfiguration(KESTRIN_EXAMPLE_CONFIGURATION));
}

Configuration with(ServiceTable services) {
    auto configuration = example();
    configuration.services = std::make_shared<const ServiceTable>(std::move(services));
    return configuration;
}

/// The example, with a change of the service of one operation.
Configuration with(ProfileOperation operation, const std::function<void(WebService&)>& change) {
    const Configuration configuration = example();
    ServiceTable services;
    for (auto [name, service] : *configuration.services) {
        if (name == rawValue(operation)) change(service);
        services.add(service);
    }
    return with(std::move(services));
}

auto entry(Severity severity, const std::string& path, const std::string& part) {
    return AllOf(Field(&ConfigurationProblem::severity, severity),
                 Field(&ConfigurationProblem::path, path),
                 Field(&ConfigurationProblem::message, HasSubstr(part)));
}

auto problem(ProfileOperation operation, const std::string& place, const std::string& part) {
    return entry(Severity::error,
                 "$.services[\"" + std::string(rawValue(operation)) + "\"]" + place, part);
}

/// What is found when the service of an operation is changed.
std::vector<ConfigurationProblem> found(ProfileOperation operation,
                                        const std::function<void(WebService&)>& change) {
    return checkConfiguration(with(operation, change));
}

// It has every operation, so a new row of the table asks for a new service here and in the page on
// the protocol, which is compared with the example.
TEST(ConfigurationCheckTest, TheExampleIsSound) {
    EXPECT_THAT(checkConfiguration(example()), IsEmpty());
}

TEST(ConfigurationCheckTest, AServiceThatNoOperationHasIsAProblemWithTheNearestName) {
    const auto configuration = with(
        getHistory, [](WebService& service) { service.operation = "personalisation-history-get"; });
    EXPECT_THAT(
        checkConfiguration(configuration),
        ElementsAre(entry(Severity::error, R"($.services["personalisation-history-get"])",
                          R"(did you mean "personalization-history-get"?)"),
                    entry(Severity::warning, "$.services", "\"personalization-history-get\"")));
}

TEST(ConfigurationCheckTest, AnOperationWithoutAServiceIsAWarning) {
    for (const auto& configuration : {with({}), Configuration()}) {
        const auto problems = checkConfiguration(configuration);
        EXPECT_THAT(problems, SizeIs(profileOperationCount - 1)) << "all but the test operation";
        EXPECT_THAT(problems,
                    testing::Each(Field(&ConfigurationProblem::severity, Severity::warning)));
    }
}

TEST(ConfigurationCheckTest, APlaceholderThatTheOperationDoesNotFillIsAProblem) {
    const auto url = [](const char* text) {
        return [text](WebService& service) { service.url = URLTemplate(text); };
    };
    EXPECT_THAT(found(getHistory, url("https://a.example/%UXIDD%")),
                ElementsAre(problem(getHistory, ".url", R"("%UXIDD%"; did you mean "%UXID%"?)")));
    EXPECT_THAT(found(getHistory, url("https://a.example/%SEARCH%")),
                ElementsAre(problem(getHistory, ".url", R"("%SEARCH%"; known are "%BRANDNAME%")")));
    EXPECT_THAT(found(getProfiles, url("https://a.example/%BRANDNAME%")),
                ElementsAre(problem(getProfiles, ".url", R"("%BRANDNAME%"; known are "%UXID%")")));
    EXPECT_THAT(found(anonymousBind, url("https://a.example/%VIDEO%")), SizeIs(1));
    EXPECT_THAT(found(addSearchHistory, url("https://a.example/%SEARCH%/%VIDEO%")), SizeIs(1));
}

TEST(ConfigurationCheckTest, AURLThatDoesNotSayWhatTheRequestIsAboutIsAProblem) {
    for (const OperationRow& row : operationTable) {
        if (row.operation == testOperation) continue;
        const auto problems = found(row.operation, [](WebService& service) {
            service.url = URLTemplate("https://a.example/v1");
        });
        if (row.placeholder.empty())
            EXPECT_THAT(problems, IsEmpty()) << row.rawValue;
        else
            EXPECT_THAT(problems, ElementsAre(problem(row.operation, ".url",
                                                      "lacks \"" + std::string(row.placeholder))));
    }
}

TEST(ConfigurationCheckTest, ThePlaceholderMayStandInPathOrQueryOfTheURL) {
    for (const char* const text :
         {"https://a.example/videos/%VIDEO%", "https://a.example/videos?id=%VIDEO%"})
        EXPECT_THAT(
            found(getVideoProgress, [&](WebService& service) { service.url = URLTemplate(text); }),
            IsEmpty());
    EXPECT_THAT(found(getVideoProgress,
                      [](WebService& service) { service.query.emplace("id", "%VIDEO%"); }),
                ElementsAre(problem(getVideoProgress, ".query[\"id\"]", "in the url")));
}

TEST(ConfigurationCheckTest, AMethodThatDoesNotFitIsAProblem) {
    using Methods = std::vector<std::string>;
    const auto expectFitting = [](ProfileOperation operation, const Methods& fitting) {
        for (const char* const method : {"GET", "HEAD", "POST", "PUT", "PATCH", "DELETE"}) {
            const auto problems =
                found(operation, [&](WebService& service) { service.method = method; });
            if (std::ranges::find(fitting, method) != fitting.end())
                EXPECT_THAT(problems, IsEmpty()) << method;
            else
                EXPECT_THAT(problems, ElementsAre(problem(operation, ".method", method)));
        }
    };
    for (const auto operation :
         {getHistory, getVideoProgress, getFavorites, getWatchList, getProfiles, validate})
        expectFitting(operation, {"GET", "POST"});
    for (const auto operation :
         {anonymousBind, createProfile, editProfile, addVideoToHistory, addFavoriteShow,
          addFavoriteShows, addVideoToWatchList, addSearchHistory})
        expectFitting(operation, {"POST", "PUT", "PATCH"});
    for (const auto operation :
         {deleteProfile, removeVideoFromHistory, clearHistory, removeFavoriteShow, clearFavorites,
          removeFromWatchList, clearWatchList, deleteSearchHistory})
        expectFitting(operation, {"DELETE", "POST"});
}

TEST(ConfigurationCheckTest, AServiceOfTheTestOperationMayBeAnything) {
    ServiceTable services = *example().services;
    WebService test;
    test.operation = rawValue(testOperation);
    test.method = "DELETE";
    test.url = URLTemplate("https://example.com/%VIDEO%");
    services.add(std::move(test));
    EXPECT_THAT(checkConfiguration(with(std::move(services))), IsEmpty());
}

TEST(ConfigurationCheckTest, ABodyThatWouldBeDroppedIsAProblem) {
    for (const OperationRow& row : operationTable) {
        if (row.operation == testOperation) continue;
        for (const BodyForm form :
             {BodyForm::automatic, BodyForm::none, BodyForm::json, BodyForm::form}) {
            const bool isDropped = row.body != OperationRow::Body::none &&
                                   (form == BodyForm::none || form == BodyForm::form);
            EXPECT_THAT(found(row.operation, [&](WebService& service) { service.body = form; }),
                        SizeIs(isDropped ? 1 : 0))
                << row.rawValue;
        }
    }
}

}  // namespace
}  // namespace KestrinProfile
