#pragma once

#include <cstddef>

#include <kestrin-profile-server/domain/Tokens.hpp>
#include <kestrin-profile-server/http/Authorisation.hpp>
#include <kestrin-profile-server/http/Body.hpp>
#include <kestrin-profile-server/http/Reply.hpp>
#include <kestrin-profile-server/storage/Database.hpp>

namespace KestrinProfileServer {

/// How much a household may store.
struct Limits {
    std::size_t maxProfiles = 5;
    std::size_t maxListSize = 500;
};

/// Everything that an operation works with, after all the general rules have been checked.
struct HandlerContext {
    Connection& connection;
    const Route& route;
    const QueryValues& query;
    const Body& body;
    const Authorised& authorised;
    const Tokens& tokens;
    const Limits& limits;
    Milliseconds now;
};

/// Answers, or throws a Problem.
[[nodiscard]] Reply runAction(const HandlerContext& context);

}  // namespace KestrinProfileServer
