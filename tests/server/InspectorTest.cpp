// The inspector's files: how they are served, and what they are made of. What the page does is
// tested in a browser, in tests/inspector.
#include <array>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>

#include <kestrin-profile-server/admin/EmbeddedFile.hpp>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

using testing::Each;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

const std::filesystem::path inspectorFolder = KESTRIN_INSPECTOR;

class InspectorTest : public testing::Test {
  protected:
    HttpReply get(const std::string& target, const HeaderLines& headers = {}) {
        return client.send("GET", target, headers);
    }

    TestService service{withAdmin};
    HttpClient client{service.baseURL()};
};

/// Everything that the first group of an expression matches.
std::set<std::string> allFound(std::string_view text, const std::string& expression) {
    std::set<std::string> all;
    const std::regex pattern(expression);
    using Each = std::regex_iterator<std::string_view::const_iterator>;
    for (Each each(text.begin(), text.end(), pattern), end; each != end; ++each)
        all.insert((*each)[1]);
    return all;
}

std::set<std::string> namesOfFiles() {
    std::set<std::string> names;
    for (const EmbeddedFile& file : inspectorFiles())
        names.emplace(file.name);
    return names;
}

TEST(InspectorFilesTest, AreAllThoseOfTheFolder) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(inspectorFolder))
        names.insert(entry.path().filename().string());
    EXPECT_EQ(namesOfFiles(), names);
    for (const EmbeddedFile& file : inspectorFiles())
        EXPECT_EQ(file.content, TestSupport::contentOf(inspectorFolder / file.name)) << file.name;
}

TEST(InspectorFilesTest, NameOnlyFilesThatAreThere) {
    for (const EmbeddedFile& file : inspectorFiles()) {
        EXPECT_THAT(namesOfFiles(),
                    IsSupersetOf(allFound(file.content, R"re((?:src|href)="([^"#]+)")re")))
            << file.name;
        EXPECT_THAT(namesOfFiles(),
                    IsSupersetOf(allFound(file.content, R"re(from '\./([^']+)')re")))
            << file.name;
    }
}

TEST(InspectorFilesTest, MakeNoMarkupAndNoScriptOfTexts) {
    constexpr std::array sinks{"innerHTML",
                               "outerHTML",
                               "insertAdjacentHTML",
                               "document.write",
                               "createContextualFragment",
                               "DOMParser",
                               "setHTML",
                               "srcdoc",
                               "eval(",
                               "new Function",
                               "javascript:",
                               "setAttribute('on",
                               "setAttribute('style"};
    for (const EmbeddedFile& file : inspectorFiles())
        for (const char* const sink : sinks)
            EXPECT_THAT(std::string(file.content), Not(HasSubstr(sink))) << file.name;
}

TEST(InspectorFilesTest, HaveNothingInlineAndNothingFromElsewhere) {
    for (const EmbeddedFile& file : inspectorFiles()) {
        EXPECT_THAT(
            allFound(file.content, R"re((<script(?![^>]* src=)|<style| style=| on[a-z]+="))re"),
            testing::IsEmpty())
            << file.name;
        // The name of SVG's elements is no address that anybody loads.
        EXPECT_THAT(allFound(file.content, R"re(((?:(?:https?|wss?)://|url\(|@import)[^\s"']*))re"),
                    Each("http://www.w3.org/2000/svg"))
            << file.name;
    }
}

TEST_F(InspectorTest, ServesThePageAndItsFilesAsWhatTheyAre) {
    EXPECT_EQ(get("/admin/").headers.at("content-type"), "text/html; charset=utf-8");
    EXPECT_EQ(get("/admin/").body, get("/admin/index.html").body);
    EXPECT_EQ(get("/admin/inspector.css").headers.at("content-type"), "text/css; charset=utf-8");
    EXPECT_EQ(get("/admin/inspector.js").headers.at("content-type"),
              "text/javascript; charset=utf-8");
    EXPECT_EQ(get("/admin/icon.svg").headers.at("content-type"), "image/svg+xml");
    for (const EmbeddedFile& file : inspectorFiles())
        EXPECT_EQ(get("/admin/" + std::string(file.name)).body, file.content) << file.name;
}

TEST_F(InspectorTest, LeadsToThePageFromItsAddressWithoutTheSlash) {
    const auto reply = get("/admin");
    EXPECT_EQ(outcomeOf(reply), "308");
    EXPECT_EQ(reply.headers.at("location"), "admin/");
}

TEST_F(InspectorTest, OfANamespaceIsBelowIt) {
    ASSERT_EQ(client
                  .send("POST", "/admin/v1/namespaces", {{"Content-Type", "application/json"}},
                        R"({"name": "one"})")
                  .status,
              201);
    EXPECT_EQ(get("/n/one/admin/").body, get("/admin/").body);
    EXPECT_EQ(outcomeOf(get("/n/two/admin/")), "404 unknown-namespace");
}

TEST_F(InspectorTest, AllowsThePageItsOwnServiceAndNothingElse) {
    for (const char* const target : {"/admin/", "/admin/inspector.js", "/admin/icon.svg"}) {
        const auto headers = get(target).headers;
        EXPECT_EQ(headers.at("content-security-policy"),
                  "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self';"
                  " connect-src 'self'; frame-ancestors 'none'; base-uri 'none';"
                  " form-action 'none'; require-trusted-types-for 'script'; trusted-types 'none'");
        EXPECT_EQ(headers.at("x-content-type-options"), "nosniff");
        EXPECT_EQ(headers.at("referrer-policy"), "no-referrer");
    }
}

TEST_F(InspectorTest, IsAskedForAgainAndSentOnlyIfItChanged) {
    const auto first = get("/admin/inspector.js");
    EXPECT_EQ(first.headers.at("cache-control"), "no-cache");
    const std::string tag = first.headers.at("etag");
    const auto again = get("/admin/inspector.js", {{"If-None-Match", tag}});
    EXPECT_EQ(outcomeOf(again), "304");
    EXPECT_EQ(again.body, "");
    EXPECT_EQ(again.headers.at("etag"), tag);
    EXPECT_EQ(outcomeOf(get("/admin/inspector.css", {{"If-None-Match", tag}})), "200");
}

TEST_F(InspectorTest, NeedsNoSecretBecauseThePageAsksForIt) {
    service.restart([](ServiceSettings& settings) { settings.admin.secret = "sixteen-letters!"; });
    HttpClient stranger(service.baseURL());
    for (const char* const target : {"/admin", "/admin/", "/admin/inspector.js"})
        EXPECT_LT(stranger.send("GET", target).status, 400) << target;
    EXPECT_EQ(outcomeOf(stranger.send("GET", "/admin/v1/status")), "401 admin-secret-required");
}

TEST_F(InspectorTest, HasNoOtherFiles) {
    for (const char* const target :
         {"/admin/nothing.js", "/admin/..", "/admin/%2e%2e", "/admin/..%2fmain.cpp", "/admin/v1",
          "/admin/inspector/index.html", "/admin//"})
        EXPECT_EQ(outcomeOf(get(target)), "404 unknown-path") << target;
    EXPECT_EQ(outcomeOf(client.send("POST", "/admin/")), "405 method-not-allowed");
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
