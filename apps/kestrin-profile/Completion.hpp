#pragma once

#include <string>

#include "CommandTree.hpp"

namespace KestrinProfileCLI {

// Scripts that make a shell complete the program's command line: commands, options and, where a
// value is a FILE, names of files.

[[nodiscard]] std::string bashCompletion(const CommandEntry& program);
[[nodiscard]] std::string zshCompletion(const CommandEntry& program);
[[nodiscard]] std::string fishCompletion(const CommandEntry& program);

}  // namespace KestrinProfileCLI
