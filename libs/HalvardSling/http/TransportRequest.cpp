#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include <HalvardSling/http/TransportRequest.hpp>
#include <HalvardSling/http/URL.hpp>

namespace HalvardSling {

bool TransportRequest::isIdempotent() const noexcept {
    static constexpr std::array<std::string_view, 6> idempotent{"GET",    "HEAD",    "PUT",
                                                                "DELETE", "OPTIONS", "TRACE"};
    return std::ranges::find(idempotent, method) != idempotent.end();
}

std::variant<CheckedRequest, SlingError> CheckedRequest::of(TransportRequest request) {
    if (auto problem = problemOfRequest(request)) return *std::move(problem);
    return CheckedRequest(std::make_shared<const TransportRequest>(std::move(request)));
}

}  // namespace HalvardSling
