#pragma once

#include <functional>

#include <CLI/CLI.hpp>

#include "../ExitCode.hpp"
#include "../Session.hpp"

namespace KestrinProfileCLI {

/// What the chosen command does when the command line has been read.
using Command = std::function<ExitCode(Session&)>;

// Each adds its command to the command line and, where it is chosen, sets `chosen`.

/// bind [PROFILE_ID]: obtains an anonymous bind and keeps it.
void addBindCommand(CLI::App& app, Command& chosen);

/// config check: says whether the configuration is sound.
void addConfigCommand(CLI::App& app, Command& chosen);

/// demo: plays a short session against a development service.
void addDemoCommand(CLI::App& app, Command& chosen);

}  // namespace KestrinProfileCLI
