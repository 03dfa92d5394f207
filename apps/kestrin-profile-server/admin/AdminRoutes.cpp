#include <algorithm>
#include <array>

#include <internal/PercentEncoding.hpp>
#include <internal/UTF8.hpp>
#include <kestrin-profile-server/admin/AdminRoutes.hpp>
#include <kestrin-profile-server/admin/RouteTables.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/Routes.hpp>

namespace KestrinProfileServer {
namespace {

constexpr std::string_view adminPath = "/admin";

/// The routes of all parts, in the order in which they are described.
std::vector<AdminRoute> joinedRoutes() {
    std::vector<AdminRoute> all;
    for (const auto part :
         {statusRoutes(), journalRoutes(), faultRoutes(), eventRoutes(), stateRoutes(),
          scenarioRoutes(), clockRoutes(), namespaceRoutes(), inspectorRoutes()})
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

std::string decoded(std::string_view text, bool isForm, const std::string& place) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (const auto byte = KestrinInternal::percentEscapedByte(text.substr(at))) {
            result.push_back(*byte);
            at += KestrinInternal::percentEscapeSize - 1;
        } else {
            result.push_back(isForm && text[at] == '+' ? ' ' : text[at]);
        }
    }
    if (!KestrinInternal::isUTF8(result) || result.size() > longestText ||
        result.find('\0') != std::string::npos) {
        throw Problem(ProblemKind::malformedParameter, place + " is no UTF-8 text of at most " +
                                                           std::to_string(longestText) +
                                                           " bytes without a zero");
    }
    return result;
}

/// The text up to the next slash, which is taken away with it.
std::string_view takeSegment(std::string_view& path) {
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view segment = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    return segment;
}

/// What the segments in braces stand for; absent if the path is not of the pattern.
std::optional<std::vector<std::string_view>> matched(std::string_view pattern,
                                                     std::string_view path) {
    // A slash at the end is a segment of its own, an empty one.
    if (pattern.ends_with('/') != path.ends_with('/')) return std::nullopt;
    std::vector<std::string_view> segments;
    while (!pattern.empty() || !path.empty()) {
        if (pattern.empty() || path.empty()) return std::nullopt;
        const std::string_view expected = takeSegment(pattern);
        const std::string_view found = takeSegment(path);
        if (expected.starts_with('{') && !found.empty())
            segments.push_back(found);
        else if (expected != found)
            return std::nullopt;
    }
    return segments;
}

std::vector<std::string> decodedSegments(const std::vector<std::string_view>& segments) {
    std::vector<std::string> texts;
    texts.reserve(segments.size());
    for (const std::string_view each : segments)
        texts.push_back(decoded(each, false, "a segment of the path"));
    return texts;
}

std::string namesOf(std::span<const std::string_view> names) {
    std::string text;
    for (const std::string_view name : names)
        text += (text.empty() ? "'" : ", '") + std::string(name) + "'";
    return text.empty() ? "none" : text;
}

bool isThere(const AdminRoute& route, std::string_view path, bool isRoot) {
    return (isRoot || !route.isOfRoot) && matched(route.path, path);
}

}  // namespace

std::optional<std::string> AdminCall::parameter(std::string_view name) const {
    const auto found = std::ranges::find(query, name, &std::pair<std::string, std::string>::first);
    return found == query.end() ? std::nullopt : std::optional(found->second);
}

const boost::json::value& AdminCall::requiredBody() const {
    if (body) return *body;
    throw Problem(ProblemKind::missingBody, "the body is empty; expected is JSON");
}

std::span<const AdminRoute> adminRoutes() {
    static const std::vector<AdminRoute> all = joinedRoutes();
    return all;
}

bool isAdminPath(std::string_view path) {
    return path.starts_with(adminPath) &&
           (path.size() == adminPath.size() || path[adminPath.size()] == '/');
}

AdminCall adminCallOf(std::string_view method, std::string_view path, bool isRoot) {
    for (const AdminRoute& route : adminRoutes()) {
        if (route.method != method || (route.isOfRoot && !isRoot)) continue;
        const auto segments = matched(route.path, path);
        if (!segments) continue;
        AdminCall call;
        call.route = &route;
        call.segments = decodedSegments(*segments);
        return call;
    }
    throw methodNotAllowed(method, allowedAdminMethods(path, isRoot));
}

std::string allowedAdminMethods(std::string_view path, bool isRoot) {
    std::vector<std::string_view> methods;
    for (const AdminRoute& route : adminRoutes())
        if (isThere(route, path, isRoot)) methods.push_back(route.method);
    if (!methods.empty()) return allowedMethods(methods);
    throw Problem(ProblemKind::unknownPath,
                  "the admin interface has no path '" + excerptOf(path) + "'");
}

std::vector<std::pair<std::string, std::string>> adminQuery(
    std::string_view query, std::span<const std::string_view> known) {
    std::vector<std::pair<std::string, std::string>> values;
    while (!query.empty()) {
        const std::string_view piece = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(piece.size() + 1, query.size()));
        const std::string name = decoded(piece.substr(0, piece.find('=')), true, "a name");
        const std::size_t value = std::min(piece.find('='), piece.size() - 1) + 1;
        if (std::ranges::find(known, name) == known.end()) {
            throw Problem(ProblemKind::unknownParameter, "the query has the parameter '" +
                                                             excerptOf(name) + "'; known are " +
                                                             namesOf(known));
        }
        if (std::ranges::find(values, name, &std::pair<std::string, std::string>::first) !=
            values.end()) {
            throw Problem(ProblemKind::repeatedParameter,
                          "the query has the parameter '" + name + "' more than once");
        }
        values.emplace_back(name,
                            decoded(piece.substr(value), true, "the value of '" + name + "'"));
    }
    return values;
}

}  // namespace KestrinProfileServer
