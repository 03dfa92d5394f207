#pragma once

#include <filesystem>

namespace KestrinProfileCLI {

/// The configuration file if none is named: kestrin-profile/config.json in
/// $XDG_CONFIG_HOME, or in ~/.config (XDG base directories, version 0.8).
/// @throws CommandError if neither is an absolute path
[[nodiscard]] std::filesystem::path defaultConfigurationFile();

/// The directory that the program's state is below: $XDG_STATE_HOME, or ~/.local/state.
/// @throws CommandError if neither is an absolute path
[[nodiscard]] std::filesystem::path stateDirectory();

/// Where below `stateDirectory` the binds obtained with a configuration are kept. Each
/// configuration file has its own place, for a bind is of no use to another service.
[[nodiscard]] std::filesystem::path bindFileFor(const std::filesystem::path& configurationFile);

/// Where below `stateDirectory` the writes are kept that were made with --later and a
/// configuration.
[[nodiscard]] std::filesystem::path outboxFileFor(const std::filesystem::path& configurationFile);

}  // namespace KestrinProfileCLI
