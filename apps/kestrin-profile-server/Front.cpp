#include <algorithm>
#include <string>
#include <utility>

#include <kestrin-profile-server/Front.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/RequestParser.hpp>

namespace KestrinProfileServer {
namespace {

constexpr std::string_view namedPath = "/n/";

bool isNamed(std::string_view target) {
    return target.starts_with(namedPath);
}

/// The namespace's name in a target like "/n/NAME/v1/history?…".
std::string_view nameIn(std::string_view target) {
    const std::string_view rest = target.substr(namedPath.size());
    return rest.substr(0, rest.find_first_of("/?"));
}

/// The target as its namespace sees it.
std::string_view targetWithin(std::string_view target) {
    return isNamed(target) ? target.substr(namedPath.size() + nameIn(target).size()) : target;
}

Reply unknownNamespace(std::string_view target) {
    return replyTo(Problem(ProblemKind::unknownNamespace, "there is no namespace '" +
                                                              excerptOf(nameIn(target)) +
                                                              "'; it may have been deleted"),
                   excerptOf(pathOf(target)));
}

}  // namespace

std::size_t Front::bodyLimit(std::string_view target) const {
    return admin_ && isAdminPath(pathOf(targetWithin(target))) ? adminBodyLimit
                                                               : KestrinProfileServer::bodyLimit;
}

std::shared_ptr<const void> Front::respond(Request request, std::size_t thread, Done done) const {
    std::shared_ptr<Namespace> space = namespaces_.rootPointer();
    if (admin_ && isNamed(request.target)) {
        space = namespaces_.find(nameIn(request.target));
        if (!space) {
            done(unknownNamespace(request.target));
            return nullptr;
        }
        request.target = targetWithin(request.target);
    }
    if (admin_ && isAdminPath(pathOf(request.target)))
        admin_->answer(request, *space, thread, std::move(done));
    else
        space->dispatcher().dispatch(request, space->reader(thread), std::move(done));
    return space;
}

}  // namespace KestrinProfileServer
