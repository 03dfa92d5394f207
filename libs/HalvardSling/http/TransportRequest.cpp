#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <HalvardSling/http/TransportRequest.hpp>

namespace HalvardSling {

namespace {

std::optional<SlingError> forbidden(std::string text) {
    return SlingError(SlingErrorKind::forbiddenHeader, std::move(text));
}

std::optional<SlingError> validate(const Headers& headers) {
    for (const auto& [name, value] : headers) {
        if (!Headers::isValidName(name))
            return forbidden("a header's name holds a character that no name may hold");
        if (!Headers::isValidValue(value))
            return forbidden("the value of the header " + std::string(name) +
                             " holds a character that no value may hold");
    }
    return std::nullopt;
}

std::optional<SlingError> validate(const TransportRequest& request, const Origin& origin) {
    if (!request.policy.allows(origin))
        return SlingError(SlingErrorKind::malformedURL,
                          "the URL of a request to " + origin.text() +
                              " is not https, and cleartext is not allowed for it");
    if (!Headers::isValidName(request.method))
        return forbidden("a request's method holds a character that no method may hold");
    return validate(request.headers);
}

}  // namespace

bool TransportRequest::isSafe() const noexcept {
    static constexpr std::array<std::string_view, 4> safe{"GET", "HEAD", "OPTIONS", "TRACE"};
    return std::ranges::find(safe, method) != safe.end();
}

RequestContext TransportRequest::context(std::string_view requestID) const {
    return {.operation = operation,
            .method = method,
            .pathTemplate = pathTemplate,
            .requestID = std::string(requestID)};
}

std::variant<CheckedRequest, SlingError> CheckedRequest::of(TransportRequest request,
                                                            RequestID id) {
    auto url = URL::parse(request.url);
    if (const auto* const error = std::get_if<SlingError>(&url))
        return error->with(request.context());
    auto& parsed = std::get<URL>(url);
    if (const auto error = validate(request, parsed.origin()))
        return error->with(request.context());
    request.url = parsed.text();
    return CheckedRequest(
        std::make_shared<const Content>(Content{std::move(request), std::move(parsed)}), id);
}

CheckedRequest CheckedRequest::with(RequestID id) const {
    return {content_, id};
}

std::string_view CheckedRequest::requestID() const {
    return content_->request.headers.value(requestIDHeader).value_or(id_.text());
}

}  // namespace HalvardSling
