#include "HelpSections.hpp"

#include <string>

#include "ExitCode.hpp"

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
    return {
        exitCodes(),
        {"Files",
         {{"$XDG_CONFIG_HOME/kestrin-profile/config.json", "the configuration"},
          {"$XDG_STATE_HOME/kestrin-profile/binds/", "the binds, readable by their owner"},
          {"$XDG_STATE_HOME/kestrin-profile/outboxes/",
           "what --later has kept, readable by its owner"}}},
        {"Environment",
         {{"KESTRIN_PROFILE_CONFIG, KESTRIN_PROFILE_PROFILE, KESTRIN_PROFILE_BRAND",
           "what --config, --profile and --brand say, unless the option is given; an empty one "
           "is none"},
          {"KESTRIN_PROFILE_SERVICE_URL, KESTRIN_PROFILE_SERVICE_SECRET",
           "the address and the secret of the development service that service is about, unless "
           "--url and --secret-file are given"},
          {"KESTRIN_PROFILE_COMPLETION_SECONDS",
           "how long completion may ask the service for the names of profiles; 1 unless set, "
           "and 0 asks nobody"},
          {"XDG_CONFIG_HOME, XDG_STATE_HOME", "~/.config and ~/.local/state unless set"},
          {"TZ", "the local time zone"},
          {"NO_COLOR", "switches colours off"}}}};
}

}  // namespace KestrinProfileCLI
