#include <string>
#include <utility>

#include <boost/json.hpp>

#include <kestrin-profile-server/admin/Admin.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/http/Body.hpp>
#include <kestrin-profile-server/http/GuardedReply.hpp>

namespace KestrinProfileServer {
namespace {

std::optional<boost::json::value> bodyOf(const Request& request) {
    if (request.body.empty()) return std::nullopt;
    checkContent({request.body, headerOf(request, "Content-Type").value_or(""),
                  headerOf(request, "Content-Encoding").value_or("")});
    boost::json::error_code error;
    boost::json::value body = boost::json::parse(request.body, error);
    if (error)
        throw Problem(ProblemKind::malformedJSON, "the body is not JSON: " + error.message());
    return body;
}

}  // namespace

void Admin::answer(const Request& request, Namespace& space, std::size_t thread,
                   Responder::Done done) const {
    const bool isRoot = space.name().empty();
    std::optional<AdminCall> call;
    Reply reply = guardedReply(pathOf(request.target), [&] {
        if (request.method == "OPTIONS") return optionsOf(request, isRoot);
        call.emplace(callFor(request, isRoot));
        return Reply{};
    });
    if (!call) return done(std::move(reply));
    run(*std::move(call), request, space, thread, std::move(done));
}

Reply Admin::optionsOf(const Request& request, bool isRoot) const {
    guard_.check(request, AdminAccess::caller);
    return Reply{204, {}, {}, {{"Allow", allowedAdminMethods(pathOf(request.target), isRoot)}}};
}

AdminCall Admin::callFor(const Request& request, bool isRoot) const {
    AdminCall call = adminCallOf(routeMethodOf(request), pathOf(request.target), isRoot);
    guard_.check(request, call.route->access);
    call.query = adminQuery(queryOf(request.target), call.route->parameters);
    call.body = bodyOf(request);
    call.ifNoneMatch = headerOf(request, "If-None-Match").value_or("");
    return call;
}

void Admin::run(AdminCall call, const Request& request, Namespace& space, std::size_t thread,
                Responder::Done done) const {
    switch (call.route->effect) {
        case AdminEffect::none:
            return done(handled(call, space, nullptr));
        case AdminEffect::read:
            return done(guardedReply(call.route->path, [&] {
                Connection& reader = space.reader(thread);
                const ReadTransaction transaction(reader);
                return handled(call, space, &reader);
            }));
        case AdminEffect::write:
            return runWrite(std::move(call), space, std::move(done));
        case AdminEffect::later:
            return runLater(call, request, space, done);
    }
}

void Admin::runWrite(AdminCall call, Namespace& space, Responder::Done done) const {
    const auto shared = std::make_shared<const AdminCall>(std::move(call));
    const auto afterCommit = std::make_shared<std::function<void()>>();
    // In a transaction of its own, so that no write of others comes between its commit and what
    // follows from it.
    space.writes().add(
        std::string(shared->route->path),
        [this, shared, &space, afterCommit](Connection& connection) {
            return handled(*shared, space, &connection, afterCommit.get());
        },
        [&space, afterCommit, done = std::move(done)](Reply reply) {
            if (!isFailure(reply)) {
                if (*afterCommit) (*afterCommit)();
                space.observation().events().publish("state", "{}");
            }
            done(std::move(reply));
        },
        WriteQueue::Transaction::own);
}

void Admin::runLater(const AdminCall& call, const Request& request, Namespace& space,
                     const Responder::Done& done) const {
    bool hasBegun = false;
    Reply failure = guardedReply(call.route->path, [&] {
        call.route->laterHandler({call, facts_, namespaces_, space, nullptr, &request.afterwards},
                                 done);
        hasBegun = true;
        return Reply{};
    });
    if (!hasBegun) done(std::move(failure));
}

Reply Admin::handled(const AdminCall& call, Namespace& space, Connection* connection,
                     std::function<void()>* afterCommit) const {
    return guardedReply(call.route->path, [&] {
        return call.route->handler(
            {call, facts_, namespaces_, space, connection, nullptr, afterCommit});
    });
}

}  // namespace KestrinProfileServer
