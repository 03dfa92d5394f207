#pragma once

#include <string>

#include "support/Program.hpp"

namespace Bench {

/// The development service as a process of its own with a new database. It ends with this object,
/// and with the program however that ends.
class DevelopmentService {
  public:
    /// @throws std::runtime_error if it does not start
    DevelopmentService();

    /// "http://127.0.0.1:port".
    [[nodiscard]] const std::string& origin() const noexcept { return origin_; }

    /// The text of the configuration that leads to it.
    [[nodiscard]] const std::string& configuration() const noexcept { return configuration_; }

  private:
    TestSupport::TemporaryDirectory directory_;
    TestSupport::Program service_;
    std::string origin_;
    std::string configuration_;
};

/// Makes a configuration the current one.
/// @throws std::runtime_error if it is refused
void configure(const std::string& configuration);

}  // namespace Bench
