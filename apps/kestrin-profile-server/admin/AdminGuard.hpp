#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <kestrin-profile-server/admin/AdminRoutes.hpp>
#include <kestrin-profile-server/http/Request.hpp>

namespace KestrinProfileServer {

/// Who may use the admin interface. With a secret: who has it. Without one, when only this computer
/// reaches the service: programs, and our own page. The pages of others, which a browser shows on
/// this computer, are kept out: a name of theirs that leads here (DNS rebinding) by the Host, and
/// their requests by what the browser says of where they come from.
class AdminGuard {
  public:
    /// @param baseURL  where the service listens, like http://127.0.0.1:8480
    AdminGuard(std::optional<std::string> secret, const std::string& baseURL);

    /// Throws the problem of a request that is not allowed.
    void check(const Request& request, AdminAccess access) const;

  private:
    static void checkSecret(const Request& request, std::string_view secret);
    void checkPlace(const Request& request, AdminAccess access) const;
    [[nodiscard]] bool isOwnHost(std::string_view host) const;

    std::optional<std::string> secret_;
    std::string scheme_;  ///< with its colon and slashes
    std::string port_;
};

}  // namespace KestrinProfileServer
