// docs/protocol.md beside the code. What the service itself does is compared by its own tests.

#include <chrono>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <HalvardSling/testing/FakeTransport.hpp>
#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/SlingBuild.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/params/AnonymousBindParams.hpp>
#include <KestrinProfile/params/ProfileUtils.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "Page.hpp"

namespace {

using HalvardSling::JSONDictionary;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::TextMap;
using KestrinConfigManager::WebService;
using KestrinProfile::Profile;
using KestrinProfile::ProfileMapping;
using KestrinProfile::ProfileParams;
using KestrinProfile::SearchParams;
using KestrinProfile::Types;
using KestrinProfile::UserProfileElement;
using testing::HasSubstr;
using testing::SizeIs;
using TestSupport::codeIn;
using TestSupport::Page;

const Page& page() {
    static const Page only("protocol.md");
    return only;
}

const AnonymousBind bind{"p", "t"};

TEST(ProtocolPage, HasTheOperationsOfTheExampleConfiguration) {
    auto& manager = ConfigurationManager::sharedInstance();
    ASSERT_TRUE(manager.load(KESTRIN_CONFIGURATION).empty());
    const auto configuration = manager.currentConfiguration();
    const auto rows = page().tableBelow("## Operations");
    EXPECT_EQ(rows.size(), KestrinProfile::profileOperationCount - 1) << "all but testOperation";
    EXPECT_EQ(rows.size(), configuration->services->size());

    constexpr std::string_view list = "brand=%BRANDNAME%&profile=%UXID%";
    EXPECT_THAT(page().text(), HasSubstr("`L` stands for\n`" + std::string(list) + "`"));
    for (const auto& row : rows) {
        const std::string operation = codeIn(row.at(0)).at(0);
        EXPECT_TRUE(KestrinProfile::profileOperation(operation)) << operation;
        const WebService* const service = configuration->services->find(operation);
        ASSERT_NE(service, nullptr) << operation;

        const auto codes = codeIn(row.at(2));
        std::string query = codes.empty() ? "" : codes.front();
        if (row.at(2).ends_with('L')) query += list;
        const std::string& url = service->url.text();
        EXPECT_EQ("`" + service->method + " " + service->url.path() + "`", row.at(1)) << operation;
        EXPECT_EQ(url.substr(url.find('?') + 1), query + "&v=1") << operation;
        EXPECT_EQ(name(service->body), row.at(3) == "–" ? "none" : "json") << operation;
    }
}

TEST(ProtocolPage, SaysHowPlaceholdersArrive) {
    ProfileParams params(bind, "a b");
    params.videoID = params.showID = params.userName = "a b";
    TextMap mapping = *params.URLMapping();
    mapping.merge(*SearchParams("a b", Types::none, AnonymousBind("a b", "t")).URLMapping());
    mapping[ProfileMapping::uxid] = AnonymousBind("a b", "t").profileID;

    const auto rows = page().tableBelow("## Identifiers in the URL");
    EXPECT_THAT(rows, SizeIs(mapping.size()));
    for (const auto& row : rows)
        EXPECT_EQ(mapping.at(codeIn(row.at(0)).at(0)),
                  row.at(2) == "percent-encoded" ? "a%20b" : "a b")
            << row.at(0);
}

/// What an identifier becomes on its way; empty if the request is not sent.
std::string arrivesAs(const std::string& text) {
    WebService service;
    service.url = KestrinConfigManager::URLTemplate("https://h/a?id=%UXID%&v=1");
    KestrinProfile::AnonymousBindParams params("x" + text,
                                               KestrinProfile::ProfileOperation::anonymousBind);
    const auto sling = KestrinConfigManager::build(params, service);
    if (sling.request() == nullptr) return {};
    constexpr std::string_view front = "https://h/a?id=x";
    const std::string url = sling.request()->url;
    return url.substr(front.size(), url.find("&v=1") - front.size());
}

TEST(ProtocolPage, SaysWhichCharactersOfAnIdentifierAreEncoded) {
    std::vector<std::string> encoded;
    for (char c = 0x21; c < 0x7F; ++c)
        if (c != '&' && arrivesAs({c}) != std::string{c}) encoded.emplace_back(1, c);
    EXPECT_EQ(arrivesAs(" "), "");
    EXPECT_EQ(arrivesAs("\n"), "");
    EXPECT_EQ(arrivesAs("\x7F"), "");
    EXPECT_EQ(arrivesAs("\xC3\xA4"), "%C3%A4");

    std::string listed;
    for (std::size_t at = 0; at < encoded.size(); ++at) {
        listed += at == 0 ? "" : at + 1 == encoded.size() ? " and " : ", ";
        listed += encoded[at] == "`" ? "`` ` ``" : "`" + encoded[at] + "`";
    }
    EXPECT_THAT(page().text(), HasSubstr("bytes from 0x80 on\nand the characters " + listed + "."));
}

JSONDictionary parsed(std::string_view text) {
    auto result = JSONDictionary::parse(text);
    EXPECT_TRUE(std::holds_alternative<JSONDictionary>(result)) << text;
    return std::get<JSONDictionary>(std::move(result));
}

TEST(ProtocolPage, ShowsTheBodiesThatAreSent) {
    const auto transport = std::make_shared<HalvardSling::FakeTransport>();
    HalvardSling::setDefaultTransport(transport);
    auto& manager = ConfigurationManager::sharedInstance();
    ASSERT_TRUE(manager.load(KESTRIN_CONFIGURATION).empty());
    const auto bodyOf = [&](const auto& sent) {
        sent.subscribe([](const auto&) {}, [](const std::exception_ptr&) {}, [] {});
        return parsed(*transport->requests().back().body);
    };
    ProfileParams params(bind, "b");
    params.videoID = params.showID = "v";
    params.isComplete = true;
    params.progress = 1234;
    params.elements = {UserProfileElement("s1", Types::show), UserProfileElement("s2")};
    const std::vector sent{
        bodyOf(Profile().addHistoryVideo(params)), bodyOf(Profile().addFavoriteShow(params)),
        bodyOf(Profile().addFavoriteShows(params)),
        bodyOf(Profile().addSearchHistory(SearchParams("s", Types::none, bind, "b")))};
    HalvardSling::setDefaultTransport(nullptr);

    const auto rows = page().tableBelow("Bodies of the adds:");
    ASSERT_THAT(rows, SizeIs(sent.size()));
    for (std::size_t at = 0; at < sent.size(); ++at)
        EXPECT_EQ(parsed(codeIn(rows[at].at(1)).at(0)), sent[at]) << rows[at].at(0);
}

TEST(ProtocolPage, SaysHowLongAnExpiredBindIsUsed) {
    EXPECT_EQ(AnonymousBind::leeway, std::chrono::minutes(5));
    EXPECT_THAT(page().text(), HasSubstr("until five minutes after that time"));
}

}  // namespace
