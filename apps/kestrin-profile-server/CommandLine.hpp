#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <kestrin-profile-server/Service.hpp>

namespace KestrinProfileServer {

/// What the command line asks for.
struct Options {
    ServiceSettings service;
    /// Where the client's configuration is written, whatever is there.
    std::optional<std::filesystem::path> configuration;
    /// Where it is written unless there is one that this program has not written; the first place
    /// that is free. For who has not said where.
    std::vector<std::filesystem::path> configurationPlaces;
    /// Where a certificate for development is kept, and for which names it is.
    struct TLS {
        std::filesystem::path folder;
        std::vector<std::string> names;
    };
    std::optional<TLS> tls;
    /// Whether the QR code of the configuration's address is wanted wherever the output goes.
    bool isQRCodeWanted = false;
    /// Whether to say what to try.
    bool isIntroduced = false;
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
