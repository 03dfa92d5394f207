#pragma once

#include <functional>
#include <memory>
#include <utility>

#include <CLI/CLI.hpp>

#include "../ExitCode.hpp"
#include "../Session.hpp"

namespace KestrinProfileCLI {

/// What the chosen command does when the command line has been read.
using Command = std::function<ExitCode(Session&)>;

/// Makes a command of the command line do this with its options, if it is the chosen one.
template <class Options>
void onChosen(CLI::App& command, Command& chosen, std::shared_ptr<Options> options,
              ExitCode (*what)(Session&, const Options&)) {
    command.callback([&chosen, options = std::move(options), what] {
        chosen = [options, what](Session& session) { return what(session, *options); };
    });
}

// Each adds its command to the command line and sets `chosen` if it is chosen.

/// bind [PROFILE], unbind [PROFILE]: obtains an anonymous bind and keeps it, or forgets it.
void addBindCommands(CLI::App& app, Command& chosen);

/// profiles list|create|edit|delete|validate: the household's profiles.
void addProfilesCommand(CLI::App& app, Command& chosen);

/// history, favorites, watchlist: what a profile has watched, likes and wants to watch.
void addListCommands(CLI::App& app, Command& chosen);

/// search add|delete: what a profile has searched for.
void addSearchCommand(CLI::App& app, Command& chosen);

/// outbox list|send|drop: what was kept with --later.
void addOutboxCommand(CLI::App& app, Command& chosen);

/// config check|show: the configuration.
void addConfigCommand(CLI::App& app, Command& chosen);

/// doctor: whether all is well between here and the service.
void addDoctorCommand(CLI::App& app, Command& chosen);

/// api [OPERATION]: one operation with fields, and what is sent and answered.
void addAPICommand(CLI::App& app, Command& chosen);

/// service …: the admin interface of a development service.
void addServiceCommand(CLI::App& app, Command& chosen);

/// completion bash|zsh|fish, man, help: what is made from the command line itself.
void addSelfDescriptions(CLI::App& app, Command& chosen);

}  // namespace KestrinProfileCLI
