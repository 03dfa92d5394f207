#include <atomic>
#include <functional>
#include <string>

#include <fmt/format.h>

#include <HalvardSling/SlingError.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "Commands.hpp"

namespace KestrinProfileCLI {

using HalvardSling::SlingError;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::Configuration;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinConfigManager::ServiceTable;
using KestrinConfigManager::WebService;
using KestrinProfile::Profile;

namespace {

/// Plays the steps and stops at the first that is not as it should be.
class Demo {
  public:
    Demo(Session& session, std::string blockedProfileID)
        : session_(session), blockedProfileID_(std::move(blockedProfileID)) {}

    void play() {
        countRequests();
        obtainBind();
        useHeldBind();
        beForbidden();
        missService();
    }

  private:
    /// Counts what the guards let pass, so that a step can say what was sent.
    void countRequests() {
        auto& manager = ConfigurationManager::sharedInstance();
        Configuration configuration = *manager.currentConfiguration();
        ServiceTable services;
        for (const auto& [operation, service] : *configuration.services) {
            WebService counted = service;
            counted.guard = [this](const WebService& asked, const auto& params) {
                WebService standard = asked;
                standard.guard = nullptr;
                auto answer = standard.configurationGuard(params);
                if (!answer) ++sent_;
                return answer;
            };
            services.add(std::move(counted));
        }
        configuration.services = std::make_shared<const ServiceTable>(std::move(services));
        manager.configure(std::move(configuration));
    }

    void obtainBind() {
        ConfigurationManager::sharedInstance().dropBinds();
        sent_ = 0;
        const AnonymousBind bind = session_.await(profile_.requestAnonymousBind());
        require(sent_ == 1, "one request is sent");
        require(ConfigurationManager::profileBind(true) == bind, "the bind is stored");
        report("bind for the parent", fmt::format("{} requested, decoded and stored; token {}",
                                                  bind.profileID, masked(bind.token)));
    }

    void useHeldBind() {
        sent_ = 0;
        const auto held = ConfigurationManager::profileBind(true);
        const AnonymousBind bind = session_.await(profile_.requestAnonymousBind());
        require(held == bind && sent_ == 0, "the held bind answers and no request is sent");
        report("the same again", "answered by the held bind, no request sent");
    }

    void beForbidden() {
        std::atomic<int> reactions = 0;
        auto& manager = ConfigurationManager::sharedInstance();
        manager.setForbiddenReplyHandler([&reactions] { ++reactions; });
        const auto error = errorOf<SlingError>(profile_.requestAnonymousBind(blockedProfileID_));
        manager.setForbiddenReplyHandler({});
        require(error.statusCode() == 403, "the service answers 403");
        require(reactions == 2, "the reaction comes twice");
        require(!ConfigurationManager::profileBind(true), "the held binds are dropped");
        report("bind for a blocked profile",
               fmt::format("status {}, {} reactions, held binds dropped, the error delivered: {}",
                           *error.statusCode(), reactions.load(), error.what()));
    }

    void missService() {
        auto& manager = ConfigurationManager::sharedInstance();
        Configuration empty = *manager.currentConfiguration();
        const auto whole = empty;
        empty.services = std::make_shared<const ServiceTable>();
        manager.configure(std::move(empty));
        const auto error = errorOf<ConfigurationManagerError>(profile_.requestAnonymousBind());
        manager.configure(whole);
        require(error == ConfigurationManagerError::serviceNotConfigured,
                "the configuration has no such service");
        report("an unconfigured operation", error.what());
    }

    template <class Error>
    Error errorOf(const HalvardSling::Observable<AnonymousBind>& source) {
        try {
            static_cast<void>(session_.await(source));
        } catch (const Error& error) {
            return error;
        }
        throw CommandError({ExitCode::serviceError, "a step that must fail went through", {}});
    }

    static std::string masked(const std::string& token) {
        return fmt::format("masked, {} characters", token.size());
    }

    void require(bool holds, const char* what) const {
        if (!holds)
            throw CommandError(
                {ExitCode::serviceError, fmt::format("step {}: not so: {}", step_ + 1, what), {}});
    }

    void report(const char* step, const std::string& outcome) {
        const Terminal& terminal = session_.terminal;
        terminal.line(fmt::format("{} {}. {}", terminal.marked(Mark::good, "ok"), ++step_, step));
        terminal.line(fmt::format("     {}", printable(outcome)));
    }

    Session& session_;
    std::string blockedProfileID_;
    Profile profile_;
    std::atomic<int> sent_ = 0;
    int step_ = 0;
};

}  // namespace

void addDemoCommand(CLI::App& app, Command& chosen) {
    auto* const command = app.add_subcommand(
        "demo", "Play a session against a development service that blocks a profile");
    const auto blocked = std::make_shared<std::string>("blocked");
    command->add_option("--blocked", *blocked, "A profile that the service was started to block")
        ->capture_default_str();
    command->callback([&chosen, blocked] {
        chosen = [blocked](Session& session) {
            session.configure();
            Demo(session, *blocked).play();
            session.keepBinds();
            return ExitCode::ok;
        };
    });
}

}  // namespace KestrinProfileCLI
