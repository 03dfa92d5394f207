#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>

#include "../Profiles.hpp"
#include "Commands.hpp"

namespace KestrinProfileCLI {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;

namespace {

/// What the commands below are told.
struct BindOptions {
    std::optional<std::string> profile;
    bool isNew = false;
    bool all = false;
};

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

/// A new bind of a profile; unless it has to be new, the parent's is used again if it is held and
/// valid.
AnonymousBind bindFor(Session& session, const std::string& profileID, bool isNew) {
    const auto profile = session.household().session(profileID);
    const bool isParent = profileID == ConfigurationManager::parentProfileID();
    return session.waitFor(isParent && !isNew ? profile.bind() : profile.renewBind());
}

/// The bind of a profile. Only what is no identifier is looked up as a name, so that a bind can be
/// had even if the parent's cannot.
AnonymousBind bindOf(Session& session, const std::string& nameOrID, bool isNew) {
    try {
        return bindFor(session, nameOrID, isNew);
    } catch (...) {
        if (!mayBeName(describe(std::current_exception()).code)) throw;
        const auto parent = session.profile(ConfigurationManager::parentProfileID());
        const auto user = KnownProfiles(session, parent).seek(nameOrID);
        if (!user || user->profileID == nameOrID) throw;
        return bindFor(session, user->profileID.value_or(nameOrID), isNew);
    }
}

ExitCode obtainBind(Session& session, const BindOptions& options) {
    session.configure();
    const auto before = ConfigurationManager::profileBind(true);
    const AnonymousBind bind = bindOf(
        session, options.profile ? *options.profile : actingProfileID(session), options.isNew);
    // One that is obtained in the same second may be the same.
    print(session, bind, !options.isNew && before == bind);
    return ExitCode::ok;
}

std::vector<std::string> heldProfiles() {
    std::vector<std::string> all;
    for (const auto& bind : ConfigurationManager::sharedInstance().heldBinds().binds)
        all.push_back(bind.profileID);
    return all;
}

/// The profiles whose binds are to be forgotten. Only what is no identifier of a bind that is held
/// is looked up, as a name.
std::vector<std::string> chosenProfiles(Session& session, const BindOptions& options) {
    if (options.all) return heldProfiles();
    if (options.profile) session.options.profile = options.profile;
    return {actingProfileID(session)};
}

/// @return whether there was one
bool forgetBind(const std::string& profileID) {
    const auto held = heldProfiles();
    if (std::ranges::find(held, profileID) == held.end()) return false;
    auto& manager = ConfigurationManager::sharedInstance();
    manager.setBindProfileID(profileID);
    manager.setBindToken(std::nullopt);
    return true;
}

ExitCode forgetBinds(Session& session, const BindOptions& options) {
    if (options.all && options.profile)
        throw CommandError({ExitCode::usage, "which binds are to be forgotten is not clear",
                            "give a profile, or --all"});
    session.configure();
    if (session.options.dryRun) {
        session.terminal.note("note: a dry run forgets nothing");
        return ExitCode::ok;
    }
    const auto chosen = chosenProfiles(session, options);
    std::vector<std::string> forgotten;
    for (const auto& profileID : chosen)
        if (forgetBind(profileID)) forgotten.push_back(profileID);
    if (session.options.json) {
        HalvardSling::JSONDictionary result;
        result.setTexts("forgotten", forgotten);
        session.terminal.json(result);
    } else if (options.all) {
        session.terminal.line(fmt::format("forgot {}", countOf(forgotten.size(), "bind", "binds")));
    } else {
        const char* const what =
            forgotten.empty() ? "there was no bind of " : "forgot the bind of ";
        session.terminal.line(what + printable(chosen.front()));
    }
    return ExitCode::ok;
}

void addProfile(CLI::App& command, BindOptions& options) {
    command
        .add_option("PROFILE", options.profile,
                    "A profile, by identifier or name (default: the acting one)")
        ->type_name("");
}

}  // namespace

void addBindCommands(CLI::App& app, Command& chosen) {
    const auto options = std::make_shared<BindOptions>();
    auto& binding = *app.add_subcommand(
        "bind", "Obtain an anonymous bind for a profile and save it for later commands");
    addProfile(binding, *options);
    binding.add_flag("--new", options->isNew, "Obtain a new one though the parent's is still good");
    onChosen(binding, chosen, options, &obtainBind);

    auto& forgetting = *app.add_subcommand("unbind", "Forget the bind of a profile");
    addProfile(forgetting, *options);
    forgetting.add_flag("--all", options->all, "Forget the binds of all profiles");
    onChosen(forgetting, chosen, options, &forgetBinds);
}

}  // namespace KestrinProfileCLI
