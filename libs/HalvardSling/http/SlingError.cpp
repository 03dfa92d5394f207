#include <array>
#include <utility>

#include <HalvardSling/http/SlingError.hpp>
#include <internal/Table.hpp>

namespace HalvardSling {

namespace {

struct Wording {
    SlingErrorKind kind;
    std::string_view name;
    std::string_view advice;
};

using enum SlingErrorKind;

constexpr std::array<Wording, 15> wordings{{
    {httpStatus, "httpStatus",
     "look at the status: 401 and 403 ask for a new bind, 404 and 422 for other input, 429 and 5xx "
     "may be tried again later"},
    {cannotConnect, "cannotConnect", "try again"},
    {nameNotResolved, "nameNotResolved",
     "check that the device is online and the configuration's host is right, then try again"},
    {tls, "tls", "check the service's certificate, and the device's clock and trust store"},
    {connectTimeout, "connectTimeout", "try again"},
    {totalTimeout, "totalTimeout", "read the state before repeating a change"},
    {connectionLost, "connectionLost", "read the state before repeating a change"},
    {tooLarge, "tooLarge", "ask for less, or raise the cap in the configuration"},
    {malformedURL, "malformedURL",
     "correct the value that the error's text names, or the URL in the configuration"},
    {forbiddenHeader, "forbiddenHeader",
     "correct the service's headers in the configuration, or bind anew"},
    {malformedReply, "malformedReply", "check that the configuration's URL is the service's"},
    {redirect, "redirect", "allow redirects in the configuration if this one is wanted"},
    {cancelled, "cancelled", "send it again if it is still wanted"},
    {outOfMemory, "outOfMemory", "free memory, and read the state before repeating a change"},
    {malformedBody, "malformedBody", "correct the field that the error's text names"},
}};

static_assert(KestrinInternal::isInOrder(wordings, &Wording::kind));

/// E.g. "personalization-history-get (GET /v1/history, request 0af7…)".
std::string textOf(const RequestContext& context) {
    std::string request = context.method;
    if (!context.pathTemplate.empty()) request += ' ' + context.pathTemplate;
    if (!context.requestID.empty()) request += ", request " + context.requestID;
    return context.operation.empty() ? request : context.operation + " (" + request + ')';
}

}  // namespace

std::string_view name(SlingErrorKind kind) noexcept {
    return KestrinInternal::rowOf(wordings, kind).name;
}

std::string_view advice(SlingErrorKind kind) noexcept {
    return KestrinInternal::rowOf(wordings, kind).advice;
}

struct SlingError::Content {
    SlingErrorKind kind;
    std::string detail;
    std::string text = detail;
    std::optional<int> statusCode{};
    std::optional<ErrorReply> reply{};
    std::optional<ProblemDocument> problem{};
    std::optional<RequestContext> context{};
};

SlingError::SlingError(std::shared_ptr<const Content> content) : content_(std::move(content)) {}

SlingError::SlingError(SlingErrorKind kind, std::string detail)
    : content_(
          std::make_shared<const Content>(Content{.kind = kind, .detail = std::move(detail)})) {}

SlingError SlingError::httpStatus(int statusCode, std::string_view origin, ErrorReply reply,
                                  std::optional<ProblemDocument> problem) {
    if (reply.body.size() > ErrorReply::maxBodyBytes) reply.body.resize(ErrorReply::maxBodyBytes);
    return SlingError(std::make_shared<const Content>(
        Content{.kind = SlingErrorKind::httpStatus,
                .detail = "the service at " + std::string(origin) + " answered with status " +
                          std::to_string(statusCode),
                .statusCode = statusCode,
                .reply = std::move(reply),
                .problem = std::move(problem)}));
}

SlingError SlingError::with(RequestContext context) const {
    Content content = *content_;
    content.text = textOf(context) + ": " + content.detail;
    content.context = std::move(context);
    return SlingError(std::make_shared<const Content>(std::move(content)));
}

// Out of line: it keeps the class's type information in this library alone, so that a handler in
// another shared library recognises the type also with libc++ and hidden visibility.
SlingError::~SlingError() = default;

SlingErrorKind SlingError::kind() const noexcept {
    return content_->kind;
}

std::string_view SlingError::domain() noexcept {
    return "HalvardSling.SlingError";
}

std::string_view SlingError::advice() const noexcept {
    return HalvardSling::advice(kind());
}

const RequestContext* SlingError::context() const noexcept {
    const auto& context = content_->context;
    return context ? &*context : nullptr;
}

std::optional<int> SlingError::statusCode() const noexcept {
    return content_->statusCode;
}

const ErrorReply* SlingError::reply() const noexcept {
    const auto& reply = content_->reply;
    return reply ? &*reply : nullptr;
}

const ProblemDocument* SlingError::problem() const noexcept {
    const auto& problem = content_->problem;
    return problem ? &*problem : nullptr;
}

const char* SlingError::what() const noexcept {
    return content_->text.c_str();
}

}  // namespace HalvardSling
