#include <algorithm>
#include <array>
#include <vector>

#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/Routes.hpp>

namespace KestrinProfileServer {
namespace {

// What the queries are made of.
constexpr Parameter profile{"profile", "%UXID%", ParameterRole::profile};
constexpr Parameter target{"target", "%UXID%", ParameterRole::profile};
constexpr Parameter brand{"brand", "%BRANDNAME%", ParameterRole::brand};
constexpr Parameter video{"video", "%VIDEO%", ParameterRole::item};
constexpr Parameter show{"show", "%SHOWID%", ParameterRole::item};
constexpr Parameter search{"search", "%SEARCH%", ParameterRole::item};
constexpr Parameter username{"name", "%USERNAME%", ParameterRole::name};

constexpr std::array ofProfile{profile};
constexpr std::array ofTarget{target};
constexpr std::array ofName{username, brand, profile};
constexpr std::array ofList{brand, profile};
constexpr std::array ofVideo{video, brand, profile};
constexpr std::array ofShow{show, brand, profile};
constexpr std::array ofSearch{search, brand, profile};

// What the bodies are made of.
constexpr std::array bindKeys{BodyKey{"profileId", ValueKind::text, true}};
constexpr std::array profileKeys{
    BodyKey{"username", ValueKind::text}, BodyKey{"avatar", ValueKind::text},
    BodyKey{"group", ValueKind::text}, BodyKey{"default", ValueKind::boolean}};
constexpr std::array historyKeys{BodyKey{"isCompleted", ValueKind::truthText},
                                 BodyKey{"type", ValueKind::text},
                                 BodyKey{"progress", ValueKind::decimalText}};
constexpr std::array typeKeys{BodyKey{"type", ValueKind::text}};
constexpr std::array elementsKeys{BodyKey{"elements", ValueKind::elements, true}};
constexpr std::array searchKeys{BodyKey{"type", ValueKind::termText}};

constexpr BodyShape noBody{};
constexpr BodyShape bindBody{BodyRule::required, bindKeys};
constexpr BodyShape profileBody{BodyRule::required, profileKeys};
constexpr BodyShape historyBody{BodyRule::optional, historyKeys};
constexpr BodyShape typeBody{BodyRule::optional, typeKeys};
constexpr BodyShape elementsBody{BodyRule::required, elementsKeys};
constexpr BodyShape searchBody{BodyRule::optional, searchKeys};

// clang-format off
constexpr auto routeTable = [] {
    using enum Access;
    using enum Action;
    using enum Effect;
    return std::array<Route, 22>{{
        {"personalization-bind-anonymous",       "POST",   "/v1/binds",           ofProfile, bindBody,     household,    read,  bindAnonymously},
        {"personalization-validator",            "GET",    "/v1/profile-names",   ofName,    noBody,       member,       read,  validateName},
        {"personalization-create-profile",       "POST",   "/v1/profiles",        ofProfile, profileBody,  parent,       write, createProfile},
        {"personalization-get-profiles",         "GET",    "/v1/profiles",        ofProfile, noBody,       member,       read,  getProfiles},
        {"personalization-edit-profile",         "PUT",    "/v1/profile",         ofTarget,  profileBody,  selfOrParent, write, editProfile},
        {"personalization-delete-profile",       "DELETE", "/v1/profile",         ofTarget,  noBody,       selfOrParent, write, deleteProfile},
        {"personalization-history-get",          "GET",    "/v1/history",         ofList,    noBody,       selfOrParent, read,  getList,     ListKind::history},
        {"personalization-get-video-history",    "GET",    "/v1/history/video",   ofVideo,   noBody,       selfOrParent, read,  getEntry,    ListKind::history},
        {"personalization-history-add-video",    "PUT",    "/v1/history/video",   ofVideo,   historyBody,  selfOrParent, write, addEntry,    ListKind::history},
        {"personalization-history-delete-video", "DELETE", "/v1/history/video",   ofVideo,   noBody,       selfOrParent, write, deleteEntry, ListKind::history},
        {"personalization-history-clear",        "DELETE", "/v1/history",         ofList,    noBody,       selfOrParent, write, clearList,   ListKind::history},
        {"personalization-favorites-get",        "GET",    "/v1/favorites",       ofList,    noBody,       selfOrParent, read,  getList,     ListKind::favorites},
        {"personalization-favorites-add-show",   "PUT",    "/v1/favorites/show",  ofShow,    typeBody,     selfOrParent, write, addEntry,    ListKind::favorites},
        {"personalization-favorites-add-shows",  "POST",   "/v1/favorites/shows", ofList,    elementsBody, selfOrParent, write, addEntries,  ListKind::favorites},
        {"personalization-favorites-delete-show","DELETE", "/v1/favorites/show",  ofShow,    noBody,       selfOrParent, write, deleteEntry, ListKind::favorites},
        {"personalization-favorites-clear",      "DELETE", "/v1/favorites",       ofList,    noBody,       selfOrParent, write, clearList,   ListKind::favorites},
        {"personalization-watchlist-get",        "GET",    "/v1/watchlist",       ofList,    noBody,       selfOrParent, read,  getList,     ListKind::watchlist},
        {"personalization-watchlist-add-video",  "PUT",    "/v1/watchlist/video", ofVideo,   typeBody,     selfOrParent, write, addEntry,    ListKind::watchlist},
        {"personalization-watchlist-delete-video","DELETE","/v1/watchlist/video", ofVideo,   noBody,       selfOrParent, write, deleteEntry, ListKind::watchlist},
        {"personalization-watchlist-clear",      "DELETE", "/v1/watchlist",       ofList,    noBody,       selfOrParent, write, clearList,   ListKind::watchlist},
        {"personalization-searchhistory-add",    "POST",   "/v1/searches",        ofSearch,  searchBody,   selfOrParent, write, addEntry,    ListKind::searches},
        {"personalization-searchhistory-delete", "DELETE", "/v1/searches",        ofList,    searchBody,   selfOrParent, write, clearList,   ListKind::searches},
    }};
}();
// clang-format on

/// All paths, each once; the table has the routes of a path not always side by side.
std::string allPaths() {
    std::vector<std::string_view> paths;
    for (const Route& route : routeTable)
        if (std::ranges::find(paths, route.path) == paths.end()) paths.push_back(route.path);
    std::string text;
    for (const std::string_view path : paths)
        text += (text.empty() ? "" : ", ") + std::string(path);
    return text;
}

}  // namespace

std::span<const Route> routes() {
    return routeTable;
}

Problem methodNotAllowed(std::string_view method, const std::string& allowed) {
    return {ProblemKind::methodNotAllowed,
            "the method is " + excerptOf(method) + "; this path has " + allowed,
            {{"Allow", allowed}}};
}

std::string allowedMethods(const std::vector<std::string_view>& methods) {
    std::string allowed;
    for (const std::string_view method : methods)
        allowed += std::string(method) + (method == "GET" ? ", HEAD, " : ", ");
    return allowed + "OPTIONS";
}

std::string allowedMethods(std::string_view path) {
    std::vector<std::string_view> methods;
    for (const Route& route : routeTable)
        if (route.path == path) methods.push_back(route.method);
    if (!methods.empty()) return allowedMethods(methods);
    throw Problem(ProblemKind::unknownPath, "the service has no path '" + excerptOf(path) +
                                                "'; expected is one of " + allPaths());
}

const Route* findRoute(std::string_view method, std::string_view path) noexcept {
    const auto found = std::ranges::find_if(routeTable, [&](const Route& route) {
        return route.path == path && route.method == method;
    });
    return found == routeTable.end() ? nullptr : &*found;
}

const Route& routeOf(std::string_view method, std::string_view path) {
    if (const Route* const found = findRoute(method, path)) return *found;
    throw methodNotAllowed(method, allowedMethods(path));
}

std::string urlTemplate(const Route& route) {
    std::string url = std::string(route.path) + "?";
    for (const Parameter& parameter : route.parameters)
        url += std::string(parameter.name) + "=" + std::string(parameter.placeholder) + "&";
    return url + std::string(sentinel);
}

}  // namespace KestrinProfileServer
