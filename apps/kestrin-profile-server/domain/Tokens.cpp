#include <cstdint>
#include <utility>

#include <boost/json.hpp>

#include <internal/Base64URL.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Secrets.hpp>
#include <kestrin-profile-server/domain/Tokens.hpp>

namespace KestrinProfileServer {
namespace {

namespace json = boost::json;

/// The only header that is issued; a token with any other one (other algorithms too) is refused.
constexpr std::string_view tokenHeader = R"({"alg":"HS256","typ":"JWT"})";

[[noreturn]] void refuse(const char* reason) {
    throw Problem(ProblemKind::tokenRefused, reason);
}

std::string payloadOf(const TokenClaims& claims, std::int64_t issued, std::int64_t expires) {
    return json::serialize(json::object{
        {"sub", claims.profileID}, {"hh", claims.household}, {"iat", issued}, {"exp", expires}});
}

}  // namespace

Tokens::Tokens(std::string key, std::chrono::seconds lifetime, Clock clock)
    : key_(std::move(key)), lifetime_(lifetime), clock_(std::move(clock)) {}

Token Tokens::issue(const TokenClaims& claims, std::chrono::seconds lifetime,
                    Milliseconds now) const {
    const std::int64_t issued = now / 1000;
    const std::int64_t expires = issued + lifetime.count();
    const std::string signedPart =
        KestrinInternal::base64URLEncoded(tokenHeader) + "." +
        KestrinInternal::base64URLEncoded(payloadOf(claims, issued, expires));
    return {signedPart + "." + signatureOf(signedPart), expires};
}

TokenClaims Tokens::verified(std::string_view token) const {
    static const std::string expectedStart = KestrinInternal::base64URLEncoded(tokenHeader) + ".";
    const std::size_t lastDot = token.rfind('.');
    if (!token.starts_with(expectedStart) || lastDot < expectedStart.size())
        refuse("the token is not one of this service");
    if (!equalInConstantTime(signatureOf(token.substr(0, lastDot)), token.substr(lastDot + 1)))
        refuse("the token's signature is wrong");
    const auto payload = token.substr(expectedStart.size(), lastDot - expectedStart.size());
    // NOLINTNEXTLINE(bugprone-unchecked-optional-access): what is signed was encoded here.
    const json::value claims = json::parse(*KestrinInternal::base64URLDecoded(payload));
    if (claims.at("exp").as_int64() <= now()) refuse(expiredTokenDetail);
    return TokenClaims{std::string(claims.at("sub").as_string()),
                       std::string(claims.at("hh").as_string())};
}

std::string Tokens::signatureOf(std::string_view signedPart) const {
    return KestrinInternal::base64URLEncoded(hmacSHA256(key_, signedPart));
}

}  // namespace KestrinProfileServer
