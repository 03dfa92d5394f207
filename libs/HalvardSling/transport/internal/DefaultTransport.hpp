#pragma once

#include <memory>

#include <HalvardSling/transport/Transport.hpp>

namespace HalvardSling::internal {

/// A new transport of the kind that `defaultTransport` uses in this build of the library.
/// @throws as the constructor of that transport
[[nodiscard]] std::shared_ptr<Transport> makeDefaultTransport();

}  // namespace HalvardSling::internal
