#include <exception>
#include <memory>
#include <optional>
#include <string>

#include <fmt/format.h>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>

#include "../Profiles.hpp"
#include "Commands.hpp"

namespace KestrinProfileCLI {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;

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
          fmt::format("{} characters, saved", bind.token.size())}});
}

/// Whether a text that is no identifier, as this failure says, may still be a profile's name.
bool mayBeName(ExitCode code) {
    return code == ExitCode::notFound || code == ExitCode::usage || code == ExitCode::validation;
}

/// A new bind of a profile; the parent's, if it is held and valid, is used again.
AnonymousBind bindFor(Session& session, const std::string& profileID) {
    const auto profile = session.household().session(profileID);
    const bool isParent = profileID == ConfigurationManager::parentProfileID();
    return session.waitFor(isParent ? profile.bind() : profile.renewBind());
}

/// The bind of a profile. Only what is no identifier is looked up as a name, so that a bind can be
/// had even if the parent's cannot.
AnonymousBind bindOf(Session& session, const std::string& nameOrID) {
    try {
        return bindFor(session, nameOrID);
    } catch (...) {
        if (!mayBeName(describe(std::current_exception()).code)) throw;
        const auto parent = session.profile(ConfigurationManager::parentProfileID());
        const auto user = KnownProfiles(session, parent).seek(nameOrID);
        if (!user || user->profileID == nameOrID) throw;
        return bindFor(session, user->profileID.value_or(nameOrID));
    }
}

ExitCode obtainBind(Session& session, const std::optional<std::string>& nameOrID) {
    session.configure();
    const auto before = ConfigurationManager::profileBind(true);
    const AnonymousBind bind = bindOf(session, nameOrID ? *nameOrID : actingProfileID(session));
    print(session, bind, before == bind);
    return ExitCode::ok;
}

}  // namespace

void addBindCommand(CLI::App& app, Command& chosen) {
    auto* const command = app.add_subcommand(
        "bind", "Obtain an anonymous bind for a profile and save it for later commands");
    const auto profile = std::make_shared<std::optional<std::string>>();
    command
        ->add_option("PROFILE", *profile,
                     "A profile, by identifier or name (default: the acting one)")
        ->type_name("");
    onChosen(*command, chosen, profile, &obtainBind);
}

}  // namespace KestrinProfileCLI
