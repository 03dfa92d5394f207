#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include <kestrin-profile-server/domain/Timestamp.hpp>

namespace KestrinProfileServer {

/// Whom a token speaks for.
struct TokenClaims {
    std::string profileID;
    std::string household;
};

struct Token {
    std::string text;
    /// In seconds since 1970.
    std::int64_t expires = 0;
};

/// What a client is told of a token whose time is over.
constexpr const char* expiredTokenDetail = "the token has expired; bind again";

/// Issues and checks JSON web tokens signed with HMAC-SHA-256.
class Tokens {
  public:
    Tokens(std::string key, std::chrono::seconds lifetime, Clock clock);

    [[nodiscard]] std::string issue(const TokenClaims& claims) const {
        return issue(claims, lifetime_).text;
    }
    /// @param lifetime  negative for one that has expired already
    [[nodiscard]] Token issue(const TokenClaims& claims, std::chrono::seconds lifetime) const {
        return issue(claims, lifetime, clock_());
    }
    /// @param now  the time at which it begins to be valid
    [[nodiscard]] Token issue(const TokenClaims& claims, std::chrono::seconds lifetime,
                              Milliseconds now) const;

    [[nodiscard]] std::chrono::seconds lifetime() const { return lifetime_; }

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
