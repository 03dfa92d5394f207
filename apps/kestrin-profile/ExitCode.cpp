#include "ExitCode.hpp"

#include <algorithm>
#include <array>

#include <KestrinHousehold/error/Error.hpp>

namespace KestrinProfileCLI {

using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinHousehold::OutboxError;
using KestrinProfile::ProfileError;

namespace {

/// What the code of an error is counted by.
enum class Domain { status, sling, configuration, profile, other };

constexpr int anyCode = -1;

struct Outcome {
    Domain domain;
    int code;
    ExitCode exitCode;
    const char* advice = "";  ///< in the words of this program; empty: the library's
};

template <class Code>
constexpr Outcome outcome(Domain domain, Code code, ExitCode exitCode, const char* advice = "") {
    return {domain, static_cast<int>(code), exitCode, advice};
}

constexpr const char* correctInput = "correct what the service names";

/// The first row that fits counts.
constexpr std::array outcomes{
    outcome(Domain::status, 400, ExitCode::validation, correctInput),
    outcome(Domain::status, 401, ExitCode::refused,
            "check the service's headers in the configuration, or obtain a bind: "
            "kestrin-profile bind"),
    outcome(Domain::status, 403, ExitCode::refused,
            "the acting profile is blocked or may not do this: name another with --profile"),
    outcome(Domain::status, 404, ExitCode::notFound, "check the identifier and the service's URL"),
    outcome(Domain::status, 409, ExitCode::validation, correctInput),
    outcome(Domain::status, 422, ExitCode::validation, correctInput),
    outcome(Domain::status, anyCode, ExitCode::serviceError, "try again later"),

    outcome(Domain::sling, SlingErrorKind::malformedURL, ExitCode::usage),
    outcome(Domain::sling, SlingErrorKind::forbiddenHeader, ExitCode::usage,
            "correct the service's headers in the configuration, or obtain a bind: "
            "kestrin-profile bind"),
    outcome(Domain::sling, SlingErrorKind::malformedBody, ExitCode::validation),
    outcome(Domain::sling, SlingErrorKind::malformedReply, ExitCode::serviceError),
    outcome(Domain::sling, SlingErrorKind::tooLarge, ExitCode::serviceError),
    outcome(Domain::sling, SlingErrorKind::redirect, ExitCode::serviceError),
    outcome(Domain::sling, SlingErrorKind::outOfMemory, ExitCode::serviceError),
    outcome(Domain::sling, anyCode, ExitCode::network),

    outcome(Domain::configuration, ConfigurationManagerError::Case::invalidParameters,
            ExitCode::validation, "give the command what it needs; --help says what that is"),
    outcome(Domain::configuration, ConfigurationManagerError::Case::identifierRefused,
            ExitCode::validation),
    outcome(Domain::configuration, anyCode, ExitCode::usage,
            "check the configuration: kestrin-profile config check"),

    outcome(Domain::profile, ProfileError::Case::profileIDValdationFailure, ExitCode::usage),
    outcome(Domain::profile, ProfileError::Case::userInvalidForOperation, ExitCode::validation),
    outcome(Domain::profile, ProfileError::Case::parentInvalidForOperation, ExitCode::validation),

    outcome(Domain::profile, anyCode, ExitCode::serviceError),
    outcome(Domain::other, anyCode, ExitCode::serviceError),
};

Failure failureFor(const std::exception_ptr& error, Domain domain, int code) {
    const auto& found = *std::ranges::find_if(outcomes, [&](const Outcome& each) {
        return each.domain == domain && (each.code == code || each.code == anyCode);
    });
    auto [name, number, message, advice] = KestrinProfile::describe(error);
    if (*found.advice != '\0') advice = found.advice;
    return {found.exitCode, std::move(message), std::move(advice), {}};
}

Failure failureFor(const std::exception_ptr& error, const SlingError& known) {
    const auto status = known.statusCode();
    if (!status) return failureFor(error, Domain::sling, known.code());
    Failure failure = failureFor(error, Domain::status, *status);
    failure.status = status;
    const auto* const problem = known.problem();
    if (problem != nullptr && !problem->detail.empty()) failure.message += ": " + problem->detail;
    return failure;
}

Failure failureFor(const OutboxError& error) {
    const bool isInput = error.value() == OutboxError::Case::invalidWrite;
    return {isInput ? ExitCode::validation : ExitCode::serviceError,
            error.what(),
            std::string(error.advice()),
            {}};
}

}  // namespace

std::vector<std::pair<ExitCode, const char*>> exitCodeMeanings() {
    return {
        {ExitCode::ok, "ok"},
        {ExitCode::serviceError,
         "the service answered, but not with what was asked for; or the output could not be "
         "written; "
         "or the outbox cannot be used"},
        {ExitCode::usage, "the command line or the configuration is wrong"},
        {ExitCode::refused, "the service refuses the caller (401, 403)"},
        {ExitCode::network, "no answer: unreachable, TLS, timeout"},
        {ExitCode::notFound, "the service does not have it (404, or it is not in the list)"},
        {ExitCode::validation,
         "the input is not acceptable (400, 409, 422, or refused by the library)"},
        {ExitCode::notVerified, "the journal of the service does not show what was expected"},
        {ExitCode::interrupted, "interrupted, or a question was not answered with yes"},
    };
}

HalvardSling::JSONDictionary documentOf(const Failure& failure) {
    HalvardSling::JSONDictionary result;
    result.setText("message", failure.message);
    if (!failure.advice.empty()) result.setText("advice", failure.advice);
    if (failure.status) result.setInteger("status", *failure.status);
    result.setInteger("exitCode", static_cast<int>(failure.code));
    return result;
}

Failure describe(const std::exception_ptr& error) {
    return KestrinHousehold::visitError(
        error, [&](const SlingError& known) { return failureFor(error, known); },
        [](const OutboxError& known) { return failureFor(known); },
        [&](const ConfigurationManagerError& known) {
            return failureFor(error, Domain::configuration, known.code());
        },
        [&](const ProfileError& known) { return failureFor(error, Domain::profile, known.code()); },
        [&](const std::exception& other) {
            const auto* const own = dynamic_cast<const CommandError*>(&other);
            return own != nullptr ? own->failure : failureFor(error, Domain::other, 0);
        });
}

}  // namespace KestrinProfileCLI
