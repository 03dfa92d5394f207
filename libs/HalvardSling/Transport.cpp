#include <HalvardSling/Transport.hpp>

#include <algorithm>
#include <array>

namespace HalvardSling {

Transport::~Transport() = default;

bool TransportRequest::isIdempotent() const noexcept {
    static constexpr std::array<std::string_view, 6> idempotent{"GET",    "HEAD",    "PUT",
                                                                "DELETE", "OPTIONS", "TRACE"};
    return std::ranges::find(idempotent, method) != idempotent.end();
}

}  // namespace HalvardSling
