#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>

#include "household/DelayProxy.hpp"
#include "household/DevelopmentService.hpp"
#include "http/Nginx.hpp"

namespace Bench {

/// The development service as an application meets a service in the world: over TLS and HTTP/2, a
/// long way off. nginx stands before it, and a `DelayProxy` before that.
class HomeService {
  public:
    explicit HomeService(std::chrono::nanoseconds roundTrip);

    /// Makes the configuration that leads here the current one, and a new transport the default
    /// one: what a fresh process begins with.
    void startApplication() const;

    /// The configuration's text.
    [[nodiscard]] const std::string& configuration() const noexcept { return configuration_; }
    [[nodiscard]] const std::string& origin() const noexcept { return origin_; }
    [[nodiscard]] std::string certificateFile() const { return nginx_.certificateFile(); }
    [[nodiscard]] DelayProxy& way() noexcept { return way_; }

  private:
    DevelopmentService service_;
    Nginx nginx_;
    DelayProxy way_;
    std::string origin_;
    std::string configuration_;
};

}  // namespace Bench
