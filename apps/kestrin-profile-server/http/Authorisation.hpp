#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include <kestrin-profile-server/domain/Households.hpp>
#include <kestrin-profile-server/domain/Profiles.hpp>
#include <kestrin-profile-server/domain/Tokens.hpp>
#include <kestrin-profile-server/http/QueryString.hpp>
#include <kestrin-profile-server/http/Request.hpp>
#include <kestrin-profile-server/storage/Database.hpp>

namespace KestrinProfileServer {

struct Route;

/// The header with which a bind proves its household.
constexpr std::string_view secretHeader = "X-Household-Secret";

/// What a client is told of a token whose profile was deleted.
constexpr const char* lostProfileDetail = "the token's profile does not exist any more";

/// Who says to be calling: proven by a token, or by the household's secret.
using Identity = std::variant<TokenClaims, std::string>;

/// Checks the request's credentials as far as that needs no database.
[[nodiscard]] Identity identityOf(const Request& request, const Route& route, const Tokens& tokens);

/// Who is calling and which profile the request addresses. The bind has a household only.
struct Authorised {
    std::optional<Household> household;
    Profile caller;
    Profile addressed;
};

/// Checks the rights of a request. Whatever does not belong to the caller's household is refused
/// in the same words whether it exists or not.
[[nodiscard]] Authorised authorise(Connection& connection, const Route& route,
                                   const QueryValues& query, const Identity& identity);

}  // namespace KestrinProfileServer
