#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <HalvardSling/Export.hpp>
#include <HalvardSling/http/Headers.hpp>
#include <HalvardSling/http/RequestPolicy.hpp>
#include <HalvardSling/http/TransportRequest.hpp>

namespace HalvardSling {

/// How long the stages of a transfer took, each counted from its start. A stage that did not take
/// place (a connection that was reused, no TLS) is zero.
struct Timings {
    std::chrono::microseconds nameLookup{0};    ///< until the host's name was resolved
    std::chrono::microseconds connect{0};       ///< until the connection was there
    std::chrono::microseconds tlsHandshake{0};  ///< until TLS was agreed on
    std::chrono::microseconds firstByte{0};     ///< until the first byte of the reply came
    std::chrono::microseconds total{0};         ///< until the last one came
};

/// What a reply consists of; the input of `Response`.
struct ResponseParts {
    int status = 0;            ///< the status code, e.g. 200
    Headers headers;           ///< the header fields of the final reply
    std::string body;          ///< the body, after content decoding (gzip)
    std::string effectiveURL;  ///< the URL that was answered, after redirects
    Timings timings;           ///< how long its stages took
};

/// The reply to one request. An immutable value: copies share one body and may be read from any
/// number of threads.
class HALVARD_SLING_EXPORT Response {
  public:
    /// A reply made of its parts, by a transport or a test.
    explicit Response(ResponseParts parts);

    /// The same reply, to this request.
    [[nodiscard]] Response to(CheckedRequest request) &&;

    /// The status code, e.g. 200.
    [[nodiscard]] int status() const noexcept { return parts_->status; }
    /// The header fields of the final reply.
    [[nodiscard]] const Headers& headers() const noexcept { return parts_->headers; }
    /// The body, after content decoding; lives as long as any copy of this reply.
    [[nodiscard]] std::string_view body() const noexcept { return parts_->body; }
    /// The URL that was answered, after redirects.
    [[nodiscard]] const std::string& effectiveURL() const noexcept { return parts_->effectiveURL; }
    /// How long the stages of the transfer took.
    [[nodiscard]] const Timings& timings() const noexcept { return parts_->timings; }

    /// The request, for an error's text; absent if the reply did not come through a `Sling`.
    [[nodiscard]] std::optional<RequestContext> context() const;

    /// The limits of the request; the default ones if the reply did not come through a `Sling`.
    [[nodiscard]] RequestPolicy policy() const;

    /// The body as a shared text, for a reader that keeps views into it without a copy.
    [[nodiscard]] std::shared_ptr<const std::string> sharedBody() const noexcept;

  private:
    std::shared_ptr<const ResponseParts> parts_;
    std::optional<CheckedRequest> request_;
};

}  // namespace HalvardSling
