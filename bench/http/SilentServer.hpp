#pragma once

#include <cstdint>
#include <string>

namespace Bench {

/// A service on the loopback interface that never answers. The system takes the connections and
/// what is sent over them by itself, so that nothing of it shows in the heap of this program.
class SilentServer {
  public:
    SilentServer();
    SilentServer(const SilentServer&) = delete;
    SilentServer(SilentServer&&) = delete;
    SilentServer& operator=(const SilentServer&) = delete;
    SilentServer& operator=(SilentServer&&) = delete;
    ~SilentServer();

    [[nodiscard]] std::string url(const std::string& path) const;

  private:
    int listener_;
    std::uint16_t port_ = 0;
};

}  // namespace Bench
