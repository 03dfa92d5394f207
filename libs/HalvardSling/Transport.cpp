#include <algorithm>
#include <array>

#include <HalvardSling/Transport.hpp>

namespace HalvardSling {

Transport::~Transport() = default;

bool TransportRequest::isIdempotent() const noexcept {
    static constexpr std::array<std::string_view, 6> idempotent{"GET",    "HEAD",    "PUT",
                                                                "DELETE", "OPTIONS", "TRACE"};
    return std::ranges::find(idempotent, method) != idempotent.end();
}

}  // namespace HalvardSling
