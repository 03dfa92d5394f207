#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <utility>
#include <variant>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/WebService.hpp>

#include "Support.hpp"
#include "support/Program.hpp"

namespace {

using KestrinConfigManager::BodyForm;
using KestrinConfigManager::Brand;
using KestrinConfigManager::Configuration;
using KestrinConfigManager::ConfigurationProblem;
using KestrinConfigManager::ConfigurationResult;
using KestrinConfigManager::loadConfiguration;
using KestrinConfigManager::parseConfiguration;
using KestrinConfigManager::TextMap;
using KestrinConfigManager::WebService;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using Problems = std::vector<ConfigurationProblem>;

Problems problems(std::string_view text) {
    auto result = parseConfiguration(text);
    return std::holds_alternative<Problems>(result) ? std::get<Problems>(result) : Problems();
}

std::optional<Configuration> configuration(std::string_view text) {
    auto result = parseConfiguration(text);
    EXPECT_THAT(problems(text), IsEmpty());
    if (auto* const found = std::get_if<Configuration>(&result)) return std::move(*found);
    return std::nullopt;
}

/// A configuration with these members besides the required ones.
std::string with(const std::string& members) {
    const std::string separator = members.empty() ? "" : ", ";
    return R"({"version": 1, "parentProfileID": "parent")" + separator + members + "}";
}

/// A configuration with one service that has these members besides its URL.
std::string withService(const std::string& members) {
    return with(R"("services": {"op": {"url": "https://h/")" +
                std::string(members.empty() ? "" : ", ") + members + "}}");
}

std::string withURL(const std::string& url, const std::string& topMembers = {}) {
    return with(topMembers + (topMembers.empty() ? "" : ", ") + R"("services": {"op": {"url": ")" +
                url + "\"}}");
}

std::optional<WebService> serviceOf(const std::string& text) {
    const auto found = configuration(text);
    if (!found || !found->services) return std::nullopt;
    const WebService* const service = found->services->find("op");
    return service != nullptr ? std::optional(*service) : std::nullopt;
}

TEST(Configuration, TheSmallestOneHasNoBrandAndNoTable) {
    const auto found = configuration(with(""));
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->parentProfileID, "parent");
    EXPECT_EQ(found->brand, std::nullopt);
    EXPECT_EQ(found->services, nullptr);
}

TEST(Configuration, AnEmptyTableIsATable) {
    const auto found = configuration(with(R"("services": {})"));
    ASSERT_TRUE(found.has_value());
    ASSERT_NE(found->services, nullptr);
    EXPECT_EQ(found->services->size(), 0U);
}

constexpr std::string_view complete = R"({
  "version": 1,
  "parentProfileID": "parent-1",
  "brand": "acme",
  "development": true,
  "cleartextHosts": ["Media.Example.com", "10.0.0.7"],
  "strictIdentifiers": true,
  "connectTimeoutMilliseconds": 1000,
  "totalTimeoutMilliseconds": 2000,
  "maxBodyBytes": 3000,
  "maxHeaderBytes": 4000,
  "maxRedirects": 1,
  "services": {
    "history-get": {
      "method": "PATCH",
      "url": "https://api.example.com/v1/%UXID%/history?brand=%BRANDNAME%",
      "body": "form",
      "headers": {"X-App": "tv", "Accept": "text/plain"},
      "query": {"lang": "en", "page size": "20"},
      "connectTimeoutMilliseconds": 10,
      "totalTimeoutMilliseconds": 20,
      "maxBodyBytes": 30,
      "maxHeaderBytes": 40,
      "maxRedirects": 5,
      "enabled": false
    },
    "history-add": {"url": "http://localhost:8080/v1/history", "body": "json", "method": "POST"},
    "media-get": {"url": "http://media.example.com/"}
  }
})";

TEST(Configuration, EverythingInItReachesTheSnapshot) {
    const auto found = configuration(complete);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->parentProfileID, "parent-1");
    EXPECT_EQ(found->brand, Brand{"acme"});
    ASSERT_NE(found->services, nullptr);
    ASSERT_EQ(found->services->size(), 3U);

    const WebService* const service = found->services->find("history-get");
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->operation, "history-get");
    EXPECT_EQ(service->method, "PATCH");
    EXPECT_EQ(service->url.text(), "https://api.example.com/v1/%UXID%/history?brand=%BRANDNAME%");
    EXPECT_THAT(service->url.placeholders(), ElementsAre("%UXID%", "%BRANDNAME%"));
    EXPECT_EQ(service->body, BodyForm::form);
    EXPECT_THAT(std::vector(service->headers.begin(), service->headers.end()),
                ElementsAre(Pair("X-App", "tv"), Pair("Accept", "text/plain")));
    EXPECT_EQ(service->query, (TextMap{{"lang", "en"}, {"page size", "20"}}));
    EXPECT_EQ(service->policy.connectTimeout, milliseconds(10));
    EXPECT_EQ(service->policy.totalTimeout, milliseconds(20));
    EXPECT_EQ(service->policy.maxBodyBytes, 30U);
    EXPECT_EQ(service->policy.maxHeaderBytes, 40U);
    EXPECT_EQ(service->policy.maxRedirects, 5);
    EXPECT_THAT(KestrinConfigManager::configuredValues(service->policy),
                testing::UnorderedElementsAre(testing::Pair("connectTimeoutMilliseconds", 10),
                                              testing::Pair("totalTimeoutMilliseconds", 20),
                                              testing::Pair("maxBodyBytes", 30),
                                              testing::Pair("maxHeaderBytes", 40),
                                              testing::Pair("maxRedirects", 5)));
    EXPECT_FALSE(service->enabled);
    EXPECT_TRUE(service->strictIdentifiers);
    EXPECT_FALSE(service->policy.allowsCleartext);
    EXPECT_FALSE(service->guard);
}

TEST(Configuration, LimitsAtTheTopHoldForServicesThatNameNone) {
    const auto found = configuration(complete);
    ASSERT_TRUE(found.has_value());
    const WebService* const service = found->services->find("history-add");
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->method, "POST");
    EXPECT_EQ(service->body, BodyForm::json);
    EXPECT_EQ(service->policy.connectTimeout, milliseconds(1000));
    EXPECT_EQ(service->policy.totalTimeout, milliseconds(2000));
    EXPECT_EQ(service->policy.maxBodyBytes, 3000U);
    EXPECT_EQ(service->policy.maxHeaderBytes, 4000U);
    EXPECT_EQ(service->policy.maxRedirects, 1);
    EXPECT_TRUE(service->strictIdentifiers);
    EXPECT_TRUE(service->policy.allowsCleartext);
}

TEST(Configuration, AServiceWithOnlyAUrlHasTheDefaults) {
    const auto service = serviceOf(withService(""));
    ASSERT_TRUE(service.has_value());
    const WebService defaults;
    EXPECT_EQ(service->method, "GET");
    EXPECT_EQ(service->body, BodyForm::automatic);
    EXPECT_TRUE(service->headers.empty());
    EXPECT_TRUE(service->query.empty());
    EXPECT_EQ(service->policy.connectTimeout, defaults.policy.connectTimeout);
    EXPECT_EQ(service->policy.totalTimeout, defaults.policy.totalTimeout);
    EXPECT_EQ(service->policy.maxBodyBytes, defaults.policy.maxBodyBytes);
    EXPECT_EQ(service->policy.maxRedirects, 0);
    EXPECT_TRUE(service->enabled);
    EXPECT_FALSE(service->strictIdentifiers);
    EXPECT_FALSE(service->policy.allowsCleartext);
}

TEST(Configuration, TheOrderOfKeysDoesNotMatter) {
    const auto service = serviceOf(
        R"({"services": {"op": {"url": "http://127.0.0.1/"}}, "totalTimeoutMilliseconds": 7,
            "development": true, "parentProfileID": "p", "version": 1})");
    ASSERT_TRUE(service.has_value());
    EXPECT_EQ(service->policy.totalTimeout, milliseconds(7));
    EXPECT_TRUE(service->policy.allowsCleartext);
}

TEST(Configuration, EveryMethodAndBodyFormIsKnown) {
    for (const std::string method : {"GET", "POST", "PUT", "PATCH", "DELETE", "HEAD"})
        EXPECT_EQ(serviceOf(withService("\"method\": \"" + method + "\""))->method, method);
    for (const BodyForm form :
         {BodyForm::automatic, BodyForm::none, BodyForm::json, BodyForm::form})
        EXPECT_EQ(serviceOf(withService("\"body\": \"" + std::string(name(form)) + "\""))->body,
                  form);
}

TEST(Configuration, AllProblemsAreReportedAtOnceWithTheirPaths) {
    const auto all = problems(R"({
      "version": 2,
      "brnad": "acme",
      "development": "yes",
      "cleartextHosts": ["ok.example.com", "http://h", "h:80"],
      "connectTimeoutMilliseconds": 0,
      "maxBodyBytes": 1.5,
      "services": {
        "personalization-history-get": {
          "url": "ftp://h/",
          "method": "get",
          "headers": {"X-Number": 1, "X Blank": "v"},
          "maxRedirects": 21
        },
        "with \"quotes\"": {"enabled": null},
        "no-service": []
      }
    })");
    EXPECT_THAT(
        all,
        ElementsAre(
            ConfigurationProblem{R"($["brnad"])", "is not a known key; did you mean \"brand\"?"},
            ConfigurationProblem{"$.connectTimeoutMilliseconds",
                                 "is 0, expected an integer from 1 to 86400000"},
            ConfigurationProblem{"$.maxBodyBytes",
                                 "is a number, expected an integer from 1 to 1073741824"},
            ConfigurationProblem{"$.version", "is 2, expected the integer 1"},
            ConfigurationProblem{"$.parentProfileID", "is missing, expected a profile identifier"},
            ConfigurationProblem{"$.development", "is a text, expected a Boolean"},
            ConfigurationProblem{
                "$.cleartextHosts[1]",
                "is not a host, expected a name or address without scheme, port and path"},
            ConfigurationProblem{
                "$.cleartextHosts[2]",
                "is not a host, expected a name or address without scheme, port and path"},
            ConfigurationProblem{R"($.services["personalization-history-get"].maxRedirects)",
                                 "is 21, expected an integer from 0 to 20"},
            ConfigurationProblem{
                R"($.services["personalization-history-get"].method)",
                R"(is "get", expected one of "GET", "POST", "PUT", "PATCH", "DELETE", "HEAD")"},
            ConfigurationProblem{
                R"($.services["personalization-history-get"].url)",
                R"(is not an absolute URL, expected one that begins with "https://")"},
            ConfigurationProblem{R"($.services["personalization-history-get"].headers["X-Number"])",
                                 "is an integer, expected a text"},
            ConfigurationProblem{R"($.services["personalization-history-get"].headers["X Blank"])",
                                 "has a name that no header may have"},
            ConfigurationProblem{R"($.services["with \"quotes\""].url)",
                                 "is missing, expected a URL template"},
            ConfigurationProblem{R"($.services["with \"quotes\""].enabled)",
                                 "is null, expected a Boolean"},
            ConfigurationProblem{R"($.services["no-service"])",
                                 "is an array, expected a dictionary"}));
}

TEST(Configuration, TextThatIsNotJsonIsAProblemWithItsPlace) {
    const auto all = problems("{\n  \"version\": 1,\n  oops");
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all.front().path, "$");
    EXPECT_THAT(all.front().message, HasSubstr("line 3, column 3"));
}

TEST(Configuration, ATopThatIsNoDictionaryIsAProblem) {
    for (const std::string_view text : {"", "[]", "1", "null", "\"{}\"", "{} {}"}) {
        const auto all = problems(text);
        ASSERT_EQ(all.size(), 1U) << text;
        EXPECT_EQ(all.front().path, "$");
        EXPECT_THAT(all.front().message, HasSubstr("line 1, column ")) << text;
    }
}

struct ProblemCase {
    std::string text;
    std::string path;
    std::string message;  ///< a part of it
};

/// Each text must have exactly one problem, the one that is named.
void expectOneProblemEach(const std::vector<ProblemCase>& cases) {
    for (const auto& [text, path, message] : cases)
        EXPECT_THAT(problems(text),
                    ElementsAre(AllOf(Field(&ConfigurationProblem::path, path),
                                      Field(&ConfigurationProblem::message, HasSubstr(message)))))
            << text;
}

const std::string inOp = R"($.services["op"])";

TEST(Configuration, EveryMistakeAtTheTopIsReportedWithWhatWasExpected) {
    expectOneProblemEach(
        {{R"({"parentProfileID": "p"})", "$.version", "is missing, expected the integer 1"},
         {R"({"version": "1", "parentProfileID": "p"})", "$.version",
          "is a text, expected the integer 1"},
         {R"({"version": 1.0, "parentProfileID": "p"})", "$.version", "is a number"},
         {R"({"version": 0, "parentProfileID": "p"})", "$.version", "is 0"},
         {R"({"version": 1, "parentProfileID": ""})", "$.parentProfileID",
          "is empty, expected a profile identifier"},
         {R"({"version": 1, "parentProfileID": 7})", "$.parentProfileID",
          "is an integer, expected a profile identifier"},
         {R"({"version": 1, "version": 1, "parentProfileID": "p"})", R"($["version"])",
          "occurs more than once"},
         {with(R"("brand": "")"), "$.brand", "is empty, expected the name of a brand"},
         {with(R"("brand": null)"), "$.brand", "is null, expected the name of a brand"},
         {with(R"("development": 1)"), "$.development", "is an integer"},
         {with(R"("cleartextHosts": "h")"), "$.cleartextHosts",
          "is a text, expected an array of nothing but texts: host names"},
         {with(R"("cleartextHosts": ["h", 1])"), "$.cleartextHosts",
          "is an array, expected an array of nothing but texts: host names"},
         {with(R"("cleartextHosts": [""])"), "$.cleartextHosts[0]", "is not a host"},
         {with(R"("cleartextHosts": ["h/p"])"), "$.cleartextHosts[0]", "is not a host"},
         {with(R"("cleartextHosts": ["u@h"])"), "$.cleartextHosts[0]", "is not a host"},
         {with(R"("strictIdentifiers": "true")"), "$.strictIdentifiers", "is a text"},
         {with(R"("connectTimeoutMilliseconds": 86400001)"), "$.connectTimeoutMilliseconds",
          "is 86400001"},
         {with(R"("totalTimeoutMilliseconds": -1)"), "$.totalTimeoutMilliseconds",
          "is -1, expected an integer from 1 to 86400000"},
         {with(R"("totalTimeoutMilliseconds": 1e3)"), "$.totalTimeoutMilliseconds",
          "is a number, expected an integer"},
         {with(R"("maxBodyBytes": 0)"), "$.maxBodyBytes", "is 0"},
         {with(R"("maxBodyBytes": 1073741825)"), "$.maxBodyBytes", "is 1073741825"},
         {with(R"("maxHeaderBytes": 1048577)"), "$.maxHeaderBytes", "is 1048577"},
         {with(R"("maxRedirects": 21)"), "$.maxRedirects", "is 21"},
         {with(R"("services": [])"), "$.services", "is an array, expected a dictionary"}});
}

TEST(Configuration, EveryMistakeInAServiceIsReportedWithWhatWasExpected) {
    expectOneProblemEach(
        {{with(R"("services": {"op": "https://h/"})"), inOp, "is a text, expected a dictionary"},
         {with(R"("services": {"": {"url": "https://h/"}})"), R"($.services[""])",
          "has an empty name"},
         {with(R"("services": {"op": {"url": "https://h/"}, "op": {"url": "https://i/"}})"), inOp,
          "occurs more than once"},
         {with(R"("services": {"op": {}})"), inOp + ".url", "is missing"},
         {withService(R"("method": "TRACE")"), inOp + ".method", R"(is "TRACE")"},
         {withService(R"("method": true)"), inOp + ".method", "is a Boolean, expected one of"},
         {withService(R"("body": "xml")"), inOp + ".body",
          R"(is "xml", expected one of "automatic", "none", "json", "form")"},
         {withService(R"("headers": ["X"])"), inOp + ".headers",
          "is an array, expected a dictionary of texts"},
         {withService(R"("headers": {"": "v"})"), inOp + R"(.headers[""])",
          "has a name that no header may have"},
         {withService(R"("headers": {"X": "a\nb"})"), inOp + R"(.headers["X"])",
          "has a character in its value"},
         {withService(R"("headers": {"X-A": "1", "x-a": "2"})"), inOp + R"(.headers["x-a"])",
          "is there already"},
         {withService(R"("headers": {"X": "1", "X": "2"})"), inOp + R"(.headers["X"])",
          "occurs more than once"},
         {withService(R"("query": "a=b")"), inOp + ".query", "is a text"},
         {withService(R"("query": {"a": null})"), inOp + R"(.query["a"])",
          "is null, expected a text"},
         {withService(R"("query": {"": "v"})"), inOp + R"(.query[""])", "has an empty name"},
         {withService(R"("connectTimeoutMilliseconds": 0)"), inOp + ".connectTimeoutMilliseconds",
          "is 0"},
         {withService(R"("totalTimeoutMilliseconds": 0)"), inOp + ".totalTimeoutMilliseconds",
          "is 0"},
         {withService(R"("maxBodyBytes": "1")"), inOp + ".maxBodyBytes", "is a text"},
         {withService(R"("maxRedirects": -1)"), inOp + ".maxRedirects",
          "is -1, expected an integer from 0 to 20"},
         {withService(R"("enabled": 0)"), inOp + ".enabled", "is an integer"},
         {withService(R"("development": true)"), inOp + R"(["development"])",
          "is not a known key"}});
}

TEST(Configuration, EveryMistakeInAUrlIsReportedWithWhatWasExpected) {
    expectOneProblemEach(
        {{withURL(""), inOp + ".url", "is empty, expected a URL template"},
         {withURL("/v1/history"), inOp + ".url", "is not an absolute URL"},
         {withURL("//h/v1"), inOp + ".url", "is not an absolute URL"},
         {withURL("api.example.com/v1"), inOp + ".url", "is not an absolute URL"},
         {withURL("%BASE%/v1"), inOp + ".url", "is not an absolute URL"},
         {withURL("ftp://h/"), inOp + ".url", "is not an absolute URL"},
         {withURL("file:///etc/passwd"), inOp + ".url", "is not an absolute URL"},
         {withURL("https:///v1"), inOp + ".url", "cannot be sent"},
         {withURL("https://h/a b"), inOp + ".url", "cannot be sent"},
         {withURL("https://h/a/../b"), inOp + ".url", "cannot be sent"},
         {withURL("https://h:port/"), inOp + ".url", "cannot be sent"},
         {withURL("%SCHEME%://h/"), inOp + ".url", "has the placeholder %SCHEME%"},
         {withURL("https://%HOST%/v1"), inOp + ".url", "has the placeholder %HOST%"},
         {withURL("https://h:%PORT%/v1"), inOp + ".url", "has the placeholder %PORT%"},
         {withURL("https://h%UXID%"), inOp + ".url", "has the placeholder %UXID%"},
         {withURL("https://user:secret@h/"), inOp + ".url", "credentials belong in a header"},
         {withURL("http://h/"), inOp + ".url",
          R"(uses http, which is not allowed for the host "h"; use https, or name the )"
          R"(host in "cleartextHosts")"},
         {withURL("http://localhost/"), inOp + ".url", R"(or set "development")"},
         {withURL("http://h/", R"("development": true)"), inOp + ".url",
          "uses http, which is not allowed"},
         {withURL("http://a.h/", R"("cleartextHosts": ["h"])"), inOp + ".url",
          R"(for the host "a.h")"}});
}

TEST(Configuration, PlaceholdersAndEncodedBytesMayStandInPathAndQuery) {
    for (const char* const url :
         {"https://h/%UXID%", "https://h?x=%UXID%", "https://h/%20%UXID%/%SHOWID%?a=%UXID%&b=%2F",
          "HTTPS://H:8443/", "https://h/@home", "https://[::1]/"}) {
        const auto service = serviceOf(withURL(url));
        ASSERT_TRUE(service.has_value()) << url;
        EXPECT_EQ(service->url.text(), url);
    }
}

TEST(Configuration, CleartextIsAllowedForNamedHostsAndInDevelopmentForThisMachine) {
    const std::pair<const char*, const char*> allowed[] = {
        {"http://h/", R"("cleartextHosts": ["h"])"},
        {"http://H:8080/", R"("cleartextHosts": ["h"])"},
        {"HTTP://h/", R"("cleartextHosts": ["H"])"},
        {"http://10.0.0.7/", R"("cleartextHosts": ["10.0.0.7"])"},
        {"http://[fe80::1]/", R"("cleartextHosts": ["[FE80::1]"])"},
        {"http://localhost:1/", R"("development": true)"},
        {"http://127.0.0.1/", R"("development": true)"},
        {"http://[::1]:80/", R"("development": true)"},
        {"http://localhost/", R"("cleartextHosts": ["localhost"])"},
    };
    for (const auto& [url, members] : allowed) {
        const auto service = serviceOf(withURL(url, members));
        ASSERT_TRUE(service.has_value()) << url;
        EXPECT_TRUE(service->policy.allowsCleartext) << url;
    }
}

TEST(Configuration, AServiceMaySendInCleartextOnlyWhereTheFileAllowsIt) {
    const auto origin = [](const char* url) {
        return std::get<HalvardSling::URL>(HalvardSling::URL::parse(url)).origin();
    };
    const auto named = serviceOf(withURL("http://h/", R"("cleartextHosts": ["h", "i"])"));
    ASSERT_TRUE(named.has_value());
    for (const char* const url : {"http://h/", "http://i:81/x", "https://elsewhere/"})
        EXPECT_TRUE(named->policy.allows(origin(url))) << url;
    for (const char* const url : {"http://elsewhere/", "http://a.h/", "http://localhost/"})
        EXPECT_FALSE(named->policy.allows(origin(url))) << url;
    const auto local = serviceOf(withURL("http://localhost/", R"("development": true)"));
    ASSERT_TRUE(local.has_value());
    EXPECT_TRUE(local->policy.allows(origin("http://127.0.0.1:5/")));
    EXPECT_FALSE(local->policy.allows(origin("http://h/")));
}

TEST(Configuration, AnEncryptedServiceNeverAllowsCleartext) {
    const auto service = serviceOf(
        withURL("https://localhost/", R"("development": true, "cleartextHosts": ["localhost"])"));
    ASSERT_TRUE(service.has_value());
    EXPECT_FALSE(service->policy.allowsCleartext);
}

TEST(Configuration, TheBordersOfEveryRangeAreInside) {
    for (const std::string members :
         {R"("connectTimeoutMilliseconds": 1)", R"("connectTimeoutMilliseconds": 86400000)",
          R"("totalTimeoutMilliseconds": 1)", R"("totalTimeoutMilliseconds": 86400000)",
          R"("maxBodyBytes": 1)", R"("maxBodyBytes": 1073741824)", R"("maxHeaderBytes": 1)",
          R"("maxHeaderBytes": 1048576)", R"("maxRedirects": 0)", R"("maxRedirects": 20)"}) {
        EXPECT_THAT(problems(with(members)), IsEmpty()) << members;
        EXPECT_THAT(problems(withService(members)), IsEmpty()) << members;
    }
}

TEST(Configuration, AMisspeltKeyIsMetWithTheNearestKnownOne) {
    const std::pair<const char*, const char*> pairs[] = {
        {"verson", "version"},
        {"ParentProfileId", "parentProfileID"},
        {"service", "services"},
        {"strictIdentifer", "strictIdentifiers"},
        {"connectTimeoutMillis", "connectTimeoutMilliseconds"},
        {"cleartexthost", "cleartextHosts"},
        {"bradn", "brand"},
    };
    for (const auto& [written, meant] : pairs) {
        const std::string key = '"' + std::string(written) + '"';
        EXPECT_THAT(problems(with(key + ": 1")),
                    ElementsAre(ConfigurationProblem{
                        '$' + ('[' + key + ']'),
                        std::string("is not a known key; did you mean \"") + meant + "\"?"}));
    }
}

TEST(Configuration, AKeyThatIsNearToNoneIsMetWithAllKnownOnes) {
    for (const std::string& key : {std::string("colour"), std::string(1000, 'x')}) {
        const auto all = problems(withService('"' + key + "\": 1"));
        ASSERT_EQ(all.size(), 1U);
        EXPECT_THAT(all.front().message, AllOf(Not(HasSubstr("did you mean")),
                                               HasSubstr("\"method\", \"url\", \"body\"")));
    }
}

TEST(Configuration, ControlCharactersInAPathAreEscaped) {
    EXPECT_EQ(problems(with(R"("\u0001\n": 1)")).front().path, R"($["\u0001\u000a"])");
}

TEST(Configuration, NoProblemShowsAHeaderValueAQueryValueOrAUrl) {
    const auto all = problems(with(R"("services": {
        "a": {"url": "https://user:s3cret@h/"},
        "b": {"url": "https://h/..?key=s3cret", "headers": {"X": "s3cret\u0000", "bad name": "s3cret",
              "Y": ["s3cret"], "Y2": "s3cret", "y2": "s3cret", "Z": "s3cret", "Z": "s3cret"},
              "query": {"": "s3cret", "q": {"s3cret": 1}}}
    })"));
    EXPECT_EQ(all.size(), 9U);
    for (const auto& problem : all)
        EXPECT_THAT(problem.message, Not(HasSubstr("s3cret"))) << problem.path;
}

TEST(ConfigurationFile, IsReadLikeItsText) {
    const TestSupport::TemporaryDirectory directory;
    TestSupport::write(directory / "c.json", complete);
    const ConfigurationResult result = loadConfiguration(directory / "c.json");
    ASSERT_TRUE(std::holds_alternative<Configuration>(result));
    EXPECT_EQ(std::get<Configuration>(result).services->size(), 3U);
}

TEST(ConfigurationFile, LongerThanOnePieceIsReadWhole) {
    const TestSupport::TemporaryDirectory directory;
    TestSupport::write(directory / "c.json", with("") + std::string(100'000, ' '));
    EXPECT_TRUE(std::holds_alternative<Configuration>(loadConfiguration(directory / "c.json")));
}

Problems fileProblems(const std::filesystem::path& file) {
    auto result = loadConfiguration(file);
    return std::holds_alternative<Problems>(result) ? std::get<Problems>(result) : Problems();
}

TEST(ConfigurationFile, ThatDoesNotExistIsAProblemAtTheTop) {
    const TestSupport::TemporaryDirectory directory;
    EXPECT_THAT(fileProblems(directory / "none.json"),
                ElementsAre(AllOf(Field(&ConfigurationProblem::path, "$"),
                                  Field(&ConfigurationProblem::message,
                                        AllOf(HasSubstr("none.json"), HasSubstr("cannot be read"),
                                              HasSubstr("No such file"))))));
}

TEST(ConfigurationFile, ThatIsADirectoryIsAProblemAtTheTop) {
    const TestSupport::TemporaryDirectory directory;
    EXPECT_THAT(
        fileProblems(directory.path()),
        ElementsAre(AllOf(Field(&ConfigurationProblem::path, "$"),
                          Field(&ConfigurationProblem::message, HasSubstr("cannot be read")))));
}

TEST(ConfigurationFile, ThatIsNoRegularFileIsAProblemThatSaysWhatItIs) {
    const TestSupport::TemporaryDirectory directory;
    const std::string pipe = directory / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    for (const auto& [file, kind] : std::vector<std::pair<std::string, std::string>>{
             {pipe, "a pipe"}, {directory.path(), "a directory"}, {"/dev/zero", "a device"}})
        EXPECT_THAT(fileProblems(file),
                    ElementsAre(Field(&ConfigurationProblem::message,
                                      AllOf(HasSubstr(file), HasSubstr("it is " + kind)))));
}

TEST(ConfigurationFile, ThatIsFarTooLargeIsAProblemAtTheTop) {
    const TestSupport::TemporaryDirectory directory;
    TestSupport::write(directory / "c.json", with(""));
    std::filesystem::resize_file(directory / "c.json", (std::size_t{16} << 20) + 1);
    EXPECT_THAT(fileProblems(directory / "c.json"),
                ElementsAre(Field(&ConfigurationProblem::message, HasSubstr("larger"))));
}

TEST(ConfigurationFile, ThatIsEmptyIsAProblemAtTheTop) {
    const TestSupport::TemporaryDirectory directory;
    TestSupport::write(directory / "c.json", "");
    EXPECT_THAT(fileProblems(directory / "c.json"),
                ElementsAre(Field(&ConfigurationProblem::path, "$")));
}

}  // namespace
