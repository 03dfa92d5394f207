#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include "Session.hpp"

namespace KestrinProfileCLI {

/// Adds --yes to a command that deletes what cannot be restored.
void addConfirmation(CLI::App& command, bool& isConfirmed);

/// Asks a person at the terminal whether to go on. Nobody is asked in a dry run. If standard input
/// or standard error is no terminal, nobody can be asked.
/// @param isConfirmed  whether --yes says so already
/// @param question     without its question mark, e.g. "clear the history"
/// @throws CommandError unless the answer is yes, or if nobody can be asked
void confirm(const Session& session, bool isConfirmed, const std::string& question);

}  // namespace KestrinProfileCLI
