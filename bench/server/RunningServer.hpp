#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "support/Program.hpp"

namespace Bench {

/// kestrin-profile-server as a process of its own with a new database, and the requests of its
/// parent profile. It ends with this object, and with the program however that ends.
class RunningServer {
  public:
    /// @param database  a file that does not exist yet; it stays
    /// @param options  further ones of the command line
    explicit RunningServer(const std::filesystem::path& database,
                           std::vector<std::string> options = {});

    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }

    /// Sends a request with a body in JSON to the admin interface.
    void administer(std::string_view line, std::string_view body) const;

    /// The whole request that needs neither the database nor a token.
    [[nodiscard]] std::string healthRequest() const;

    /// The whole request that reads the parent's history.
    [[nodiscard]] std::string readRequest() const;

    /// The whole request that records how far a video was watched.
    [[nodiscard]] std::string writeRequest(std::string_view videoID) const;

  private:
    [[nodiscard]] std::string authorised() const;
    [[nodiscard]] std::string boundToken(std::string_view secret) const;

    TestSupport::TemporaryDirectory directory_;
    TestSupport::Program program_;
    std::uint16_t port_;
    std::string token_;
};

/// Runs the server once, so that its database is there.
void makeDatabase(const std::filesystem::path& database);

}  // namespace Bench
