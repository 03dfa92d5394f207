#include "Paths.hpp"

#include <cstdlib>
#include <optional>
#include <string>

#include <fmt/format.h>

#include "ExitCode.hpp"

namespace KestrinProfileCLI {

namespace fs = std::filesystem;

namespace {

/// The absolute path that an environment variable holds; absent if it holds none.
std::optional<fs::path> pathIn(const char* variable) {
    const char* const text = std::getenv(variable);
    if (text == nullptr || !fs::path(text).is_absolute()) return std::nullopt;
    return text;
}

/// The directory that an environment variable names, or one below the home directory. Elsewhere,
/// below the current directory for instance, nobody would look for what is secret.
fs::path baseDirectory(const char* variable, const char* belowHome, const char* alternative) {
    if (auto named = pathIn(variable)) return *std::move(named);
    if (const auto home = pathIn("HOME")) return *home / belowHome;
    throw CommandError({ExitCode::usage,
                        fmt::format("neither HOME nor {} is an absolute path", variable),
                        fmt::format("set one of them{}", alternative)});
}

/// The place of what belongs to a configuration, among its like.
fs::path stateFileFor(const fs::path& configurationFile, const char* kind) {
    std::error_code ignored;
    const fs::path whole = fs::weakly_canonical(fs::absolute(configurationFile), ignored);
    return fs::path("kestrin-profile") / kind / whole.relative_path();
}

}  // namespace

fs::path defaultConfigurationFile() {
    return baseDirectory("XDG_CONFIG_HOME", ".config", ", or name a configuration with --config") /
           "kestrin-profile" / "config.json";
}

fs::path stateDirectory() {
    return baseDirectory("XDG_STATE_HOME", ".local/state", ": binds are kept there");
}

fs::path bindFileFor(const fs::path& configurationFile) {
    return stateFileFor(configurationFile, "binds");
}

fs::path outboxFileFor(const fs::path& configurationFile) {
    return stateFileFor(configurationFile, "outboxes");
}

}  // namespace KestrinProfileCLI
