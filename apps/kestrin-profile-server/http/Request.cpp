#include <algorithm>

#include <internal/ASCII.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/http/Request.hpp>

namespace KestrinProfileServer {
namespace {

constexpr std::string_view namedPath = "/n/";

}  // namespace

std::optional<std::string_view> headerOf(const Request& request, std::string_view name) {
    std::optional<std::string_view> value;
    for (const auto& [each, text] : request.headers) {
        if (!KestrinInternal::equalsIgnoringCase(each, name)) continue;
        if (value) {
            throw Problem(ProblemKind::repeatedHeader,
                          "the header " + std::string(name) + " came more than once");
        }
        value = text;
    }
    return value;
}

std::string_view pathOf(std::string_view target) {
    return target.substr(0, target.find('?'));
}

std::string_view queryOf(std::string_view target) {
    return target.substr(std::min(pathOf(target).size() + 1, target.size()));
}

bool isNamedTarget(std::string_view target) {
    return target.starts_with(namedPath);
}

std::string_view namespaceIn(std::string_view target) {
    if (!isNamedTarget(target)) return {};
    const std::string_view rest = target.substr(namedPath.size());
    return rest.substr(0, rest.find_first_of("/?"));
}

std::string_view targetWithin(std::string_view target) {
    if (!isNamedTarget(target)) return target;
    return target.substr(namedPath.size() + namespaceIn(target).size());
}

std::string_view routeMethodOf(const Request& request) {
    return request.method == "HEAD" ? "GET" : request.method;
}

}  // namespace KestrinProfileServer
