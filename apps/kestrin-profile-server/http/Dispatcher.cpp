#include <algorithm>
#include <exception>
#include <iostream>
#include <memory>

#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/Dispatcher.hpp>
#include <kestrin-profile-server/http/Routes.hpp>

namespace KestrinProfileServer {
namespace {

/// Whether the service lives; outside the protocol, needs no credentials.
constexpr std::string_view healthPath = "/healthz";

std::string_view queryOf(std::string_view target) {
    return target.substr(std::min(pathOf(target).size() + 1, target.size()));
}

/// Runs `work` and turns whatever it throws into a failure reply.
template <class Work>
Reply guarded(std::string_view path, const Work& work) {
    const std::string instance = excerptOf(path);
    try {
        return work();
    } catch (const Problem& problem) {
        return replyTo(problem, instance);
    } catch (const std::exception& failure) {
        std::cerr << instance << " failed: " << failure.what() << '\n';
        return replyTo(Problem(ProblemKind::internal,
                               "the service failed in a way that it does not know; its standard"
                               " error says more"),
                       instance);
    }
}

Reply healthOf(const Request& request) {
    return guarded(healthPath, [&] {
        if (request.method == "GET") return jsonReply(200, {{"status", "ok"}});
        throw methodNotAllowed(request.method, "GET");
    });
}

}  // namespace

/// A request that passed all checks that need no database.
struct Dispatcher::Call {
    const Route& route;
    QueryValues query;
    Identity identity;
    Body body;
};

std::string_view pathOf(std::string_view target) {
    return target.substr(0, target.find('?'));
}

void Dispatcher::dispatch(const Request& request, Connection& reader, Done done) const {
    const std::string_view path = pathOf(request.target);
    if (path == healthPath) return done(healthOf(request));
    std::optional<Call> call;
    Reply failure = guarded(path, [&] {
        call.emplace(callFor(request, path, queryOf(request.target)));
        return Reply{};
    });
    if (!call) return done(std::move(failure));
    if (call->route.effect == Effect::write) return addWrite(*std::move(call), std::move(done));
    done(runRead(*call, reader));
}

Dispatcher::Call Dispatcher::callFor(const Request& request, std::string_view path,
                                     std::string_view query) const {
    const Route& route = routeOf(request.method, path);
    QueryValues values = parsedQuery(query, route.parameters);
    Identity identity = identityOf(request, route, tokens_);
    return Call{route, std::move(values), std::move(identity),
                parsedBody({request.body, headerOf(request, "Content-Type").value_or(""),
                            headerOf(request, "Content-Encoding").value_or("")},
                           route.body)};
}

Reply Dispatcher::run(const Call& call, Connection& connection) const {
    return guarded(call.route.path, [&] {
        const Authorised authorised = authorise(connection, call.route, call.query, call.identity);
        return runAction({connection, call.route, call.query, call.body, authorised, tokens_,
                          limits_, clock_()});
    });
}

Reply Dispatcher::runRead(const Call& call, Connection& reader) const {
    return guarded(call.route.path, [&] {
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
