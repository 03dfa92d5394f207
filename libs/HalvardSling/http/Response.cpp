#include <HalvardSling/http/Response.hpp>

namespace HalvardSling {

Response::Response(ResponseParts parts)
    : parts_(std::make_shared<const ResponseParts>(std::move(parts))) {}

std::shared_ptr<const std::string> Response::sharedBody() const noexcept {
    return {parts_, &parts_->body};
}

}  // namespace HalvardSling
