#include <optional>
#include <string>

#include <kestrin-profile-server/http/QueryString.hpp>
#include <kestrin-profile-server/http/Redaction.hpp>
#include <kestrin-profile-server/http/Request.hpp>
#include <kestrin-profile-server/http/RequestFacts.hpp>
#include <kestrin-profile-server/http/Routes.hpp>

namespace KestrinProfileServer {
namespace {

/// A token may be hidden in it, percent-encoded.
std::optional<std::string> shownValue(std::string_view target, std::string_view name) {
    const auto value = valueIn(queryOf(target), name);
    return value ? std::optional(withoutTokens(*value)) : std::nullopt;
}

}  // namespace

std::string_view RequestFacts::operation() const {
    return route == nullptr ? std::string_view() : route->operation;
}

RequestFacts requestFacts(std::string_view method, std::string_view target) {
    RequestFacts facts{findRoute(method == "HEAD" ? "GET" : method, pathOf(target)), {}, {}};
    if (facts.route == nullptr) return facts;
    for (const Parameter& parameter : facts.route->parameters) {
        if (parameter.role == ParameterRole::profile)
            facts.profile = shownValue(target, parameter.name);
        if (parameter.role == ParameterRole::item) facts.item = shownValue(target, parameter.name);
    }
    return facts;
}

}  // namespace KestrinProfileServer
