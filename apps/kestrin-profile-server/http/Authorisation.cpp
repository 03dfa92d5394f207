#include <internal/ASCII.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/Authorisation.hpp>
#include <kestrin-profile-server/http/Routes.hpp>

namespace KestrinProfileServer {
namespace {

constexpr std::string_view profileHeader = "PXRO-PROFILE-ID";
constexpr std::string_view tokenScheme = "JWT ";

Problem secretRequired(const std::string& detail) {
    return {ProblemKind::secretRequired, detail, {{"WWW-Authenticate", "HouseholdSecret"}}};
}

Problem tokenRequired(const std::string& detail) {
    return {ProblemKind::tokenRequired, detail, {{"WWW-Authenticate", "JWT"}}};
}

std::string secretOf(const Request& request) {
    const auto secret = headerOf(request, secretHeader);
    if (!secret || secret->empty())
        throw secretRequired("the request has no X-Household-Secret header; a bind needs it");
    return std::string(*secret);
}

std::string_view tokenOf(const Request& request) {
    const auto value = headerOf(request, "Authorization");
    if (!value || value->empty())
        throw tokenRequired("the request has no Authorization header; expected is 'JWT <token>'");
    if (!KestrinInternal::equalsIgnoringCase(value->substr(0, tokenScheme.size()), tokenScheme)) {
        throw tokenRequired(
            "the Authorization header has another scheme; expected is"
            " 'JWT <token>'");
    }
    return value->substr(tokenScheme.size());
}

TokenClaims claimsOf(const Request& request, const Tokens& tokens) {
    TokenClaims claims = tokens.verified(tokenOf(request));
    const auto profileID = headerOf(request, profileHeader);
    if (!profileID) {
        throw Problem(ProblemKind::missingHeader,
                      "the request has no PXRO-PROFILE-ID header; expected is the calling profile's"
                      " identifier");
    }
    if (*profileID != claims.profileID) {
        throw Problem(ProblemKind::tokenRefused,
                      "the token was issued for another profile than the PXRO-PROFILE-ID header"
                      " names");
    }
    return claims;
}

Authorised authoriseSecret(Connection& connection, const std::string& secret) {
    auto household = householdBySecret(connection, secret);
    if (!household) throw secretRequired("the X-Household-Secret header is not a household's");
    return Authorised{std::move(household), {}, {}};
}

Profile callerOf(Connection& connection, const TokenClaims& claims) {
    auto caller = findProfile(connection, claims.household, claims.profileID);
    if (!caller) throw Problem(ProblemKind::tokenRefused, lostProfileDetail);
    if (isBlocked(connection, caller->household, caller->id))
        throw Problem(ProblemKind::profileBlocked, "the token's profile is blocked");
    return *std::move(caller);
}

bool mayAddress(const Profile& caller, const Profile& addressed, Access access) {
    switch (access) {
        case Access::member:
            return true;
        case Access::selfOrParent:
            return caller.isParent || caller.row == addressed.row;
        case Access::parent:
            return caller.isParent;
        case Access::household:
            break;
    }
    return false;
}

Authorised authoriseToken(Connection& connection, const Route& route, const QueryValues& query,
                          const TokenClaims& claims) {
    const Profile caller = callerOf(connection, claims);
    const std::string& addressedID = query[ParameterRole::profile];
    const auto addressed = addressedID == caller.id
                               ? std::optional(caller)
                               : findProfile(connection, caller.household, addressedID);
    if (!addressed || !mayAddress(caller, *addressed, route.access)) {
        throw Problem(
            ProblemKind::profileRefused,
            route.access == Access::parent
                ? "only the household's parent may do this, for a profile of its household"
                : "the token's profile may not act for the addressed profile");
    }
    return Authorised{std::nullopt, caller, *addressed};
}

}  // namespace

Identity identityOf(const Request& request, const Route& route, const Tokens& tokens) {
    if (route.access == Access::household) return secretOf(request);
    return claimsOf(request, tokens);
}

Authorised authorise(Connection& connection, const Route& route, const QueryValues& query,
                     const Identity& identity) {
    if (const auto* secret = std::get_if<std::string>(&identity))
        return authoriseSecret(connection, *secret);
    return authoriseToken(connection, route, query, std::get<TokenClaims>(identity));
}

}  // namespace KestrinProfileServer
