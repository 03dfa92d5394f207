#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include <gmock/gmock.h>

#include <HalvardSling/rx/Sling.hpp>

#include "support/Observed.hpp"
#include "support/RawServer.hpp"

namespace TestSupport {

/// A subscription to the responses of a request. It keeps the transport alive.
class Responses : public Observed<HalvardSling::Response> {
  public:
    Responses(const HalvardSling::TransportRequest& request,
              std::shared_ptr<HalvardSling::Transport> transport)
        : Observed(HalvardSling::Sling(request).responses(transport)),
          transport_(std::move(transport)) {}

  private:
    std::shared_ptr<HalvardSling::Transport> transport_;
};

/// A request that may go to a test server in cleartext, and that no time limit ends.
inline HalvardSling::TransportRequest requestTo(std::string url, std::string method = "GET") {
    HalvardSling::TransportRequest request;
    request.method = std::move(method);
    request.url = std::move(url);
    request.policy.allowsCleartext = true;
    request.policy.connectTimeout = request.policy.totalTimeout = std::chrono::hours(10);
    return request;
}

/// A request that may be sent, as a transport takes it.
inline HalvardSling::CheckedRequest checked(const HalvardSling::TransportRequest& request) {
    return std::get<HalvardSling::CheckedRequest>(HalvardSling::CheckedRequest::of(request));
}

inline std::shared_ptr<const std::string> bodyOf(std::string text) {
    return std::make_shared<const std::string>(std::move(text));
}

/// Sends a request by subscribing to its responses.
inline Responses sent(const HalvardSling::TransportRequest& request,
                      const std::shared_ptr<HalvardSling::Transport>& transport) {
    return {request, transport};
}

/// The one reply of a subscription that emitted one and completed.
inline std::optional<HalvardSling::Response> replyOf(const Responses& responses) {
    const auto values = responses.values();
    if (values.size() != 1 || !responses.completed()) return std::nullopt;
    return values.front();
}

inline std::optional<HalvardSling::SlingErrorKind> failureOf(const Responses& responses) {
    const auto error = responses.error<HalvardSling::SlingError>();
    return error && responses.values().empty() ? std::optional(error->kind()) : std::nullopt;
}

inline std::string headerOf(const HalvardSling::Response& response, std::string_view name) {
    return std::string(response.headers().value(name).value_or("(none)"));
}

// How GoogleTest shows one.
inline void PrintTo(const Responses& responses, std::ostream* out) {
    const auto error = responses.error<HalvardSling::SlingError>();
    *out << (error ? "a failed request"
                   : "a request with " + std::to_string(responses.values().size()) + " replies");
}

/// Matches a subscription that failed, with this kind of error and without a value.
MATCHER_P(FailsWith, kind, "fails with " + std::string(HalvardSling::name(kind))) {
    const auto failure = failureOf(arg);
    *result_listener << (failure ? HalvardSling::name(*failure)
                                 : std::string_view("it does not fail with a SlingError"));
    return failure == kind;
}

/// Matches a subscription that emitted one reply and completed.
MATCHER_P2(Answers, status, body, "") {
    const auto reply = replyOf(arg);
    if (!reply) {
        const auto error = arg.template error<HalvardSling::SlingError>();
        *result_listener << (error ? error->what() : "no single reply and no error");
        return false;
    }
    *result_listener << reply->status() << " with a body of " << reply->body().size() << " bytes";
    return reply->status() == status && reply->body() == body;
}

}  // namespace TestSupport
