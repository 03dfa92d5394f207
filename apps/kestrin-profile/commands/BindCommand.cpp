#include <memory>
#include <optional>
#include <string>

#include <fmt/format.h>

#include <HalvardSling/JSONDictionary.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "../Caller.hpp"
#include "Commands.hpp"

namespace KestrinProfileCLI {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;
using KestrinProfile::Profile;

namespace {

void print(const Session& session, const AnonymousBind& bind, bool wasHeld) {
    const char* const source = wasHeld ? "held" : "service";
    if (session.options.json) {
        HalvardSling::JSONDictionary result;
        result.setText(AnonymousBind::Keys::profileID, bind.profileID);
        result.setText("source", source);
        session.terminal.json(result);
        return;
    }
    session.terminal.table(
        {"PROFILE", "BIND", "TOKEN"},
        {{printable(bind.profileID), wasHeld ? "held, still valid" : "obtained from the service",
          fmt::format("{} characters, kept", bind.token.size())}});
}

ExitCode obtainBind(Session& session, const std::optional<std::string>& profileID) {
    session.configure();
    const auto before = ConfigurationManager::profileBind(true);
    const Profile profile;
    const AnonymousBind bind =
        session.await(profile.requestAnonymousBind(profileID ? *profileID : callersID(session)));
    session.keepBinds();
    print(session, bind, before == bind);
    return ExitCode::ok;
}

}  // namespace

void addBindCommand(CLI::App& app, Command& chosen) {
    auto* const command = app.add_subcommand(
        "bind", "Obtain an anonymous bind for a profile and keep it for later commands");
    const auto profileID = std::make_shared<std::string>();
    auto* const argument = command->add_option(
        "PROFILE_ID", *profileID, "The profile's identifier; without it the profile that acts");
    argument->type_name("");
    command->callback([&chosen, profileID, argument] {
        const bool named = argument->count() > 0;
        chosen = [profileID, named](Session& session) {
            return obtainBind(session, named ? std::optional(*profileID) : std::nullopt);
        };
    });
}

}  // namespace KestrinProfileCLI
