#include <utility>

#include <HalvardSling/transport/Transport.hpp>

namespace HalvardSling {

namespace {

thread_local bool isWithinTransport = false;

}  // namespace

Transport::~Transport() = default;

void Transport::abandon() noexcept {}

bool isTransportThread() noexcept {
    return isWithinTransport;
}

TransportThreadScope::TransportThreadScope() noexcept
    : former_(std::exchange(isWithinTransport, true)) {}

TransportThreadScope::~TransportThreadScope() {
    isWithinTransport = former_;
}

}  // namespace HalvardSling
