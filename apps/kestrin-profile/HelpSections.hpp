#pragma once

#include <string>
#include <utility>
#include <vector>

namespace KestrinProfileCLI {

/// What --help and the man page say beside the commands and options.
struct HelpSection {
    std::string title;
    std::vector<std::pair<std::string, std::string>> entries;  ///< what, and what is said of it
};

/// Exit codes, files, environment.
[[nodiscard]] std::vector<HelpSection> helpSections();

/// The sections as the end of --help.
[[nodiscard]] std::string helpFooter();

}  // namespace KestrinProfileCLI
