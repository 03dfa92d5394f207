#pragma once

#include <memory>
#include <string>
#include <utility>
#include <variant>

#include <HalvardSling/Export.hpp>
#include <HalvardSling/http/Headers.hpp>
#include <HalvardSling/http/RequestPolicy.hpp>
#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/http/URL.hpp>

namespace HalvardSling {

/// One HTTP request, complete.
struct HALVARD_SLING_EXPORT TransportRequest {
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
class HALVARD_SLING_EXPORT CheckedRequest {
  public:
    /// Checks a request: its URL (see `URL`), whether cleartext is allowed if it is http, its
    /// method, which must be a token, and its headers (see `Headers::isValidName` and
    /// `isValidValue`).
    /// @return why it may not be sent if that is so: `malformedURL` or `forbiddenHeader`
    [[nodiscard]] static std::variant<CheckedRequest, SlingError> of(TransportRequest request);

    /// The request. Its `url` is the text of `url()`.
    [[nodiscard]] const TransportRequest& operator*() const noexcept { return content_->request; }
    [[nodiscard]] const TransportRequest* operator->() const noexcept { return &content_->request; }

    [[nodiscard]] const URL& url() const noexcept { return content_->url; }

  private:
    struct Content {
        TransportRequest request;
        URL url;
    };
    explicit CheckedRequest(Content content)
        : content_(std::make_shared<const Content>(std::move(content))) {}

    std::shared_ptr<const Content> content_;
};

}  // namespace HalvardSling
