#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include <kestrin-profile-server/http/Dispatcher.hpp>
#include <kestrin-profile-server/http/GuardedReply.hpp>
#include <kestrin-profile-server/http/Routes.hpp>

namespace KestrinProfileServer {
namespace {

/// Stands for the service as a whole (RFC 9110, 9.3.7).
constexpr std::string_view wholeService = "*";

Reply allowing(const std::string& methods) {
    return Reply{204, {}, {}, {{"Allow", methods}}};
}

Reply healthOf(const Request& request) {
    const std::string allowed = allowedMethods(std::vector<std::string_view>{"GET"});
    if (request.method == "OPTIONS") return allowing(allowed);
    if (routeMethodOf(request) == "GET") return jsonReply(200, {{"status", "ok"}});
    throw methodNotAllowed(request.method, allowed);
}

Reply optionsOf(std::string_view path) {
    return allowing(path == wholeService ? allowedMethods(std::vector<std::string_view>{
                                               "GET", "POST", "PUT", "DELETE"})
                                         : allowedMethods(path));
}

}  // namespace

/// A request that passed all checks that need no database.
struct Dispatcher::Call {
    const Route& route;
    QueryValues query;
    Identity identity;
    Body body;
    std::chrono::seconds clockSkew;
};

namespace {

/// The name of the household that a token speaks for.
std::string householdIn(const Identity& identity) {
    const auto* const claims = std::get_if<TokenClaims>(&identity);
    return claims == nullptr ? std::string() : claims->household;
}

}  // namespace

void Dispatcher::dispatch(const Request& request, Connection& reader, Done done) const {
    const std::string_view path = pathOf(request.target);
    if (path == healthPath) return done(guardedReply(path, [&] { return healthOf(request); }));
    if (request.method == "OPTIONS")
        return done(guardedReply(path, [&] { return optionsOf(path); }));
    std::optional<Call> call;
    Reply failure = guardedReply(path, [&] {
        call.emplace(callFor(request));
        return Reply{};
    });
    if (!call) return done(std::move(failure));
    if (call->route.effect == Effect::write) return addWrite(*std::move(call), std::move(done));
    done(runRead(*call, reader));
}

Dispatcher::Call Dispatcher::callFor(const Request& request) const {
    const Route& route = routeOf(routeMethodOf(request), pathOf(request.target));
    QueryValues values = parsedQuery(queryOf(request.target), route.parameters);
    Identity identity = identityOf(request, route, tokens_);
    return Call{route, std::move(values), std::move(identity),
                parsedBody({request.body, headerOf(request, "Content-Type").value_or(""),
                            headerOf(request, "Content-Encoding").value_or("")},
                           route.body),
                request.clockSkew};
}

Reply Dispatcher::run(const Call& call, Connection& connection) const {
    std::string household = householdIn(call.identity);
    Reply reply = guardedReply(call.route.path, [&] {
        const Authorised authorised = authorise(connection, call.route, call.query, call.identity);
        if (authorised.household) household = authorised.household->name;
        const auto skew = std::chrono::milliseconds(call.clockSkew).count();
        return runAction({connection, call.route, call.query, call.body, authorised, tokens_,
                          limits_.now(), clock_() + skew});
    });
    reply.household = std::move(household);
    return reply;
}

Reply Dispatcher::runRead(const Call& call, Connection& reader) const {
    return guardedReply(call.route.path, [&] {
        const ReadTransaction transaction(reader);
        return run(call, reader);
    });
}

void Dispatcher::addWrite(Call call, Done done) const {
    auto shared = std::make_shared<const Call>(std::move(call));
    writes_.add(
        std::string(shared->route.path),
        [this, shared](Connection& connection) { return run(*shared, connection); },
        std::move(done));
}

}  // namespace KestrinProfileServer
