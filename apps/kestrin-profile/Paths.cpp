#include "Paths.hpp"

#include <cstdlib>
#include <string>

namespace KestrinProfileCLI {

namespace fs = std::filesystem;

namespace {

/// The directory that an environment variable names, or one below the home directory. The
/// variable counts only if it holds an absolute path.
fs::path baseDirectory(const char* variable, const char* belowHome) {
    const char* const named = std::getenv(variable);
    if (named != nullptr && fs::path(named).is_absolute()) return named;
    const char* const home = std::getenv("HOME");
    return fs::path(home != nullptr ? home : "/") / belowHome;
}

}  // namespace

fs::path defaultConfigurationFile() {
    return baseDirectory("XDG_CONFIG_HOME", ".config") / "kestrin-profile" / "config.json";
}

fs::path bindFileFor(const fs::path& configurationFile) {
    std::error_code ignored;
    const fs::path whole = fs::weakly_canonical(fs::absolute(configurationFile), ignored);
    fs::path file = baseDirectory("XDG_STATE_HOME", ".local/state") / "kestrin-profile" / "binds";
    file /= whole.relative_path();
    return file;
}

}  // namespace KestrinProfileCLI
