#include <utility>

#include <internal/ASCII.hpp>
#include <kestrin-profile-server/admin/AdminGuard.hpp>
#include <kestrin-profile-server/domain/Addresses.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Secrets.hpp>
#include <kestrin-profile-server/domain/Text.hpp>

namespace KestrinProfileServer {
namespace {

constexpr std::string_view secretScheme = "Bearer ";
constexpr std::string_view schemeEnd = "://";

Problem secretRequired(const char* detail) {
    return {ProblemKind::adminSecretRequired, detail, {{"WWW-Authenticate", "Bearer"}}};
}

}  // namespace

AdminGuard::AdminGuard(std::optional<std::string> secret, const std::string& baseURL)
    : secret_(std::move(secret)),
      scheme_(baseURL.substr(0, baseURL.find(schemeEnd) + schemeEnd.size())),
      port_(baseURL.substr(baseURL.rfind(':') + 1)) {}

void AdminGuard::check(const Request& request, AdminAccess access) const {
    if (!secret_) return checkPlace(request, access);
    if (access == AdminAccess::caller) checkSecret(request, *secret_);
}

void AdminGuard::checkSecret(const Request& request, std::string_view secret) {
    const auto value = headerOf(request, "Authorization");
    if (!value ||
        !KestrinInternal::equalsIgnoringCase(value->substr(0, secretScheme.size()), secretScheme)) {
        throw secretRequired("expected is the header 'Authorization: Bearer <secret>'");
    }
    if (!equalInConstantTime(value->substr(secretScheme.size()), secret))
        throw secretRequired("the secret is another one");
}

bool AdminGuard::isOwnHost(std::string_view host) const {
    return portIn(host, scheme_ == "https://" ? "443" : "80") == port_ &&
           isLoopbackName(hostIn(host));
}

void AdminGuard::checkPlace(const Request& request, AdminAccess access) const {
    const std::string_view host = headerOf(request, "Host").value_or("");
    if (!isOwnHost(host)) {
        throw Problem(ProblemKind::originRefused,
                      "the host is '" + excerptOf(host) +
                          "'; expected is a loopback address or localhost, with port " + port_);
    }
    const auto origin = headerOf(request, "Origin");
    const bool isOwnOrigin =
        !origin || (origin->starts_with(scheme_) &&
                    KestrinInternal::equalsIgnoringCase(origin->substr(scheme_.size()), host));
    if (!isOwnOrigin) {
        throw Problem(ProblemKind::originRefused, "a page of '" + excerptOf(*origin) +
                                                      "' asks; expected is one of this service");
    }
    if (access == AdminAccess::caller && headerOf(request, "Sec-Fetch-Site") == "cross-site")
        throw Problem(ProblemKind::originRefused, "a page of another site asks");
}

}  // namespace KestrinProfileServer
