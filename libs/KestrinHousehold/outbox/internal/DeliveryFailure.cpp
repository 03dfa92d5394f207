#include <algorithm>
#include <cstddef>
#include <string_view>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinHousehold/outbox/internal/DeliveryFailure.hpp>
#include <KestrinHousehold/retry/internal/RetryAfter.hpp>
#include <KestrinProfile/model/ProfileError.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>
#include <KestrinProfile/service/Error.hpp>

namespace KestrinHousehold::internal {

using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinProfile::ProfileError;
using Kind = DeliveryFailure::Kind;

namespace {

/// Whether a word may be a token that the service repeats.
bool mayBeToken(std::string_view word) {
    constexpr std::size_t longestWord = 40;
    constexpr std::size_t shortestToken = 16;
    return word.size() > longestWord ||
           (word.size() >= shortestToken &&
            word.find_first_of("0123456789") != std::string_view::npos);
}

/// A text of the service, cut between characters, and without what may be a token.
std::string shown(std::string_view text, std::size_t most) {
    std::string result;
    while (!text.empty() && result.size() < most) {
        const auto end = std::min(text.find(' '), text.size());
        if (mayBeToken(text.substr(0, end)))
            result += "…";
        else
            result += text.substr(0, end);
        const bool hasMore = end < text.size();
        if (hasMore) result += ' ';
        text.remove_prefix(hasMore ? end + 1 : end);
    }
    if (result.size() <= most) return result;
    auto end = most;  // No word is so long that this would reach the text's begin.
    while ((static_cast<unsigned char>(result[end]) & 0xC0U) == 0x80U)
        --end;
    return result.substr(0, end);
}

Kind kindOf(int status, bool isOfBind) {
    if (status == 401 || status == 403) return Kind::needsBind;
    if (status < 400 || status >= 500 || status == 408 || status == 429) return Kind::passing;
    if (isOfBind) return Kind::needsBind;
    return status == 404 ? Kind::absent : Kind::refusal;
}

Kind kindOf(SlingErrorKind kind) {
    switch (kind) {
        case SlingErrorKind::malformedURL:
        case SlingErrorKind::forbiddenHeader:
        case SlingErrorKind::malformedBody:
            return Kind::refusal;
        default:
            return Kind::passing;
    }
}

Kind kindOf(ConfigurationManagerError::Case reason) {
    switch (reason) {
        case ConfigurationManagerError::Case::serviceDisabled:
        case ConfigurationManagerError::Case::serviceNotConfigured:
            return Kind::passing;
        default:
            return Kind::refusal;
    }
}

DeliveryFailure failureOf(const SlingError& error, Scheduler::WallTime now) {
    constexpr std::size_t mostOfTitle = 200;
    constexpr std::size_t mostOfDetail = 1000;
    DeliveryFailure failure;
    failure.refusal = {now, error.statusCode().value_or(0), std::string(name(error.kind())),
                       std::string(advice(error.kind()))};
    failure.text = error.what();
    const auto* const reply = error.reply();
    if (reply == nullptr) {
        failure.kind = kindOf(error.kind());
        return failure;
    }
    const auto* const context = error.context();
    const bool isOfBind =
        context != nullptr &&
        context->operation == rawValue(KestrinProfile::ProfileOperation::anonymousBind);
    failure.kind = kindOf(failure.refusal.status, isOfBind);
    if (const auto* const problem = error.problem()) {
        failure.refusal.title = shown(problem->title, mostOfTitle);
        failure.refusal.detail = shown(problem->detail, mostOfDetail);
    }
    failure.headers = reply->headers;
    failure.retryAfter = retryAfter(reply->headers, now);
    return failure;
}

}  // namespace

DeliveryFailure deliveryFailure(const std::exception_ptr& error, Scheduler::WallTime now) {
    return KestrinProfile::visitError(
        error, [&](const SlingError& known) { return failureOf(known, now); },
        [&](const ConfigurationManagerError& known) {
            DeliveryFailure failure;
            failure.kind = kindOf(known.value());
            failure.refusal = {now, 0, "not to be sent", std::string(known.advice())};
            failure.text = known.what();
            return failure;
        },
        [&](const ProfileError& known) {
            DeliveryFailure failure;
            const bool isOfBind = known == ProfileError::anonymousBindSerializationError;
            failure.kind = isOfBind ? Kind::needsBind : Kind::passing;
            failure.refusal.at = now;
            failure.text = known.what();
            return failure;
        },
        [&](const std::exception& other) {
            DeliveryFailure failure;
            failure.refusal.at = now;
            failure.text = other.what();
            return failure;
        });
}

}  // namespace KestrinHousehold::internal
