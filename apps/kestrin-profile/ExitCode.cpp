#include "ExitCode.hpp"

#include <algorithm>
#include <array>

#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinProfile/model/ProfileError.hpp>
#include <KestrinProfile/service/Error.hpp>

namespace KestrinProfileCLI {

using HalvardSling::JSONDictionary;
using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinProfile::ProfileError;

namespace {

template <class Key>
struct Rule {
    Key key;
    ExitCode code;
    const char* advice;
};

constexpr Rule<int> anyOtherStatus{0, ExitCode::serviceError, "try again later"};

constexpr std::array statusRules{
    Rule<int>{400, ExitCode::validation, "correct what the service names"},
    Rule<int>{401, ExitCode::refused,
              "check the service's headers in the configuration, or obtain a bind: "
              "kestrin-profile bind"},
    Rule<int>{403, ExitCode::refused,
              "the profile that acts is blocked or may not do this: name another with --profile"},
    Rule<int>{404, ExitCode::notFound, "check the identifier, and the service's URL"},
    Rule<int>{409, ExitCode::validation, "correct what the service names"},
    Rule<int>{422, ExitCode::validation, "correct what the service names"},
};

constexpr Rule<SlingErrorKind> anyOtherKind{SlingErrorKind::httpStatus, ExitCode::network,
                                            "check the network and the service, then try again"};

constexpr std::array kindRules{
    Rule<SlingErrorKind>{
        SlingErrorKind::malformedURL, ExitCode::usage,
        "correct what the message names, or the service's URL in the configuration"},
    Rule<SlingErrorKind>{SlingErrorKind::forbiddenHeader, ExitCode::usage,
                         "correct the service's headers in the configuration, or bind anew"},
    Rule<SlingErrorKind>{SlingErrorKind::malformedBody, ExitCode::validation,
                         "correct the text that the message names"},
    Rule<SlingErrorKind>{SlingErrorKind::malformedReply, ExitCode::serviceError,
                         "check that the configuration's URL is the personalization service's"},
    Rule<SlingErrorKind>{SlingErrorKind::tooLarge, ExitCode::serviceError,
                         "raise \"maxBodyBytes\" in the configuration"},
    Rule<SlingErrorKind>{SlingErrorKind::redirect, ExitCode::serviceError,
                         "set \"maxRedirects\" in the configuration if the redirect is wanted"},
    Rule<SlingErrorKind>{SlingErrorKind::tls, ExitCode::network,
                         "check the service's certificate and this machine's clock"},
};

using Refusal = ConfigurationManagerError::Case;

constexpr Rule<Refusal> anyOtherRefusal{Refusal::serviceNotConfigured, ExitCode::usage,
                                        "check the configuration: kestrin-profile config check"};

constexpr std::array refusalRules{
    Rule<Refusal>{Refusal::invalidParameters, ExitCode::validation,
                  "give the command what it needs; --help says what that is"},
    Rule<Refusal>{
        Refusal::identifierRefused, ExitCode::validation,
        "name another identifier, or set \"strictIdentifiers\" to false in the configuration"},
};

constexpr Rule<ProfileError::Case> anyOtherProfileError{
    ProfileError::Case::parameterOperationMismatch, ExitCode::serviceError, ""};

constexpr std::array profileRules{
    Rule<ProfileError::Case>{ProfileError::Case::profileIDValdationFailure, ExitCode::usage,
                             "name a profile"},
    Rule<ProfileError::Case>{ProfileError::Case::userInvalidForOperation, ExitCode::validation,
                             "name a profile that exists"},
    Rule<ProfileError::Case>{ProfileError::Case::parentInvalidForOperation, ExitCode::validation,
                             "name another profile"},
};

template <class Key, std::size_t Count>
const Rule<Key>& ruleFor(const std::array<Rule<Key>, Count>& rules, Key key,
                         const Rule<Key>& otherwise) {
    const auto found = std::ranges::find(rules, key, &Rule<Key>::key);
    return found == rules.end() ? otherwise : *found;
}

Failure describeSlingError(const SlingError& error) {
    if (const auto status = error.statusCode()) {
        const auto& rule = ruleFor(statusRules, *status, anyOtherStatus);
        const std::string reason = reasonOf(error);
        return {rule.code, error.what() + (reason.empty() ? reason : ": " + reason), rule.advice};
    }
    const auto& rule = ruleFor(kindRules, error.kind(), anyOtherKind);
    return {rule.code, error.what(), rule.advice};
}

}  // namespace

const std::vector<ExitCodeMeaning>& exitCodeMeanings() {
    static const std::vector<ExitCodeMeaning> all{
        {ExitCode::ok, "ok"},
        {ExitCode::serviceError, "the service answered, but not with what was asked for"},
        {ExitCode::usage, "the command line or the configuration is wrong"},
        {ExitCode::refused, "the service refuses the caller (401, 403)"},
        {ExitCode::network, "no answer: unreachable, TLS, timeout"},
        {ExitCode::notFound, "the service does not have it (404, or it is not in the list)"},
        {ExitCode::validation, "the input is not acceptable (400, 409, 422)"},
        {ExitCode::interrupted, "interrupted, or a question was not answered with yes"},
    };
    return all;
}

std::string reasonOf(const SlingError& error) {
    if (error.reply() == nullptr) return {};
    const auto parsed = JSONDictionary::parse(error.reply()->body);
    const auto* const problem = std::get_if<JSONDictionary>(&parsed);
    if (problem == nullptr) return {};
    return std::string(problem->text("detail").value_or(""));
}

Failure describe(const std::exception_ptr& error) {
    return KestrinProfile::visitError(
        error, [](const SlingError& reply) { return describeSlingError(reply); },
        [](const ConfigurationManagerError& refusal) {
            const auto& rule = ruleFor(refusalRules, refusal.value(), anyOtherRefusal);
            return Failure{rule.code, refusal.what(), rule.advice};
        },
        [](const ProfileError& refusal) {
            const auto& rule = ruleFor(profileRules, refusal.value(), anyOtherProfileError);
            return Failure{rule.code, refusal.what(), rule.advice};
        },
        [](const std::exception& other) {
            const auto* const own = dynamic_cast<const CommandError*>(&other);
            return own != nullptr ? own->failure
                                  : Failure{ExitCode::serviceError, other.what(), {}};
        });
}

}  // namespace KestrinProfileCLI
