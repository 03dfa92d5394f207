#pragma once

#include <cstdint>

namespace TestSupport {

/// A port of the loopback interface that was free a moment ago.
[[nodiscard]] std::uint16_t freePort();

/// Whether somebody takes connections at a port of the loopback interface.
[[nodiscard]] bool isListening(std::uint16_t port);

/// Waits until somebody takes connections at a port of the loopback interface.
/// @return whether somebody does
[[nodiscard]] bool waitUntilListening(std::uint16_t port);

}  // namespace TestSupport
