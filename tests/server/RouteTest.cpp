// Every operation of the table does its work, and the table is what it should be.
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

/// The protocol as clients know it; written here a second time so that a change of the table is
/// noticed.
const std::map<std::string, std::string> expectedRoutes{
    {"personalization-bind-anonymous", "POST /v1/binds?profile=%UXID%&v=1 json"},
    {"personalization-validator",
     "GET /v1/profile-names?name=%USERNAME%&brand=%BRANDNAME%&profile=%UXID%&v=1 none"},
    {"personalization-create-profile", "POST /v1/profiles?profile=%UXID%&v=1 json"},
    {"personalization-get-profiles", "GET /v1/profiles?profile=%UXID%&v=1 none"},
    {"personalization-edit-profile", "PUT /v1/profile?target=%UXID%&v=1 json"},
    {"personalization-delete-profile", "DELETE /v1/profile?target=%UXID%&v=1 none"},
    {"personalization-history-get", "GET /v1/history?brand=%BRANDNAME%&profile=%UXID%&v=1 none"},
    {"personalization-get-video-history",
     "GET /v1/history/video?video=%VIDEO%&brand=%BRANDNAME%&profile=%UXID%&v=1 none"},
    {"personalization-history-add-video",
     "PUT /v1/history/video?video=%VIDEO%&brand=%BRANDNAME%&profile=%UXID%&v=1 json"},
    {"personalization-history-delete-video",
     "DELETE /v1/history/video?video=%VIDEO%&brand=%BRANDNAME%&profile=%UXID%&v=1 none"},
    {"personalization-history-clear",
     "DELETE /v1/history?brand=%BRANDNAME%&profile=%UXID%&v=1 none"},
    {"personalization-favorites-get",
     "GET /v1/favorites?brand=%BRANDNAME%&profile=%UXID%&v=1 none"},
    {"personalization-favorites-add-show",
     "PUT /v1/favorites/show?show=%SHOWID%&brand=%BRANDNAME%&profile=%UXID%&v=1 json"},
    {"personalization-favorites-add-shows",
     "POST /v1/favorites/shows?brand=%BRANDNAME%&profile=%UXID%&v=1 json"},
    {"personalization-favorites-delete-show",
     "DELETE /v1/favorites/show?show=%SHOWID%&brand=%BRANDNAME%&profile=%UXID%&v=1 none"},
    {"personalization-favorites-clear",
     "DELETE /v1/favorites?brand=%BRANDNAME%&profile=%UXID%&v=1 none"},
    {"personalization-watchlist-get",
     "GET /v1/watchlist?brand=%BRANDNAME%&profile=%UXID%&v=1 none"},
    {"personalization-watchlist-add-video",
     "PUT /v1/watchlist/video?video=%VIDEO%&brand=%BRANDNAME%&profile=%UXID%&v=1 json"},
    {"personalization-watchlist-delete-video",
     "DELETE /v1/watchlist/video?video=%VIDEO%&brand=%BRANDNAME%&profile=%UXID%&v=1 none"},
    {"personalization-watchlist-clear",
     "DELETE /v1/watchlist?brand=%BRANDNAME%&profile=%UXID%&v=1 none"},
    {"personalization-searchhistory-add",
     "POST /v1/searches?search=%SEARCH%&brand=%BRANDNAME%&profile=%UXID%&v=1 json"},
    {"personalization-searchhistory-delete",
     "DELETE /v1/searches?brand=%BRANDNAME%&profile=%UXID%&v=1 json"},
};

TEST(RouteTableTest, isTheProtocolThatClientsKnow) {
    std::map<std::string, std::string> found;
    for (const Route& route : routes()) {
        found[std::string(route.operation)] =
            std::string(route.method) + " " + urlTemplate(route) +
            (route.body.rule == BodyRule::none ? " none" : " json");
    }
    EXPECT_EQ(found, expectedRoutes);
}

TEST(RouteTableTest, methodAndPathChooseOneRoute) {
    std::set<std::string> addresses;
    for (const Route& route : routes())
        addresses.insert(std::string(route.method) + std::string(route.path));
    EXPECT_EQ(addresses.size(), routes().size());
    EXPECT_EQ(routes().size(), 22U);
}

TEST(RouteTableTest, onlyTheBindIsOpenToWhoHasNoToken) {
    for (const Route& route : routes())
        EXPECT_EQ(route.access == Access::household, route.path == "/v1/binds") << route.operation;
}

TEST(RouteTableTest, getsReadAndOtherMethodsWriteExceptTheBind) {
    for (const Route& route : routes()) {
        const bool reads = route.method == "GET" || route.path == "/v1/binds";
        EXPECT_EQ(route.effect == Effect::read, reads) << route.operation;
    }
}

TEST(EveryOperationTest, succeedsWithAProperRequest) {
    const std::map<std::string, std::string> bodies{
        {"personalization-create-profile", R"({"username":"Ben","default":false})"},
        {"personalization-edit-profile", R"({"username":"Cleo","default":false})"},
        {"personalization-history-add-video",
         R"({"isCompleted":"false","type":"VIDEO","progress":"42"})"},
        {"personalization-favorites-add-show", R"({"type":"SHOW"})"},
        {"personalization-favorites-add-shows", R"({"elements":[{"id":"s1","type":"SHOW"}]})"},
        {"personalization-watchlist-add-video", R"({"type":"VIDEO"})"},
        {"personalization-searchhistory-add", R"({"type":"TERM"})"},
        {"personalization-searchhistory-delete", R"({"type":"TERM"})"},
    };
    const std::map<std::string, long> otherStatus{{"personalization-create-profile", 201},
                                                  {"personalization-edit-profile", 200},
                                                  {"personalization-bind-anonymous", 200}};
    TestService service;
    auto client = service.client();
    const Caller parent = client.bind("parent");

    for (const Route& route : routes()) {
        const std::string operation(route.operation);
        const Caller kid = client.create(parent, "Anna");
        std::string target = urlTemplate(route);
        const std::string addressed =
            route.access == Access::parent ? parent.profileID : kid.profileID;
        for (const auto& [placeholder, value] :
             std::map<std::string, std::string>{{"%UXID%", addressed},
                                                {"%BRANDNAME%", "kestrin"},
                                                {"%VIDEO%", "v1"},
                                                {"%SHOWID%", "s1"},
                                                {"%USERNAME%", "Dora"},
                                                {"%SEARCH%", "space%20ships"}}) {
            target = replaced(target, placeholder, value);
        }
        const std::string body = bodies.contains(operation) ? bodies.at(operation) : "";
        const auto reply = route.access == Access::household
                               ? client.tryBind(kid.profileID)
                               : client.call(parent, std::string(route.method), target, body);
        const long expected = otherStatus.contains(operation) ? otherStatus.at(operation)
                              : route.effect == Effect::read  ? 200
                                                              : 204;
        EXPECT_EQ(reply.status, expected) << operation << " " << reply.body;
        EXPECT_EQ(reply.headers.at("cache-control"), "no-store") << operation;
        EXPECT_EQ(reply.body.empty(), expected == 204) << operation;
        client.call(parent, "DELETE", "/v1/profile?target=" + kid.profileID + "&v=1");
    }
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
