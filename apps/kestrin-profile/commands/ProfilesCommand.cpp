#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "../Batch.hpp"
#include "../Confirmation.hpp"
#include "../Profiles.hpp"
#include "../Results.hpp"
#include "../Watch.hpp"
#include "Commands.hpp"

namespace KestrinProfileCLI {

using KestrinProfile::User;

namespace {

/// The options of the commands below.
struct ProfileOptions {
    std::string profile;  ///< which one, by identifier or name
    std::optional<std::string> name;
    std::optional<std::string> avatar;
    std::optional<std::string> group;
    std::optional<bool> isDefault;
    bool isConfirmed = false;

    WatchOptions watch;
    std::string fields;
    BatchOptions batch;
};
using Shared = std::shared_ptr<ProfileOptions>;

ExitCode list(Session& session, const ProfileOptions& options) {
    const Fields fields = fieldsOf(options.fields, keysOfProfiles());
    session.configure();
    const auto acting = actingProfile(session);
    return show(session, options.watch,
                [&] { return linesOf(session, session.waitFor(acting.profiles()), fields); });
}

ExitCode create(Session& session, const ProfileOptions& options) {
    session.configure();
    auto user = User::withoutProfileID(*options.name, {}, {}, options.isDefault.value_or(false));
    user.avatar = options.avatar;
    user.group = options.group;
    print(session, session.waitFor(actingProfile(session).createProfile(user)));
    return ExitCode::ok;
}

bool changesNothing(const ProfileOptions& options) {
    return !options.name && !options.avatar && !options.group && !options.isDefault;
}

/// What is sent to change a profile. The record always says whether it is the default one, so that
/// is taken from the profile as it is.
User changed(const User& known, const ProfileOptions& options) {
    return User(known.profileID.value_or(""), options.name, options.avatar, options.group,
                options.isDefault.value_or(known.defaultUser));
}

ExitCode edit(Session& session, const ProfileOptions& options) {
    if (changesNothing(options))
        throw CommandError({ExitCode::usage, "nothing to change",
                            "give --name, --avatar, --group, --default or --not-default"});
    session.configure();
    const auto acting = actingProfile(session);
    const User known = KnownProfiles(session, acting).find(options.profile);
    if (session.options.dryRun && !options.isDefault)
        session.terminal.note("note: a dry run looks nothing up, so \"default\" is sent as false");
    const auto reply = session.waitFor(acting.editProfile(changed(known, options)));
    printDone(session, reply, fmt::format("changed {}", *known.profileID));
    return ExitCode::ok;
}

/// What is asked before profiles are deleted.
std::string questionFor(const std::vector<BatchItem>& items) {
    const std::string what = items.size() == 1 ? fmt::format("the profile '{}'", items[0].text)
                                               : fmt::format("{} profiles", items.size());
    return "delete " + what + " with all lists";
}

ExitCode remove(Session& session, const ProfileOptions& options) {
    session.configure();
    const auto items = readBatchItems(options.batch.items, session.interruption());
    confirm(session, options.isConfirmed, questionFor(items));
    const auto acting = actingProfile(session);
    const KnownProfiles known(session, acting);
    const auto request = [&](const std::string& nameOrID) {
        return acting.deleteProfile(known.find(nameOrID).profileID.value_or(nameOrID));
    };
    return runBatch(session, acting, options.batch, items, {request, "deleted", "profiles"});
}

ExitCode validate(Session& session, const ProfileOptions& options) {
    session.configure();
    const auto acting = actingProfileOfBrand(session);
    const auto reply = session.waitFor(acting.validateProfileName(*options.name));
    printDone(session, reply, fmt::format("'{}' is available", *options.name));
    return ExitCode::ok;
}

CLI::App& addCommand(CLI::App& group, const char* name, const char* description, Command& chosen,
                     const Shared& options, ExitCode (*what)(Session&, const ProfileOptions&)) {
    auto& command = *group.add_subcommand(name, description);
    onChosen(command, chosen, options, what);
    return command;
}

/// @return the option that makes a profile the default one
CLI::Option* addLooks(CLI::App& command, const Shared& options) {
    command.add_option("--avatar", options->avatar, "The profile's picture")->type_name("TEXT");
    command.add_option("--group", options->group, "The group it belongs to")->type_name("TEXT");
    return command.add_flag_callback(
        "--default", [options] { options->isDefault = true; },
        "Make it the household's default profile");
}

void addName(CLI::App& command, const Shared& options, const char* description) {
    command.add_option("NAME", options->name, description)->required()->type_name("");
}

void addEdit(CLI::App& group, Command& chosen, const Shared& options) {
    auto& command = addCommand(group, "edit", "Change a profile; what is not given stays as it is",
                               chosen, options, &edit);
    command.add_option("PROFILE", options->profile, "The profile, by identifier or name")
        ->required()
        ->type_name("");
    command.add_option("--name", options->name, "The new name")->type_name("TEXT");
    auto* const isDefault = addLooks(command, options);
    command
        .add_flag_callback(
            "--not-default", [options] { options->isDefault = false; },
            "Make it an ordinary profile, not the default one")
        ->excludes(isDefault);
}

}  // namespace

void addProfilesCommand(CLI::App& app, Command& chosen) {
    const auto options = std::make_shared<ProfileOptions>();
    auto& group = *app.add_subcommand("profiles", "The household's profiles");
    group.require_subcommand(1);

    auto& listing =
        addCommand(group, "list", "Show the profiles, the parent first", chosen, options, &list);
    addWatch(listing, options->watch);
    addFields(listing, options->fields, keysOfProfiles());
    auto& creating = addCommand(group, "create", "Create a profile", chosen, options, &create);
    addName(creating, options, "The profile's name");
    addLooks(creating, options);
    addEdit(group, chosen, options);
    auto& deleting = addCommand(group, "delete", "Delete profiles with all their lists", chosen,
                                options, &remove);
    addBatch(deleting, options->batch, "PROFILE", "A profile, by identifier or name");
    addConfirmation(deleting, options->isConfirmed);
    addName(addCommand(group, "validate", "Check whether a profile could have a name", chosen,
                       options, &validate),
            options, "The name");
}

}  // namespace KestrinProfileCLI
