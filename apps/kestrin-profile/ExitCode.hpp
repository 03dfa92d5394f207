#pragma once

#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <HalvardSling/json/JSONDictionary.hpp>

namespace KestrinProfileCLI {

/// The exit codes of the program; documented in docs/cli.md.
enum class ExitCode : int {
    ok = 0,
    serviceError = 1,   ///< the service answered, but not with what was asked for
    usage = 2,          ///< the command line or the configuration is wrong
    refused = 4,        ///< the service refuses the caller: 401 or 403
    network = 5,        ///< no answer: unreachable, TLS, timeout
    notFound = 6,       ///< the service does not have it: 404
    validation = 7,     ///< the input is not acceptable: 400, 409, 422, or refused here
    notVerified = 8,    ///< the journal of the service shows something else than was expected
    interrupted = 130,  ///< by SIGINT or SIGTERM, or not confirmed
};

/// All exit codes and what they mean, for people.
[[nodiscard]] std::vector<std::pair<ExitCode, const char*>> exitCodeMeanings();

/// A failed command, as it is reported to people.
struct Failure {
    ExitCode code = ExitCode::serviceError;
    std::string message;          ///< what went wrong, and where
    std::string advice;           ///< what to do next; may be empty
    std::optional<int> status{};  ///< of the service's reply, if that is what failed
};

/// A failure as it is shown to programs.
[[nodiscard]] HalvardSling::JSONDictionary documentOf(const Failure& failure);

/// What an error means for a person at the terminal. Any exception will do.
[[nodiscard]] Failure describe(const std::exception_ptr& error);

/// An error of the program's own, already described.
struct CommandError : std::exception {
    explicit CommandError(Failure aFailure) : failure(std::move(aFailure)) {}
    [[nodiscard]] static CommandError interrupted() {
        return CommandError({ExitCode::interrupted, "interrupted", {}});
    }
    [[nodiscard]] const char* what() const noexcept override { return failure.message.c_str(); }

    Failure failure;
};

}  // namespace KestrinProfileCLI
