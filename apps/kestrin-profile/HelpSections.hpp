#pragma once

#include <string>
#include <utility>
#include <vector>

namespace KestrinProfileCLI {

/// What the man page says beside the commands and options.
struct HelpSection {
    std::string title;
    std::vector<std::pair<std::string, std::string>> entries;  ///< what, and what is said of it
};

/// Exit codes, files, environment.
[[nodiscard]] std::vector<HelpSection> helpSections();

}  // namespace KestrinProfileCLI
