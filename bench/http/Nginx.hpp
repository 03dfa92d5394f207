#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "support/Certificates.hpp"
#include "support/Program.hpp"

namespace Bench {

/// nginx as one process on the loopback interface: the fast, steady service that the clients are
/// measured against. It ends with this object, and with the program however that ends.
///
/// It has a core for itself; the calling thread, and all threads that it starts later, have the
/// others. So nothing depends on where the kernel puts them, and the service is apart, as in life.
///
/// It serves the history of one entry under /v1/history and one of 1 MB under /v1/large, in clear
/// text with HTTP/1.1, and over TLS with HTTP/2.
class Nginx {
  public:
    /// @param locations  what else it serves, as nginx's settings say it
    explicit Nginx(std::string locations = {});

    /// "http://127.0.0.1:port" and the path.
    [[nodiscard]] std::string url(const std::string& path) const;
    /// "https://localhost:port" and the path.
    [[nodiscard]] std::string secureURL(const std::string& path) const;
    [[nodiscard]] std::uint16_t securePort() const noexcept { return securePort_; }
    /// Who trusts this file trusts the service.
    [[nodiscard]] std::string certificateFile() const { return certificate_.certificateFile(); }

  private:
    void writeFiles() const;
    [[nodiscard]] bool start(std::optional<int> core);

    std::string locations_;
    TestSupport::Certificate certificate_;
    TestSupport::TemporaryDirectory directory_;
    std::uint16_t port_ = 0;
    std::uint16_t securePort_ = 0;
    std::unique_ptr<TestSupport::Program> program_;
};

/// The length of the history under /v1/large.
inline constexpr std::size_t largeBytes = 1'000'000;

}  // namespace Bench
