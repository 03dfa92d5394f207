#include "HelpSections.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "ExitCode.hpp"
#include "Text.hpp"

namespace KestrinProfileCLI {

namespace {

HelpSection exitCodes() {
    HelpSection section{"Exit status", {}};
    for (const auto& [code, text] : exitCodeMeanings())
        section.entries.emplace_back(std::to_string(static_cast<int>(code)), text);
    return section;
}

}  // namespace

std::vector<HelpSection> helpSections() {
    return {exitCodes(),
            {"Files",
             {{"$XDG_CONFIG_HOME/kestrin-profile/config.json", "the configuration"},
              {"$XDG_STATE_HOME/kestrin-profile/binds/", "the binds, readable by their owner"},
              {"$XDG_STATE_HOME/kestrin-profile/outboxes/",
               "what --later has kept, readable by its owner"}}},
            {"Environment",
             {{"XDG_CONFIG_HOME, XDG_STATE_HOME", "~/.config and ~/.local/state unless set"},
              {"TZ", "the local time zone"},
              {"NO_COLOR", "switches colours off"}}}};
}

std::string helpFooter() {
    std::string footer;
    for (const auto& [title, entries] : helpSections()) {
        std::size_t columns = 0;
        for (const auto& [what, text] : entries)
            columns = std::max(columns, columnsOf(what));
        footer += title + ":\n";
        for (const auto& [what, text] : entries)
            footer += fmt::format("  {}  {}\n", padded(what, columns), text);
    }
    footer.pop_back();
    return footer;
}

}  // namespace KestrinProfileCLI
