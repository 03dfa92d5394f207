#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include <HalvardSling/http/Response.hpp>

#include "../Session.hpp"

namespace KestrinProfileCLI {

/// Where the admin interface of a development service is, and what opens it.
struct AdminOptions {
    std::string url;            ///< --url; empty: that of the configuration
    std::string nameOfSpace;    ///< --namespace; empty: that of the URL
    std::string secretFile;     ///< --secret-file; empty: none
    bool isRootWanted = false;  ///< whether what is asked is of the service, not of a namespace
};

/// What is asked of the admin interface.
struct AdminRequest {
    std::string method = "GET";
    std::string target;                 ///< below /admin/v1/, e.g. "faults/3"
    std::optional<std::string> body{};  ///< JSON
    std::chrono::milliseconds patience = std::chrono::minutes(1);
};

/// The admin interface of a development service.
class AdminInterface {
  public:
    /// @throws CommandError if it is not known where it is, or the secret cannot be read
    AdminInterface(Session& session, const AdminOptions& options);

    /// @throws CommandError if it refuses, or does not answer; `OnlyShown` in a dry run
    [[nodiscard]] HalvardSling::Response send(const AdminRequest& request) const;

  private:
    Session& session_;
    std::string baseURL_;
    std::string secret_;  ///< empty: none
};

/// A text as one segment of a path, or one value of a query: with everything escaped but letters,
/// digits and "-._~" (RFC 3986, section 2.3).
[[nodiscard]] std::string percentEncoded(std::string_view text);

}  // namespace KestrinProfileCLI
