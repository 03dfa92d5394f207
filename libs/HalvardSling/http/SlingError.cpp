#include <array>
#include <utility>

#include <HalvardSling/http/SlingError.hpp>

namespace HalvardSling {

namespace {

constexpr std::array<std::pair<SlingErrorKind, std::string_view>, 13> names{{
    {SlingErrorKind::httpStatus, "httpStatus"},
    {SlingErrorKind::cannotConnect, "cannotConnect"},
    {SlingErrorKind::nameNotResolved, "nameNotResolved"},
    {SlingErrorKind::tls, "tls"},
    {SlingErrorKind::connectTimeout, "connectTimeout"},
    {SlingErrorKind::totalTimeout, "totalTimeout"},
    {SlingErrorKind::connectionLost, "connectionLost"},
    {SlingErrorKind::tooLarge, "tooLarge"},
    {SlingErrorKind::malformedURL, "malformedURL"},
    {SlingErrorKind::forbiddenHeader, "forbiddenHeader"},
    {SlingErrorKind::malformedReply, "malformedReply"},
    {SlingErrorKind::redirect, "redirect"},
    {SlingErrorKind::cancelled, "cancelled"},
}};

}  // namespace

std::string_view name(SlingErrorKind kind) noexcept {
    for (const auto& [each, text] : names)
        if (each == kind) return text;
    return "unknown";
}

struct SlingError::Content {
    SlingErrorKind kind;
    std::string text;
    std::optional<int> statusCode;
    std::optional<ErrorReply> reply;
};

SlingError::SlingError(std::shared_ptr<const Content> content) : content_(std::move(content)) {}

SlingError::SlingError(SlingErrorKind kind, std::string detail)
    : content_(std::make_shared<const Content>(
          Content{kind, std::move(detail), std::nullopt, std::nullopt})) {}

SlingError SlingError::httpStatus(int statusCode, std::string_view origin, ErrorReply reply) {
    if (reply.body.size() > ErrorReply::maxBodyBytes) reply.body.resize(ErrorReply::maxBodyBytes);
    std::string text = "the service at " + std::string(origin) + " answered with status " +
                       std::to_string(statusCode);
    return SlingError(std::make_shared<const Content>(
        Content{SlingErrorKind::httpStatus, std::move(text), statusCode, std::move(reply)}));
}

// Out of line: it keeps the class's type information in this library alone, so that a handler in
// another shared library recognises the type also with libc++ and hidden visibility.
SlingError::~SlingError() = default;

SlingErrorKind SlingError::kind() const noexcept {
    return content_->kind;
}

std::optional<int> SlingError::statusCode() const noexcept {
    return content_->statusCode;
}

const ErrorReply* SlingError::reply() const noexcept {
    const auto& reply = content_->reply;
    return reply ? &*reply : nullptr;
}

const char* SlingError::what() const noexcept {
    return content_->text.c_str();
}

}  // namespace HalvardSling
