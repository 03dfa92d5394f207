#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <variant>

#include <kestrin-profile-server/Service.hpp>

namespace KestrinProfileServer {

/// What the command line asks for.
struct Options {
    ServiceSettings service;
    std::optional<std::filesystem::path> configuration;
    std::string brand = "kestrin";
};

/// The program ends here: after --help, or because the command line is wrong.
struct EarlyEnd {
    int exitCode = 0;
    std::string message;
};

/// The exit codes that --help explains.
enum ExitCode : int { cleanStop = 0, failure = 1, wrongUsage = 2 };

[[nodiscard]] std::variant<Options, EarlyEnd> parsedCommandLine(int count,
                                                                const char* const* arguments);

}  // namespace KestrinProfileServer
