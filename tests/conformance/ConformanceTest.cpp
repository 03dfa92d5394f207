// Each operation against a socket: what it sends, byte for byte, from the configuration that the
// project ships, and what a fixed reply becomes. The expectations are files in golden/, one for
// each operation. To write them anew after a wanted change, run the program with
// KESTRIN_WRITE_GOLDEN=1 and read the difference.

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "support/Observed.hpp"
#include "support/Program.hpp"
#include "support/RawServer.hpp"

namespace {

using HalvardSling::Observable;
using HalvardSling::Response;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;
using KestrinProfile::Profile;
using KestrinProfile::ProfileOperation;
using KestrinProfile::ProfileParams;
using KestrinProfile::SearchParams;
using KestrinProfile::Types;
using KestrinProfile::User;
using KestrinProfile::UserParams;
using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;
using TestSupport::Observed;
using TestSupport::RawServer;

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

// What a result is, for people.

std::string shown(const AnonymousBind& bind) {
    return "profile " + bind.profileID + ", token " + bind.token + "\n";
}

std::string shown(const User& user) {
    return user.encode().toJSON() + "\n";
}

std::string shown(const std::vector<User>& users) {
    std::string all;
    for (const auto& user : users)
        all += shown(user);
    return all;
}

std::string shown(const UserProfile& list) {
    return list.encode().toJSON() + "\n";
}

std::string shown(const Response& response) {
    return "status " + std::to_string(response.status()) + ", " + std::string(response.body()) +
           "\n";
}

template <class T>
std::string outcome(const Observable<T>& source) {
    const Observed<T> observed(source);
    std::string all;
    for (const auto& value : observed.values())
        all += shown(value);
    return all + (observed.completed() ? "completed\n" : "failed\n");
}

/// One operation with its arguments, and the reply that it is given.
struct Case {
    ProfileOperation operation;
    int status;
    std::string reply;
    std::function<std::string(const Profile&)> run;
};

/// A record with everything that any list operation needs; the values hold what a URL makes
/// special.
ProfileParams listParams() {
    ProfileParams params;
    params.videoID = "video/1?part=2";
    params.showID = "show\u00e9{1}";
    params.progress = 754;
    params.isComplete = false;
    params.userName = "x y/z \u00e9<&>";
    params.elements = {UserProfileElement("show-1", Types::show),
                       UserProfileElement("show-2", Types::collection, 12, true)};
    return params;
}

UserParams userParams() {
    return UserParams({}, User("kid-2", "Ann", "cat", "kids", true));
}

template <class Result, class Params>
auto calling(Observable<Result> (Profile::*method)(Params) const, Params (*params)()) {
    return [=](const Profile& profile) { return outcome((profile.*method)(params())); };
}

const std::string listReply =
    R"({"id":"history","maxSize":500,"elements":[{"id":"v1","type":"VIDEO","progress":754,)"
    R"("isCompleted":false,"autoAddTimestamp":"2017-03-09T20:25:43.511+02:00"},)"
    R"({"id":"v2","type":"MOVIE","extra":1}]})";
const std::string userReply = R"({"profileId":"kid-2","username":"Ann","default":false})";

const std::vector<Case>& cases() {
    using enum ProfileOperation;
    static const std::vector<Case> all{
        {anonymousBind, 200, R"({"profileId":"kid-3","token":"issued"})",
         [](const Profile& profile) { return outcome(profile.requestAnonymousBind("kid-3")); }},
        {validate, 200, R"({"valid":true})", calling(&Profile::validateProfileName, &listParams)},
        {createProfile, 201, userReply, calling(&Profile::createProfile, &userParams)},
        {getProfiles, 200, R"({"data":[)" + userReply + R"(,{"username":"Bob"}]})",
         [](const Profile& profile) { return outcome(profile.getProfiles()); }},
        {editProfile, 200, userReply, calling(&Profile::editProfile, &userParams)},
        {deleteProfile, 204, "", calling(&Profile::deleteProfile, &userParams)},
        {getHistory, 200, listReply, calling(&Profile::requestHistory, &listParams)},
        {getVideoProgress, 200, listReply, calling(&Profile::requestVideoHistory, &listParams)},
        {addVideoToHistory, 204, "", calling(&Profile::addHistoryVideo, &listParams)},
        {removeVideoFromHistory, 204, "", calling(&Profile::deleteVideoHistory, &listParams)},
        {clearHistory, 204, "", calling(&Profile::clearHistory, &listParams)},
        {getFavorites, 200, R"({"id":"favorites","elements":[]})",
         calling(&Profile::requestFavorites, &listParams)},
        {addFavoriteShow, 204, "", calling(&Profile::addFavoriteShow, &listParams)},
        {addFavoriteShows, 204, "", calling(&Profile::addFavoriteShows, &listParams)},
        {removeFavoriteShow, 204, "", calling(&Profile::deleteFavoriteShow, &listParams)},
        {clearFavorites, 204, "", calling(&Profile::clearFavorites, &listParams)},
        {getWatchList, 200, "{}", calling(&Profile::requestWatchList, &listParams)},
        {addVideoToWatchList, 204, "", calling(&Profile::addWatchListVideo, &listParams)},
        {removeFromWatchList, 204, "", calling(&Profile::deleteWatchListVideo, &listParams)},
        {clearWatchList, 204, "", calling(&Profile::clearWatchList, &listParams)},
        {addSearchHistory, 204, "",
         [](const Profile& profile) {
             return outcome(profile.addSearchHistory(SearchParams("x y/z \u00e9\"<")));
         }},
        {deleteSearchHistory, 204, "",
         [](const Profile& profile) { return outcome(profile.deleteSearchHistory("kestrin")); }},
    };
    return all;
}

/// Configures the shared instance with the shipped configuration, its services at this server.
void configure(const RawServer& server) {
    const TestSupport::TemporaryDirectory directory;
    const auto file = directory / "config.json";
    TestSupport::write(file, replaced(TestSupport::contentOf(KESTRIN_CONFIGURATION),
                                      "http://127.0.0.1:8080", server.url("")));
    auto& manager = ConfigurationManager::sharedInstance();
    for (const auto& problem : manager.load(file))
        ADD_FAILURE() << problem.message;
    manager.dropBinds();
    for (const auto& [profileID, token] : {std::pair("parent", "parent-token"), {"kid", "token"}}) {
        manager.setBindProfileID(profileID);
        manager.setBindToken(token);
    }
    manager.selectProfile("kid");
}

std::string exchange(const Case& tested) {
    const RawServer server(
        RawServer::answering(TestSupport::httpReply(tested.status, tested.reply)));
    configure(server);
    const std::string result = tested.run(Profile());
    const auto requests = server.requests();
    EXPECT_EQ(requests.size(), 1U);
    std::string request = requests.empty() ? "" : requests.front();
    request = replaced(request, std::to_string(server.port()), "PORT");
    request = replaced(request, HalvardSling::CurlTransport::defaultUserAgent(), "USER-AGENT");
    // Random, and of no operation.
    request = std::regex_replace(request, std::regex("X-Request-ID: [0-9a-f]{32}\r\n"),
                                 "X-Request-ID: REQUEST-ID\r\n");
    return replaced(request, "\r\n", "\n") + "\n\n--- reply: " + std::to_string(tested.status) +
           " " + tested.reply + "\n--- result:\n" + result;
}

class Conformance : public testing::TestWithParam<Case> {};

TEST_P(Conformance, SendsExactlyThisAndMakesThisOfTheReply) {
    const auto file = std::filesystem::path(KESTRIN_GOLDEN) /
                      (std::string(rawValue(GetParam().operation)) + ".txt");
    const std::string actual = exchange(GetParam());
    if (std::getenv("KESTRIN_WRITE_GOLDEN") != nullptr) TestSupport::write(file, actual);
    EXPECT_EQ(actual, TestSupport::contentOf(file));
}

INSTANTIATE_TEST_SUITE_P(EveryOperation, Conformance, testing::ValuesIn(cases()),
                         [](const auto& each) {
                             return replaced(std::string(rawValue(each.param.operation)), "-", "_");
                         });

TEST(ConformanceCases, CoverEveryOperationOfTheConfigurationOnce) {
    std::vector<std::string> tested;
    for (const auto& each : cases())
        tested.emplace_back(rawValue(each.operation));
    const auto loaded = KestrinConfigManager::loadConfiguration(KESTRIN_CONFIGURATION);
    const auto& configuration = std::get<KestrinConfigManager::Configuration>(loaded);
    std::vector<std::string> configured;
    for (const auto& [operation, service] : *configuration.services)
        configured.push_back(operation);
    EXPECT_THAT(tested, testing::UnorderedElementsAreArray(configured));
    EXPECT_EQ(tested.size(), 22U);
}

}  // namespace
