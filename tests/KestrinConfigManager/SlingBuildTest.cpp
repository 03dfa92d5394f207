#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/testing/FakeTransport.hpp>
#include <KestrinConfigManager/SlingBuild.hpp>

#include "Support.hpp"
#include "support/Observed.hpp"

namespace {

using HalvardSling::FakeTransport;
using HalvardSling::JSONDictionary;
using HalvardSling::Response;
using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using HalvardSling::TransportRequest;
using KestrinConfigManager::BodyForm;
using KestrinConfigManager::build;
using KestrinConfigManager::TextMap;
using KestrinConfigManager::URLTemplate;
using KestrinConfigManager::WebService;
using std::chrono::milliseconds;
using testing::HasSubstr;
using TestSupport::Observed;
using TestSupport::Params;

WebService service(std::string url = "https://api.example.com/v1/%UXID%") {
    WebService result;
    result.operation = "test";
    result.url = URLTemplate(std::move(url));
    return result;
}

Params profile() {
    Params params;
    params.mapping = TextMap{{"%UXID%", "u1"}};
    return params;
}

/// A request as one text: request line, headers, a blank line, body if there is one.
std::string text(const TransportRequest& request) {
    std::string result = request.method + " " + request.url + "\n";
    for (const auto& [name, value] : request.headers)
        result.append(name).append(": ").append(value).append("\n");
    return request.body ? result + "\n" + *request.body : result;
}

std::string built(const Params& params, const WebService& service) {
    const auto sling = build(params, service);
    return sling.request() != nullptr ? text(*sling.request()) : "no request";
}

std::string builtURL(const Params& params, const WebService& service) {
    const auto sling = build(params, service);
    return sling.request() != nullptr ? sling.request()->url : "no request";
}

/// The error of a request that cannot be made. Makes sure that nothing is sent.
std::optional<SlingError> problem(const Params& params, const WebService& service) {
    const auto sling = build(params, service);
    EXPECT_EQ(sling.request(), nullptr);
    const auto transport = std::make_shared<FakeTransport>();
    const Observed<Response> observed(sling.responses(transport));
    EXPECT_TRUE(transport->requests().empty());
    return observed.error<SlingError>();
}

TEST(SlingBuild, TheSimplestRequest) {
    EXPECT_EQ(built(profile(), service()),
              "GET https://api.example.com/v1/u1\n"
              "Accept: application/json\n");
}

TEST(SlingBuild, ARequestWithEverything) {
    WebService full = service("https://api.example.com/v1/%UXID%/list?sort=up#part");
    full.method = "PUT";
    full.body = BodyForm::json;
    full.headers = {{"X-App", "tv"}, {"Accept", "application/hal+json"}};
    full.query = {{"client", "a b"}, {"lang", "en"}};
    Params params = profile();
    params.query = TextMap{{"lang", "de"}, {"q", "ä&="}};
    params.someHeaders = TextMap{{"Authorization", "JWT t"}, {"x-app", "phone"}};
    params.dictionary.emplace().setText("name", "Zoë");

    EXPECT_EQ(built(params, full),
              "PUT "
              "https://api.example.com/v1/u1/"
              "list?sort=up&client=a%20b&lang=de&q=%C3%A4%26%3D#part\n"
              "Accept: application/hal+json\n"
              "Authorization: JWT t\n"
              "x-app: phone\n"
              "Content-Type: application/json\n"
              "\n"
              "{\"name\":\"Zoë\"}");
}

TEST(SlingBuild, TheRulesOfTheServiceAreCopied) {
    WebService rules = service("http://localhost:8080/v1/%UXID%?a=%UXID%");
    rules.policy.connectTimeout = milliseconds(123);
    rules.policy.totalTimeout = milliseconds(4567);
    rules.policy.maxBodyBytes = 89;
    rules.policy.maxHeaderBytes = 90;
    rules.policy.maxRedirects = 3;
    rules.policy.allowsCleartext = true;
    const auto sling = build(profile(), rules);
    ASSERT_NE(sling.request(), nullptr);
    const TransportRequest& request = *sling.request();
    EXPECT_EQ(request.policy, rules.policy);
    EXPECT_EQ(request.operation, "test");
    EXPECT_TRUE(request.sendsUserAgent);
    EXPECT_EQ(request.pathTemplate, "/v1/%UXID%");
}

TEST(SlingBuild, CleartextAndRedirectsAreOffByDefault) {
    const auto sling = build(profile(), service());
    ASSERT_NE(sling.request(), nullptr);
    EXPECT_FALSE(sling.request()->policy.allowsCleartext);
    EXPECT_EQ(sling.request()->policy.maxRedirects, 0);
}

TEST(SlingBuild, TheQueryIsAppendedWithTheRightSeparatorAndBeforeTheFragment) {
    const std::vector<std::pair<std::string, std::string>> urls{
        {"/p", "/p?a=1&b=2"},          {"", "?a=1&b=2"},
        {"/p?", "/p?a=1&b=2"},         {"/p?x=1", "/p?x=1&a=1&b=2"},
        {"/p?x=1&", "/p?x=1&a=1&b=2"}, {"/p#f", "/p?a=1&b=2#f"},
        {"/p?x#f", "/p?x&a=1&b=2#f"},  {"/p?#f?g", "/p?a=1&b=2#f?g"},
        {"/p#f?g", "/p?a=1&b=2#f?g"},  {"/p&", "/p&?a=1&b=2"},
    };
    Params params;
    params.query = TextMap{{"a", "1"}, {"b", "2"}};
    for (const auto& [url, expected] : urls)
        EXPECT_EQ(builtURL(params, service("https://h" + url)), "https://h" + expected);
}

TEST(SlingBuild, WithoutQueryTheUrlStaysAsItIs) {
    Params params;
    EXPECT_EQ(builtURL(params, service("https://h/p?#f")), "https://h/p?#f");
    params.query = TextMap();
    EXPECT_EQ(builtURL(params, service("https://h/p?")), "https://h/p?");
}

TEST(SlingBuild, NamesAndValuesOfTheQueryAreEncoded) {
    Params params;
    params.query = TextMap{{"n &=", "AZaz09-._~ !*'();:@&=+$,/?%#[]\"\n\xFF"}};
    EXPECT_EQ(builtURL(params, service("https://h/p")),
              "https://h/p?n%20%26%3D=AZaz09-._~%20%21%2A%27%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%25"
              "%23%5B%5D%22%0A%FF");
}

TEST(SlingBuild, AnEmptyQueryValueKeepsItsName) {
    Params params;
    params.query = TextMap{{"flag", ""}};
    EXPECT_EQ(builtURL(params, service("https://h/p")), "https://h/p?flag=");
}

TEST(SlingBuild, TheRecordsQueryWinsOverTheServices) {
    WebService queried = service("https://h/p?lang=xx");
    queried.query = {{"lang", "en"}, {"own", "1"}};
    Params params;
    params.query = TextMap{{"lang", "de"}};
    EXPECT_EQ(builtURL(params, queried), "https://h/p?lang=xx&lang=de&own=1");
    EXPECT_EQ(builtURL(Params(), queried), "https://h/p?lang=xx&lang=en&own=1");
}

TEST(SlingBuild, AQueryValueIsNoPlaceholder) {
    Params params = profile();
    params.query = TextMap{{"q", "%UXID%"}};
    EXPECT_EQ(builtURL(params, service()), "https://api.example.com/v1/u1?q=%25UXID%25");
}

TEST(SlingBuild, PlaceholderValuesAreInsertedAsTheyAre) {
    Params params;
    params.mapping = TextMap{{"%UXID%", "a%20b;c"}};
    EXPECT_EQ(builtURL(params, service()), "https://api.example.com/v1/a%20b;c");
}

TEST(SlingBuild, WhatARequestLineCannotCarryIsEncoded) {
    Params params;
    params.mapping = TextMap{{"%UXID%", "ä\"<>{}|\\^`"}};
    EXPECT_EQ(builtURL(params, service()),
              "https://api.example.com/v1/%C3%A4%22%3C%3E%7B%7D%7C%5C%5E%60");
}

TEST(SlingBuild, AValueThatLeadsElsewhereIsAProblem) {
    Params params;
    params.mapping = TextMap{{"%UXID%", "@evil.example/"}};
    const auto error = problem(params, service("https://api.example.com%UXID%"));
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->kind(), SlingErrorKind::malformedURL);
}

TEST(SlingBuild, AValueThatClimbsThePathIsAProblem) {
    for (const char* const value : {"..", "%2e%2E", "a/../b", "."}) {
        Params params;
        params.mapping = TextMap{{"%UXID%", value}};
        const auto error = problem(params, service());
        ASSERT_TRUE(error.has_value()) << value;
        EXPECT_EQ(error->kind(), SlingErrorKind::malformedURL) << value;
    }
}

TEST(SlingBuild, AValueWithAControlCharacterOrABlankIsAProblem) {
    for (const char* const value : {"a b", "a\r\nHost: evil", "a\tb", "a\x7F"}) {
        Params params;
        params.mapping = TextMap{{"%UXID%", value}};
        EXPECT_TRUE(problem(params, service()).has_value()) << value;
    }
}

TEST(SlingBuild, TheErrorNamesThePlaceholderWhoseValueIsToBlameAndNotTheValue) {
    Params params = profile();
    params.mapping->emplace("%SEARCH%", "sec\x01ret");
    const auto error = problem(params, service("https://api.example.com/v1/%UXID%?q=%SEARCH%"));
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("the value of %SEARCH% holds a control character"));
    EXPECT_THAT(error->what(), testing::StartsWith("test (GET /v1/%UXID%): "));
    EXPECT_THAT(error->what(), testing::Not(HasSubstr("ret")));
}

TEST(SlingBuild, ABodyThatIsNotUTF8IsAProblemThatNamesItsField) {
    WebService withBody = service();
    withBody.body = BodyForm::json;
    const auto refusal = [&](const JSONDictionary& body) {
        Params params = profile();
        params.dictionary = body;
        const auto error = problem(params, withBody);
        EXPECT_EQ(error ? error->kind() : SlingErrorKind::httpStatus,
                  SlingErrorKind::malformedBody);
        return std::string(error ? error->what() : "");
    };
    JSONDictionary bad;
    bad.setText("fine", "\xC3\xA4");
    bad.setText("name", "secret\xFF");
    EXPECT_THAT(refusal(bad), testing::EndsWith("the body's field name is not UTF-8"));
    JSONDictionary outer;
    outer.setDictionary("user", bad);
    EXPECT_THAT(refusal(outer), HasSubstr("field user.name is"));
    outer.setDictionaries("user", {JSONDictionary(), bad});
    EXPECT_THAT(refusal(outer), HasSubstr("field user[1].name is"));
    outer.setTexts("user", {"a", "b", "\xC3"});
    EXPECT_THAT(refusal(outer), HasSubstr("field user[2] is"));
}

TEST(SlingBuild, AServiceWithoutUrlIsAProblem) {
    EXPECT_TRUE(problem(Params(), WebService()).has_value());
    EXPECT_TRUE(problem(Params(), service("/relative")).has_value());
}

TEST(SlingBuild, AForbiddenHeaderArrivesThroughTheSequence) {
    Params params = profile();
    params.someHeaders = TextMap{{"X-Bad", "a\r\nb"}};
    const auto transport = std::make_shared<FakeTransport>();
    const Observed<Response> observed(build(params, service()).responses(transport));
    const auto error = observed.error<SlingError>();
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->kind(), SlingErrorKind::forbiddenHeader);
    EXPECT_TRUE(transport->requests().empty());
}

TEST(SlingBuild, TheRecordsHeadersWinWhateverTheirLetterCase) {
    WebService withHeaders = service("https://h/");
    withHeaders.headers.add("X-Twice", "1");
    withHeaders.headers.add("x-twice", "2");
    withHeaders.headers.add("X-Other", "3");
    Params params;
    params.someHeaders = TextMap{{"X-TWICE", "record"}};
    EXPECT_EQ(built(params, withHeaders),
              "GET https://h/\n"
              "X-Other: 3\n"
              "X-TWICE: record\n"
              "Accept: application/json\n");
}

TEST(SlingBuild, HeadersOfTheServiceAloneAreAllSent) {
    WebService withHeaders = service("https://h/");
    withHeaders.headers.add("X-Twice", "1");
    withHeaders.headers.add("x-twice", "2");
    EXPECT_EQ(built(Params(), withHeaders),
              "GET https://h/\n"
              "X-Twice: 1\n"
              "x-twice: 2\n"
              "Accept: application/json\n");
}

TEST(SlingBuild, AcceptIsADefaultOnly) {
    Params params;
    params.someHeaders = TextMap{{"accept", "text/plain"}};
    EXPECT_EQ(built(params, service("https://h/")),
              "GET https://h/\n"
              "accept: text/plain\n");
}

TEST(SlingBuild, TheUserAgentIsRemovedWhereTheRecordSaysSo) {
    WebService withAgent = service("https://h/");
    withAgent.headers = {{"user-agent", "service"}};
    Params params;
    params.someHeaders = TextMap{{"User-Agent", "record"}};
    EXPECT_EQ(built(params, withAgent),
              "GET https://h/\n"
              "User-Agent: record\n"
              "Accept: application/json\n");

    params.withoutUserAgent = true;
    const auto sling = build(params, withAgent);
    ASSERT_NE(sling.request(), nullptr);
    EXPECT_EQ(text(*sling.request()),
              "GET https://h/\n"
              "Accept: application/json\n");
    EXPECT_FALSE(sling.request()->sendsUserAgent);
}

/// A record that could fill any kind of body.
Params withBodies() {
    Params params;
    params.dictionary.emplace().setInteger("n", 1);
    params.encoded = "n=1";
    return params;
}

TEST(SlingBuild, AServiceWithoutBodySendsNone) {
    WebService none = service("https://h/");
    none.body = BodyForm::none;
    EXPECT_EQ(built(withBodies(), none),
              "GET https://h/\n"
              "Accept: application/json\n");
}

TEST(SlingBuild, WhatARecordHasAsItsBodyIsSentUnlessTheServiceSaysOtherwise) {
    Params params = withBodies();
    EXPECT_EQ(built(params, service("https://h/")),
              "GET https://h/\n"
              "Accept: application/json\n"
              "Content-Type: application/json\n"
              "\n"
              "{\"n\":1}");
    params.dictionary.reset();
    EXPECT_EQ(built(params, service("https://h/")),
              "GET https://h/\n"
              "Accept: application/json\n"
              "Content-Type: application/x-www-form-urlencoded\n"
              "\n"
              "n=1");
}

TEST(SlingBuild, AJsonBodyIsTheDictionary) {
    WebService json = service("https://h/");
    json.body = BodyForm::json;
    EXPECT_EQ(built(withBodies(), json),
              "GET https://h/\n"
              "Accept: application/json\n"
              "Content-Type: application/json\n"
              "\n"
              "{\"n\":1}");
}

TEST(SlingBuild, AFormBodyIsTheEncodedText) {
    WebService form = service("https://h/");
    form.body = BodyForm::form;
    EXPECT_EQ(built(withBodies(), form),
              "GET https://h/\n"
              "Accept: application/json\n"
              "Content-Type: application/x-www-form-urlencoded\n"
              "\n"
              "n=1");
}

TEST(SlingBuild, ARecordWithoutBodySendsNone) {
    for (const BodyForm form : {BodyForm::automatic, BodyForm::json, BodyForm::form}) {
        WebService withForm = service("https://h/");
        withForm.body = form;
        EXPECT_EQ(built(Params(), withForm),
                  "GET https://h/\n"
                  "Accept: application/json\n");
    }
}

TEST(SlingBuild, AnEmptyBodyIsABody) {
    WebService json = service("https://h/");
    json.body = BodyForm::json;
    Params params;
    params.dictionary = JSONDictionary();
    params.encoded = "";
    const auto sling = build(params, json);
    ASSERT_NE(sling.request(), nullptr);
    ASSERT_NE(sling.request()->body, nullptr);
    EXPECT_EQ(*sling.request()->body, "{}");

    json.body = BodyForm::form;
    const auto formSling = build(params, json);
    ASSERT_NE(formSling.request(), nullptr);
    ASSERT_NE(formSling.request()->body, nullptr);
    EXPECT_EQ(*formSling.request()->body, "");
}

TEST(SlingBuild, AContentTypeOfTheServiceStays) {
    WebService json = service("https://h/");
    json.body = BodyForm::json;
    json.headers = {{"content-type", "application/vnd.example+json"}};
    EXPECT_EQ(built(withBodies(), json),
              "GET https://h/\n"
              "content-type: application/vnd.example+json\n"
              "Accept: application/json\n"
              "\n"
              "{\"n\":1}");
}

TEST(SlingBuild, WhatIsBuiltIsWhatIsSent) {
    const auto transport = std::make_shared<FakeTransport>();
    transport->willAnswer(200, "{}");
    const auto sling = build(profile(), service());
    const Observed<Response> observed(sling.responses(transport));
    ASSERT_TRUE(observed.completed());
    ASSERT_EQ(transport->requests().size(), 1U);
    EXPECT_EQ(text(transport->requests().front()), text(*sling.request()));
}

}  // namespace
