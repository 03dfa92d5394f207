#pragma once

#include <string>
#include <string_view>

#include "CommandTree.hpp"

namespace KestrinProfileCLI {

/// The program's man page, in the man macros of roff.
[[nodiscard]] std::string manPage(const CommandEntry& program, std::string_view version);

}  // namespace KestrinProfileCLI
