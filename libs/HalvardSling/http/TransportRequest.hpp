#pragma once

#include <memory>
#include <string>
#include <utility>
#include <variant>

#include <HalvardSling/http/Headers.hpp>
#include <HalvardSling/http/RequestPolicy.hpp>
#include <HalvardSling/http/SlingError.hpp>

namespace HalvardSling {

/// One HTTP request, complete.
struct TransportRequest {
    std::string method = "GET";
    std::string url;  ///< absolute
    Headers headers;
    std::shared_ptr<const std::string> body;  ///< null: the request has no body

    RequestPolicy policy;
    /// Whether a "User-Agent" header is sent where `headers` has none.
    bool sendsUserAgent = true;

    /// The path with its placeholders, e.g. "/v1/history": what a log may show of the URL.
    std::string pathTemplate;

    /// Whether the method may reach the service more than once without a different effect
    /// (RFC 9110, section 9.2.2). A request of which this is false is never sent again by itself.
    [[nodiscard]] bool isIdempotent() const noexcept;
};

/// A request that may be sent, for there is no other way to make one: what a transport is given.
/// An immutable value; copies share one request and may be read from any number of threads.
class CheckedRequest {
  public:
    /// Checks a request.
    /// @return why it may not be sent where that is so: its URL, its method or a header, see
    ///         `problemOfRequest`
    [[nodiscard]] static std::variant<CheckedRequest, SlingError> of(TransportRequest request);

    [[nodiscard]] const TransportRequest& operator*() const noexcept { return *request_; }
    [[nodiscard]] const TransportRequest* operator->() const noexcept { return request_.get(); }

  private:
    explicit CheckedRequest(std::shared_ptr<const TransportRequest> request) noexcept
        : request_(std::move(request)) {}

    std::shared_ptr<const TransportRequest> request_;
};

}  // namespace HalvardSling
