#pragma once

#include <string>

#include "CommandTree.hpp"

namespace KestrinProfileCLI {

/// What --help prints of a command: at most 80 columns wide, with the options of the program that
/// mean something to it, and with examples.
[[nodiscard]] std::string helpPage(const CommandEntry& program, const CommandEntry& command);

}  // namespace KestrinProfileCLI
