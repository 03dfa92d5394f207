#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>

#include <fmt/format.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/service/Profile.hpp>
#include <internal/FileDescriptor.hpp>

#include "Scenes.hpp"

namespace HouseholdEvening {

using HalvardSling::SlingErrorKind;
using KestrinConfigManager::Configuration;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::ServiceTable;
using KestrinConfigManager::URLTemplate;
using KestrinInternal::FileDescriptor;
using KestrinProfile::Profile;
using KestrinProfile::ProfileParams;
using KestrinProfile::UserParams;

namespace {

/// A port of this computer on which nobody listens, and which nobody else gets while this lives.
class UnusedPort {
  public:
    UnusedPort() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the form of the system's
        // call.
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        require(bind(socket_.number(), any, size) == 0 &&
                    getsockname(socket_.number(), any, &size) == 0,
                "the system has a free port");
        origin_ = fmt::format("http://127.0.0.1:{}", ntohs(address.sin_port));
    }

    [[nodiscard]] const std::string& origin() const noexcept { return origin_; }

  private:
    FileDescriptor socket_;
    std::string origin_;
};

Configuration withServicesAt(const std::string& origin, Configuration configuration) {
    ServiceTable services;
    for (auto [operation, service] : *configuration.services) {
        const std::string& url = service.url.text();
        service.url = URLTemplate(origin + url.substr(url.find('/', url.find("://") + 3)));
        service.policy.allowsCleartext = true;
        services.add(service);
    }
    configuration.services = std::make_shared<const ServiceTable>(std::move(services));
    return configuration;
}

std::size_t historySize(const Cast& cast) {
    const auto list = await(Profile().requestHistory(ProfileParams(bindOf(cast.anna))));
    require(list.elements.has_value(), "the reply holds a list");
    return list.elements->size();
}

std::string overreach(const Stage& stage, const Cast& cast) {
    const auto before = historySize(cast);
    const UserParams params(bindOf(cast.ben), cast.anna);
    const auto refusal = stage.refusalOf(Profile().deleteProfile(params));
    require(refusal.error.statusCode() == 403, "the service answers 403");
    require(refusal.reactions == 1, "the reaction is called once");
    require(!ConfigurationManager::profileBind(true) && !ConfigurationManager::profileBind(false),
            "the held binds are dropped");
    const auto asked = stage.sent();
    require(historySize(cast) == before, "nothing was deleted");
    require(stage.sent() == asked + 2, "a new bind is requested, then the list");
    return fmt::format(
        "403, {}; {} reaction, held binds dropped; a new bind, and {} is still there",
        reasonOf(refusal.error), refusal.reactions, *cast.anna.username);
}

std::string loseService(const Stage& stage, const Cast& cast) {
    auto& manager = ConfigurationManager::sharedInstance();
    const UnusedPort port;
    const ProfileParams params(bindOf(cast.anna));
    const auto configured = manager.currentConfiguration();
    manager.configure(withServicesAt(port.origin(), *configured));
    const auto request = Profile().requestHistory(params);
    manager.configure(*configured);
    const auto refusal = stage.refusalOf(request);
    require(refusal.error.kind() == SlingErrorKind::cannotConnect && refusal.reactions == 0,
            "it fails with cannotConnect, without a reaction");
    return fmt::format("{}: {}; what to do: {}", name(refusal.error.kind()), refusal.error.what(),
                       refusal.error.advice());
}

std::string findService(const Stage& stage, const Cast& cast) {
    const auto before = stage.sent();
    const auto size = historySize(cast);
    require(stage.sent() == before + 1, "the held bind is still good");
    return fmt::format("the same request is answered, with the same bind: {} entries", size);
}

}  // namespace

void playTrouble(Stage& stage, const Cast& cast) {
    Stage::scene("Trouble");
    stage.step(fmt::format("{} tries to delete {}", *cast.ben.username, *cast.anna.username),
               [&] { return overreach(stage, cast); });
    stage.step("the service cannot be reached", [&] { return loseService(stage, cast); });
    stage.step("the service is back", [&] { return findService(stage, cast); });
}

}  // namespace HouseholdEvening
