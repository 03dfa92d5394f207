#pragma once

#include <kestrin-profile-server/domain/Limits.hpp>
#include <kestrin-profile-server/domain/Tokens.hpp>
#include <kestrin-profile-server/http/Authorisation.hpp>
#include <kestrin-profile-server/http/Body.hpp>
#include <kestrin-profile-server/http/Reply.hpp>
#include <kestrin-profile-server/storage/Database.hpp>

namespace KestrinProfileServer {

/// Everything that an operation works with, after all the general rules have been checked.
struct HandlerContext {
    Connection& connection;
    const Route& route;
    const QueryValues& query;
    const Body& body;
    const Authorised& authorised;
    const Tokens& tokens;
    Limits limits;
    Milliseconds now;
};

/// Answers, or throws a Problem.
[[nodiscard]] Reply runAction(const HandlerContext& context);

}  // namespace KestrinProfileServer
