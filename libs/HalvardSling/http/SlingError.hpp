#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <HalvardSling/Export.hpp>
#include <HalvardSling/http/Headers.hpp>

namespace HalvardSling {

/// Why a request failed. The position is the error's code.
enum class SlingErrorKind {
    /// The service answered with a status of 400 or above. Look at `statusCode()`: 401 and 403 ask
    /// for a new bind, 404 and 422 for other input, 429 and 5xx may be tried again later.
    httpStatus,
    /// No connection to the host could be made. Nothing was sent; it may be tried again.
    cannotConnect,
    /// The host's name could not be resolved: the device is offline, or the configuration names a
    /// wrong host. Nothing was sent; it may be tried again.
    nameNotResolved,
    /// The TLS handshake or the check of the peer's certificate failed. Do not try again blindly:
    /// somebody may be in between, or the device's clock or trust store is wrong.
    tls,
    /// Connecting took longer than the request's connect timeout. Nothing was sent; it may be tried
    /// again.
    connectTimeout,
    /// The whole request took longer than its total timeout. It may have taken effect: read the
    /// state before repeating a change.
    totalTimeout,
    /// The connection was lost after the request had begun and before the reply was whole. It may
    /// have taken effect: read the state before repeating a change.
    connectionLost,
    /// The reply's headers or its decoded body exceed the request's caps, or the body holds so many
    /// values that they would take more memory than its cap allows. Ask for less, or raise the cap
    /// in the configuration.
    tooLarge,
    /// The URL is not one that may be sent (see `URL`), or cleartext is not allowed for its host.
    /// Correct the value that the error's text names, or the URL in the configuration; nothing was
    /// sent.
    malformedURL,
    /// A header's name or value holds a character that no header may carry. Nothing was sent; the
    /// value is never shown.
    forbiddenHeader,
    /// The reply is not what was agreed: broken HTTP or content coding, not JSON, or JSON whose
    /// top is not an object. A fault of the service, or of something between.
    malformedReply,
    /// More redirects than the service allows, or one to a place that may not be followed.
    redirect,
    /// The transport was shut down while the request was on its way.
    cancelled,
    /// The process has no memory left for the transfer. It may have taken effect: free memory, and
    /// read the state before repeating a change.
    outOfMemory,
    /// A text in the request's body is not UTF-8. Nothing was sent; correct the field that the
    /// error's text names. The value is never shown.
    malformedBody,
};

/// The name of a kind, e.g. "connectTimeout".
[[nodiscard]] HALVARD_SLING_EXPORT std::string_view name(SlingErrorKind kind) noexcept;

/// What the caller should do about an error of a kind, in one sentence without its full stop, e.g.
/// "try again".
[[nodiscard]] HALVARD_SLING_EXPORT std::string_view advice(SlingErrorKind kind) noexcept;

/// What the service sent with an error status, for diagnosis; bounded.
struct ErrorReply {
    /// At most this much of the body is kept.
    static constexpr std::size_t maxBodyBytes = std::size_t{64} * 1024;

    Headers headers;   ///< the header fields
    std::string body;  ///< cut to `maxBodyBytes`
};

/// The request that an error is about.
struct RequestContext {
    std::string operation;     ///< e.g. "personalization-history-get"; empty: it has no name
    std::string method;        ///< e.g. "GET"
    std::string pathTemplate;  ///< the path with its placeholders; empty: unknown
    std::string requestID;     ///< what the header "X-Request-ID" says; empty: nothing was sent
};

/// What a service says about an error (RFC 9457). A member that it does not say, or not in the form
/// that it must have, is as here.
struct ProblemDocument {
    std::string type = "about:blank";    ///< names the kind of problem
    std::string title;                   ///< the kind in words
    std::string detail;                  ///< what is wrong this time
    std::optional<std::int64_t> status;  ///< the status as the document has it
    std::string instance;                ///< names this one problem
};

/// The error of the networking library. It arrives through the observable and is never thrown to
/// the caller of a method. Copies are cheap and share what they hold. Its text names the
/// operation, the method, the path template and the request's identifier, so that many errors can
/// be told apart; it never holds another header's value, a body, or a URL's path or query.
class HALVARD_SLING_EXCEPTION SlingError final : public std::exception {
  public:
    /// @param kind    why the request failed
    /// @param detail  one sentence for people: what, where, what to do; no secrets
    SlingError(SlingErrorKind kind, std::string detail);

    /// An error status.
    /// @param statusCode  400 or above
    /// @param origin      scheme, host and port of the service, for the text
    /// @param reply       what the service sent; cut to `ErrorReply::maxBodyBytes`
    /// @param problem     the problem document in it, if there is one
    [[nodiscard]] static SlingError httpStatus(int statusCode, std::string_view origin,
                                               ErrorReply reply,
                                               std::optional<ProblemDocument> problem = {});

    /// The same error, about this request: its text then begins with it.
    [[nodiscard]] SlingError with(RequestContext context) const;

    SlingError(const SlingError&) = default;
    SlingError(SlingError&&) = default;
    SlingError& operator=(const SlingError&) = default;
    SlingError& operator=(SlingError&&) = default;
    ~SlingError() override;

    /// Why the request failed, for a `switch`.
    [[nodiscard]] SlingErrorKind kind() const noexcept;

    /// "HalvardSling.SlingError".
    [[nodiscard]] static std::string_view domain() noexcept;

    /// The position of the kind.
    [[nodiscard]] int code() const noexcept { return static_cast<int>(kind()); }

    /// What the caller should do, see `HalvardSling::advice`.
    [[nodiscard]] std::string_view advice() const noexcept;

    /// The request that failed; null if the error did not come from one.
    [[nodiscard]] const RequestContext* context() const noexcept;

    /// The reply's status; absent unless `kind()` is `httpStatus`.
    [[nodiscard]] std::optional<int> statusCode() const noexcept;

    /// What came with the error status; null unless `kind()` is `httpStatus`.
    [[nodiscard]] const ErrorReply* reply() const noexcept;

    /// The problem document that came with the error status; null if there is none: the reply's
    /// Content-Type is not application/problem+json, or its body is not a JSON object.
    [[nodiscard]] const ProblemDocument* problem() const noexcept;

    /// The request, what was wrong with it, and what to do, for people.
    [[nodiscard]] const char* what() const noexcept override;

  private:
    struct Content;
    explicit SlingError(std::shared_ptr<const Content> content);

    std::shared_ptr<const Content> content_;
};

}  // namespace HalvardSling
