#pragma once

#include <span>
#include <string_view>

namespace KestrinProfileCLI {

// What --help says of a command that its declaration does not.

/// Whether an option of the program means something to a command.
/// @param path    e.g. "history add"
/// @param option  e.g. "--brand"
[[nodiscard]] bool isOfUse(std::string_view path, std::string_view option);

/// Command lines that show what a command is for.
[[nodiscard]] std::span<const std::string_view> examplesFor(std::string_view path);

}  // namespace KestrinProfileCLI
