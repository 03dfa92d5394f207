#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace Bench {

/// Stands before a service on the loopback interface as a long way would: what either side sends
/// arrives half a round trip later. The client's first bytes wait for one round trip more, as they
/// would for the handshake of TCP, which ends here at once.
class DelayProxy {
  public:
    /// What has come.
    struct Traffic {
        std::size_t connections = 0;
        std::string sent;      ///< the clients' bytes
        std::string received;  ///< the service's bytes
    };

    /// @param service    the service's port
    /// @param roundTrip  may be 0
    DelayProxy(std::uint16_t service, std::chrono::nanoseconds roundTrip);
    DelayProxy(const DelayProxy&) = delete;
    DelayProxy(DelayProxy&&) = delete;
    DelayProxy& operator=(const DelayProxy&) = delete;
    DelayProxy& operator=(DelayProxy&&) = delete;
    ~DelayProxy();

    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }

    /// What has come since the last call.
    [[nodiscard]] Traffic take();

  private:
    class Loop;

    std::uint16_t service_;
    std::chrono::nanoseconds roundTrip_;
    int listener_ = -1;
    int wake_ = -1;
    std::uint16_t port_ = 0;
    std::mutex mutex_;
    Traffic traffic_;
    std::thread thread_;
};

}  // namespace Bench
