#include <algorithm>
#include <array>
#include <functional>
#include <set>

#include <boost/json.hpp>

#include <kestrin-profile-server/admin/StrictChecks.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/Request.hpp>
#include <kestrin-profile-server/http/RequestFacts.hpp>
#include <kestrin-profile-server/http/Routes.hpp>

namespace KestrinProfileServer {
namespace {

namespace json = boost::json;

/// What clients know; searches have a type of their own, which the service checks.
constexpr std::array<std::string_view, 5> knownTypes{"SHOW", "VIDEO", "GAME", "COLLECTION", "none"};
constexpr unsigned manyBinds = 3;
constexpr unsigned firstFailure = 400;

using Findings = std::vector<Finding>;

void checkType(const json::object& object, const std::string& place, Findings& findings) {
    const json::value* const type = object.if_contains("type");
    if (type == nullptr || !type->is_string()) return;
    const std::string_view text = type->get_string();
    if (std::ranges::find(knownTypes, text) != knownTypes.end()) return;
    findings.push_back({"unknown-type", place + ".type is '" + excerptOf(text) +
                                            "', which no client reads; known are SHOW, VIDEO, GAME,"
                                            " COLLECTION and none"});
}

void checkProgress(const json::object& object, Findings& findings) {
    const json::value* const progress = object.if_contains("progress");
    if (progress == nullptr || !progress->is_string()) return;
    const std::string_view text = progress->get_string();
    if (text.size() < 2 || text.front() != '0') return;
    findings.push_back({"padded-number", "the body.progress is '" + excerptOf(text) +
                                             "'; numbers are written without leading zeros"});
}

void checkElements(const json::object& object, Findings& findings) {
    const json::value* const elements = object.if_contains("elements");
    if (elements == nullptr || !elements->is_array()) return;
    std::set<std::string_view> ids;
    std::size_t index = 0;
    for (const json::value& each : elements->get_array()) {
        const std::string place = "the body.elements[" + std::to_string(index++) + "]";
        const json::object* const element = each.if_object();
        const json::value* const id = element == nullptr ? nullptr : element->if_contains("id");
        if (id == nullptr || !id->is_string()) continue;
        checkType(*element, place, findings);
        if (ids.insert(std::string_view(id->get_string())).second) continue;
        findings.push_back(
            {"repeated-element", place + " has an id that an element before it has, too"});
    }
}

Findings findingsInBody(const Route& route, std::string_view body) {
    Findings findings;
    boost::system::error_code error;
    const json::value parsed = json::parse(body, error);
    const json::object* const object = error ? nullptr : parsed.if_object();
    if (object == nullptr) return findings;
    if (route.list != ListKind::searches) checkType(*object, "the body", findings);
    checkProgress(*object, findings);
    checkElements(*object, findings);
    return findings;
}

}  // namespace

std::vector<Finding> StrictChecks::findings(const Exchange& exchange,
                                            std::string_view requestBody) {
    const RequestFacts facts = requestFacts(exchange.method, exchange.target);
    if (facts.route == nullptr || !exchange.status || *exchange.status >= firstFailure) return {};
    Findings findings = findingsInBody(*facts.route, requestBody);
    const auto past = past_.lock();
    if (past->size() > mostProfiles) past->clear();
    Past& profile = (*past)[exchange.household + "\n" + facts.profile.value_or("")];
    if (facts.route->access == Access::household) {
        const bool isHasty = profile.hasBound && profile.requestsSinceBind <= 1;
        profile.hastyBinds = isHasty ? profile.hastyBinds + 1 : 0;
        profile.hasBound = true;
        profile.requestsSinceBind = 0;
        if (profile.hastyBinds >= manyBinds - 1) {
            findings.push_back({"bind-for-every-request",
                                "the profile has bound again after one request at most, for the " +
                                    std::to_string(profile.hastyBinds + 1) +
                                    "th time; a bind is good for many requests"});
        }
        return findings;
    }
    ++profile.requestsSinceBind;
    if (facts.route->effect != Effect::write) return findings;
    const std::size_t write = std::hash<std::string>()(exchange.method + " " + exchange.target +
                                                       "\n" + std::string(requestBody));
    if (profile.lastWrite == write) {
        findings.push_back(
            {"repeated-write", "the profile's last write, " +
                                   std::to_string(exchange.time - profile.lastWriteTime) +
                                   " ms before, was the same"});
    }
    profile.lastWrite = write;
    profile.lastWriteTime = exchange.time;
    return findings;
}

void StrictChecks::clear() {
    past_.lock()->clear();
}

}  // namespace KestrinProfileServer
