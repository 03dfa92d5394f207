#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include <kestrin-profile-server/domain/Timestamp.hpp>

namespace KestrinProfileServer {

/// Whom a token speaks for.
struct TokenClaims {
    std::string profileID;
    std::string household;
};

/// Issues and checks JSON web tokens signed with HMAC-SHA-256.
class Tokens {
  public:
    Tokens(std::string key, std::chrono::seconds lifetime, Clock clock);

    [[nodiscard]] std::string issue(const TokenClaims& claims) const;

    /// The claims of a token that this service signed and that has not expired; throws the
    /// problem otherwise.
    [[nodiscard]] TokenClaims verified(std::string_view token) const;

  private:
    [[nodiscard]] std::string signatureOf(std::string_view signedPart) const;
    [[nodiscard]] std::int64_t now() const { return clock_() / 1000; }

    std::string key_;
    std::chrono::seconds lifetime_;
    Clock clock_;
};

}  // namespace KestrinProfileServer
