#include <algorithm>
#include <string>
#include <utility>

#include <kestrin-profile-server/Front.hpp>
#include <kestrin-profile-server/admin/FaultedDispatch.hpp>
#include <kestrin-profile-server/admin/OpenAPI.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/GuardedReply.hpp>
#include <kestrin-profile-server/http/RequestParser.hpp>
#include <kestrin-profile-server/http/Routes.hpp>

namespace KestrinProfileServer {
namespace {

/// Where the service describes itself.
constexpr std::string_view descriptionPath = "/openapi.json";
/// Where a phone finds the certificate that it has to trust.
constexpr std::string_view authorityPath = "/development-authority.pem";

Reply unknownNamespace(std::string_view target) {
    return replyTo(Problem(ProblemKind::unknownNamespace, "there is no namespace '" +
                                                              excerptOf(namespaceIn(target)) +
                                                              "'; it may have been deleted"),
                   excerptOf(pathOf(target)));
}

}  // namespace

std::size_t Front::bodyLimit(std::string_view target) const {
    return admin_ && isAdminPath(pathOf(targetWithin(target))) ? adminBodyLimit
                                                               : KestrinProfileServer::bodyLimit;
}

std::shared_ptr<Namespace> Front::spaceOf(std::string_view target) const {
    if (admin_ && isNamedTarget(target)) return namespaces_.find(namespaceIn(target));
    return namespaces_.rootPointer();
}

std::shared_ptr<ExchangeObserver> Front::observer(std::string_view target) const {
    const std::string_view path = pathOf(admin_ ? targetWithin(target) : target);
    if (path == healthPath || isOfService(path) || (admin_ && isAdminPath(path))) return nullptr;
    const auto space = spaceOf(target);
    if (!space || !space->isObserved()) return nullptr;
    return {space, &space->observation()};
}

std::shared_ptr<const void> Front::respond(Request request, std::size_t thread, Done done) const {
    const auto space = spaceOf(request.target);
    if (!space) {
        done(unknownNamespace(request.target));
        return nullptr;
    }
    if (admin_) request.target = targetWithin(request.target);
    const std::string_view path = pathOf(request.target);
    if (admin_ && isAdminPath(path))
        admin_->answer(request, *space, thread, std::move(done));
    else if (isOfService(path))
        done(guardedReply(path, [&] { return answeredByService(request, *space); }));
    else if (space->observation().faults().areSet())
        dispatchWithFaults(request, *space, thread, std::move(done));
    else
        space->dispatcher().dispatch(request, space->reader(thread), std::move(done));
    return space;
}

bool Front::isOfService(std::string_view path) const {
    return path == descriptionPath || (path == authorityPath && !authority_.empty());
}

Reply Front::answeredByService(const Request& request, const Namespace& space) const {
    const std::string allowed = allowedMethods(std::vector<std::string_view>{"GET"});
    if (request.method == "OPTIONS") return Reply{.headers = {{"Allow", allowed}}};
    if (routeMethodOf(request) != "GET") throw methodNotAllowed(request.method, allowed);
    if (pathOf(request.target) == descriptionPath) return described(space);
    return Reply{.status = 200, .body = authority_, .contentType = "application/x-x509-ca-cert"};
}

Reply Front::described(const Namespace& space) const {
    return jsonReply(200,
                     openAPI({.baseURL = publicURL_ + space.path(),
                              .version = version_,
                              .adminRoutes = admin_ ? adminRoutes() : std::span<const AdminRoute>(),
                              .isRoot = space.name().empty()}));
}

}  // namespace KestrinProfileServer
