#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include <HalvardSling/Export.hpp>
#include <HalvardSling/http/Headers.hpp>
#include <HalvardSling/http/RequestID.hpp>
#include <HalvardSling/http/RequestPolicy.hpp>
#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/http/URL.hpp>

namespace HalvardSling {

/// One HTTP request, complete.
struct HALVARD_SLING_EXPORT TransportRequest {
    std::string method = "GET";               ///< a token (RFC 9110, section 9.1)
    std::string url;                          ///< absolute
    Headers headers;                          ///< those of the request's own
    std::shared_ptr<const std::string> body;  ///< null: the request has no body

    RequestPolicy policy;  ///< its limits
    /// Whether a "User-Agent" header is sent where `headers` has none.
    bool sendsUserAgent = true;

    /// The name of what the request does, e.g. "personalization-history-get", for errors; may be
    /// empty.
    std::string operation;
    /// The path with its placeholders, e.g. "/v1/history": what a log or an error may show of the
    /// URL; may be empty.
    std::string pathTemplate;

    /// Whether the method only reads (RFC 9110, section 9.2.1). A transport never sends any other
    /// request again by itself.
    [[nodiscard]] bool isSafe() const noexcept;

    /// What an error says of the request.
    /// @param requestID  see `CheckedRequest::requestID`; empty: it was not sent
    [[nodiscard]] RequestContext context(std::string_view requestID = {}) const;
};

/// The name of the header that carries a request's identifier to the service.
inline constexpr std::string_view requestIDHeader = "X-Request-ID";

/// A request that may be sent, for there is no other way to make one: what a transport is given.
/// An immutable value; copies share one request and may be read from any number of threads. Each
/// has an identifier, under which the service's log and the client's errors can be brought
/// together.
class HALVARD_SLING_EXPORT CheckedRequest {
  public:
    /// Checks a request: its URL (see `URL`), whether cleartext is allowed if it is http, its
    /// method, which must be a token, and its headers (see `Headers::isValidName` and
    /// `isValidValue`).
    /// @param request  what would be sent
    /// @param id       see `requestID`
    /// @return why it may not be sent if that is so: `malformedURL` or `forbiddenHeader`
    [[nodiscard]] static std::variant<CheckedRequest, SlingError> of(
        TransportRequest request, RequestID id = RequestID::random());

    /// The same request under another identifier: sent once more it is something else to a log.
    [[nodiscard]] CheckedRequest with(RequestID id) const;

    /// The request. Its `url` is the text of `url()`.
    [[nodiscard]] const TransportRequest& operator*() const noexcept { return content_->request; }
    /// A member of the request.
    [[nodiscard]] const TransportRequest* operator->() const noexcept { return &content_->request; }

    /// Where it goes.
    [[nodiscard]] const URL& url() const noexcept { return content_->url; }

    /// The identifier. A transport sends it in `requestIDHeader` unless the request's own headers
    /// have one; then that is the identifier. It stays over redirects.
    [[nodiscard]] std::string_view requestID() const;

    /// The identifier that was given to `of` or `with`.
    [[nodiscard]] const RequestID& id() const noexcept { return id_; }

    /// What an error says of the request, its identifier included.
    [[nodiscard]] RequestContext context() const { return content_->request.context(requestID()); }

  private:
    struct Content {
        TransportRequest request;
        URL url;
    };
    CheckedRequest(std::shared_ptr<const Content> content, RequestID id) noexcept
        : content_(std::move(content)), id_(id) {}

    std::shared_ptr<const Content> content_;
    RequestID id_;
};

}  // namespace HalvardSling
