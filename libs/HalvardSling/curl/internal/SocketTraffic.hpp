#pragma once

#include <cstdint>
#include <optional>

namespace HalvardSling::internal {

/// What the system tells of a TCP socket. This is the one place that differs between systems: where
/// one tells nothing (all but Linux), floods go unnoticed.
struct SocketTraffic {
    std::uint64_t identity = 0;  ///< of the socket; no other one of this system ever has it
    std::uint64_t read = 0;      ///< bytes that were received, and taken by the process
    std::uint64_t sent = 0;      ///< bytes that were sent, and have arrived

    /// Absent if the descriptor is not one of a TCP socket.
    [[nodiscard]] static std::optional<SocketTraffic> of(int descriptor) noexcept;
};

/// Ends a TCP connection at once, from any thread: reading from it fails, also what has arrived.
/// The descriptor remains.
void abortConnection(int descriptor) noexcept;

}  // namespace HalvardSling::internal
