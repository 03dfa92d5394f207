#pragma once

#include <filesystem>

namespace KestrinProfileCLI {

/// The configuration file if none is named: kestrin-profile/config.json in
/// $XDG_CONFIG_HOME, or in ~/.config (XDG base directories, version 0.8).
[[nodiscard]] std::filesystem::path defaultConfigurationFile();

/// Where the binds obtained with a configuration are kept: below $XDG_STATE_HOME, or below
/// ~/.local/state. Each configuration file has its own, for a bind is of no use to another service.
[[nodiscard]] std::filesystem::path bindFileFor(const std::filesystem::path& configurationFile);

}  // namespace KestrinProfileCLI
