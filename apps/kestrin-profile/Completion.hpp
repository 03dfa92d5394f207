#pragma once

#include <string>

#include "CommandTree.hpp"

namespace KestrinProfileCLI {

// Scripts that make a shell complete the program's command line: commands, options, names of files
// where a value is a FILE and, where it is a PROFILE, the names of the household's profiles, for
// which they run the program.

[[nodiscard]] std::string bashCompletion(const CommandEntry& program);
[[nodiscard]] std::string zshCompletion(const CommandEntry& program);
[[nodiscard]] std::string fishCompletion(const CommandEntry& program);

}  // namespace KestrinProfileCLI
