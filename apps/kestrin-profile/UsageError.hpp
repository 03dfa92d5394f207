#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include "CommandTree.hpp"
#include "ExitCode.hpp"

namespace KestrinProfileCLI {

/// What is wrong with a command line that could not be read: which command or option is none, and
/// which one was meant.
[[nodiscard]] Failure usageError(const CLI::App& program, const CLI::ParseError& error);

/// The failure of somebody who names a command that is none.
/// @param group  where it was looked for
[[nodiscard]] Failure unknownCommand(const CommandEntry& group, const std::string& name);

}  // namespace KestrinProfileCLI
