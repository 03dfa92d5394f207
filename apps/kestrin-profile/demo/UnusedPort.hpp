#pragma once

#include <string>

namespace KestrinProfileCLI {

/// A port of this computer that nobody listens on and that nobody else can take while this lives:
/// whoever connects to it is refused at once.
class UnusedPort {
  public:
    /// @throws std::system_error where the system gives none
    UnusedPort();
    UnusedPort(const UnusedPort&) = delete;
    UnusedPort(UnusedPort&&) = delete;
    UnusedPort& operator=(const UnusedPort&) = delete;
    UnusedPort& operator=(UnusedPort&&) = delete;
    ~UnusedPort();

    /// E.g. "http://127.0.0.1:40123".
    [[nodiscard]] std::string origin() const;

  private:
    int socket_;
};

}  // namespace KestrinProfileCLI
