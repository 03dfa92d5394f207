#include <utility>

#include <HalvardSling/http/Response.hpp>

namespace HalvardSling {

Response::Response(ResponseParts parts)
    : parts_(std::make_shared<const ResponseParts>(std::move(parts))) {}

Response Response::to(CheckedRequest request) && {
    request_ = std::move(request);
    return std::move(*this);
}

std::optional<RequestContext> Response::context() const {
    return request_ ? std::optional(request_->context()) : std::nullopt;
}

RequestPolicy Response::policy() const {
    return request_ ? (*request_)->policy : RequestPolicy();
}

std::shared_ptr<const std::string> Response::sharedBody() const noexcept {
    return {parts_, &parts_->body};
}

}  // namespace HalvardSling
