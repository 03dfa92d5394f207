#include <memory>

#include <kestrin-profile-server/Service.hpp>

namespace KestrinProfileServer {
namespace {

/// @throws StartError if they cannot be served
void check(const ServiceSettings& settings) {
    if (settings.admin.isOn && !settings.admin.secret && !isLoopbackHost(settings.http.host)) {
        throw StartError(
            "other computers would reach the admin interface. Give it a secret with"
            " --admin-secret-file, or leave out --admin, or listen on 127.0.0.1.");
    }
}

NamespaceSettings ofRoot(const ServiceSettings& settings) {
    check(settings);
    NamespaceSettings root = static_cast<const NamespaceSettings&>(settings);
    root.canBeReset = settings.admin.isOn;
    // A journal is for who can ask for it.
    if (settings.admin.isOn) root.journalMemory = std::make_shared<JournalMemory>();
    return root;
}

std::optional<Admin> adminFor(const ServiceSettings& settings, const std::string& baseURL,
                              const std::string& publicURL, Namespaces& namespaces) {
    if (!settings.admin.isOn) return std::nullopt;
    ServiceFacts facts{KESTRIN_PROFILE_SERVER_VERSION, publicURL, settings.brand, systemTime()};
    return Admin(AdminGuard(settings.admin.secret, baseURL), std::move(facts), namespaces);
}

}  // namespace

Service::Service(const ServiceSettings& settings)
    : namespaces_(ofRoot(settings), settings.http.threads),
      http_(settings.http),
      publicURL_(settings.publicURL.value_or(http_.baseURL())),
      front_(namespaces_, adminFor(settings, http_.baseURL(), publicURL_, namespaces_), publicURL_,
             settings.authority, KESTRIN_PROFILE_SERVER_VERSION) {
    // Whatever keeps a thread from reading is told now.
    for (std::size_t thread = 0; thread < settings.http.threads; ++thread)
        static_cast<void>(namespaces_.root().reader(thread));
    http_.start(front_);
}

}  // namespace KestrinProfileServer
