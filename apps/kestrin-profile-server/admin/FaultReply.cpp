#include <array>

#include <boost/beast/http/status.hpp>
#include <boost/json.hpp>

#include <kestrin-profile-server/admin/Faults.hpp>
#include <kestrin-profile-server/domain/Tokens.hpp>
#include <kestrin-profile-server/http/Authorisation.hpp>

namespace KestrinProfileServer {
namespace {

namespace http = boost::beast::http;

constexpr unsigned firstRedirect = 300;
constexpr unsigned firstFailure = 400;
constexpr std::string_view notJSON = R"({"data": [{"id": "v1", "type":)";

std::string reasonOf(unsigned status) {
    return std::string(http::obsolete_reason(http::int_to_status(status)));
}

bool mayHaveBody(unsigned status) {
    return status != 204 && status != 304;
}

Reply statusReply(const FaultAction& action, std::string_view instance) {
    Reply reply;
    reply.status = action.status;
    if (!action.retryAfter.empty()) reply.headers.emplace_back("Retry-After", action.retryAfter);
    if (!mayHaveBody(action.status)) return reply;
    if (action.body) {
        reply.body = *action.body;
        reply.contentType = action.contentType.empty() ? "application/json" : action.contentType;
    } else if (action.status >= firstFailure) {
        reply.body = boost::json::serialize(
            boost::json::object{{"type", "about:blank"},
                                {"title", reasonOf(action.status)},
                                {"status", action.status},
                                {"detail", "a fault of the admin interface answers this"},
                                {"instance", instance}});
        reply.contentType =
            action.contentType.empty() ? "application/problem+json" : action.contentType;
    }
    return reply;
}

Reply refusedToken(const char* reason, std::string_view instance) {
    return replyTo(Problem(ProblemKind::tokenRefused, reason), instance);
}

/// What passes through the network of a station, a lift, a café.
constexpr std::array<FaultScenario, 5> scenarios{{
    {"flaky-train", "answers late, and some connections break before or after the work",
     R"({"faults": [
        {"name": "flaky-train: late", "probability": 0.5, "seed": 1,
         "action": {"kind": "delay", "milliseconds": 200, "jitterMilliseconds": 1300}},
        {"name": "flaky-train: lost on the way there", "probability": 0.15, "seed": 2,
         "action": {"kind": "resetBefore"}},
        {"name": "flaky-train: lost on the way back", "probability": 0.1, "seed": 3,
         "action": {"kind": "resetAfter"}},
        {"name": "flaky-train: cut", "probability": 0.05, "seed": 4,
         "action": {"kind": "resetMiddle"}}]})"},
    {"outage", "503 for everything, with Retry-After 30",
     R"({"faults": [{"name": "outage", "action": {"kind": "status", "status": 503, "retryAfter": 30}}]})"},
    {"slow-3g", "answers after 400 to 600 ms, with 50 kB in a second",
     R"({"faults": [
        {"name": "slow-3g: round trip", "seed": 1,
         "action": {"kind": "delay", "milliseconds": 400, "jitterMilliseconds": 200}},
        {"name": "slow-3g: bandwidth", "action": {"kind": "throttle", "bytesPerSecond": 50000}}]})"},
    {"expired-session", "the next request with a token finds it expired; a new bind helps",
     R"({"faults": [{"name": "expired-session", "count": 1, "action": {"kind": "expiredToken"}}]})"},
    {"captive-portal", "a network that wants a login: a page in the place of every answer",
     R"({"faults": [
        {"name": "captive-portal: page", "when": {"method": "GET"},
         "action": {"kind": "status", "status": 200, "contentType": "text/html; charset=utf-8",
                    "body": "<!doctype html><title>Welcome</title><p>Log in to use this network.</p>"}},
        {"name": "captive-portal: refusal",
         "action": {"kind": "status", "status": 511, "contentType": "text/html; charset=utf-8",
                    "body": "<!doctype html><title>Welcome</title><p>Log in to use this network.</p>"}}]})"},
}};

}  // namespace

bool replacesHandling(const FaultAction& action) {
    switch (action.kind) {
        case FaultKind::status:
            // A success promises that the work was done, so it is.
            return action.status >= firstRedirect;
        case FaultKind::refuse:
        case FaultKind::resetBefore:
        case FaultKind::expiredToken:
        case FaultKind::revokedToken:
            return true;
        default:
            return false;
    }
}

Reply replyOf(const FaultAction& action, std::string_view instance) {
    switch (action.kind) {
        case FaultKind::status:
            return statusReply(action, instance);
        case FaultKind::expiredToken:
            return refusedToken(expiredTokenDetail, instance);
        case FaultKind::revokedToken:
            return refusedToken(lostProfileDetail, instance);
        default:
            return {};
    }
}

void spoil(Reply& reply, const FaultAction& action) {
    if (action.kind == FaultKind::status && !isFailure(reply)) {
        Reply other = statusReply(action, "");
        reply.status = other.status;
        reply.body = std::move(other.body);
        reply.contentType = std::move(other.contentType);
    }
    if (action.kind == FaultKind::malformed) {
        if (!mayHaveBody(reply.status)) reply.status = 200;
        reply.body = notJSON;
        if (reply.contentType.empty()) reply.contentType = "application/json";
        reply.problem = {};
    }
    if (action.kind == FaultKind::contentType && mayHaveBody(reply.status))
        reply.contentType = action.contentType;
}

std::span<const FaultScenario> faultScenarios() {
    return scenarios;
}

}  // namespace KestrinProfileServer
