#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinHousehold/outbox/internal/DeliveryFailure.hpp>
#include <KestrinProfile/model/ProfileError.hpp>

#include "OutboxSupport.hpp"

using namespace HouseholdTest;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinHousehold::internal::DeliveryFailure;
using KestrinHousehold::internal::deliveryFailure;
using KestrinProfile::ProfileError;
using testing::HasSubstr;

namespace {

using FailureKind = DeliveryFailure::Kind;

constexpr Scheduler::WallTime now = Scheduler::WallTime(std::chrono::seconds(1'700'000'000));

DeliveryFailure failureOf(const auto& error) {
    return deliveryFailure(std::make_exception_ptr(error), now);
}

SlingError problem(std::string title, std::string detail) {
    HalvardSling::ProblemDocument document;
    document.title = std::move(title);
    document.detail = std::move(detail);
    return SlingError::httpStatus(400, "https://x", {}, document);
}

TEST(DeliveryFailure, aStatusSaysWhatBecomesOfAnEntry) {
    const std::pair<int, FailureKind> rows[] = {
        {302, FailureKind::passing},   {400, FailureKind::refusal}, {401, FailureKind::needsBind},
        {403, FailureKind::needsBind}, {404, FailureKind::absent},  {408, FailureKind::passing},
        {409, FailureKind::refusal},   {429, FailureKind::passing}, {499, FailureKind::refusal},
        {500, FailureKind::passing},   {503, FailureKind::passing}, {599, FailureKind::passing}};
    for (const auto& [code, kind] : rows) {
        const auto failure = deliveryFailure(status(code), now);
        EXPECT_EQ(failure.kind, kind) << code;
        EXPECT_EQ(failure.refusal.status, code);
        EXPECT_EQ(failure.refusal.at, now);
        EXPECT_EQ(failure.refusal.title, "Title");
        EXPECT_EQ(failure.refusal.detail, "the detail");
    }
}

TEST(DeliveryFailure, anEntryWaitsForABindThatTheServiceRefuses) {
    for (const auto& [code, kind] : {std::pair{404, FailureKind::needsBind},
                                     {400, FailureKind::needsBind},
                                     {429, FailureKind::passing},
                                     {503, FailureKind::passing}}) {
        const auto error =
            SlingError::httpStatus(code, "https://x", {})
                .with({std::string(rawValue(Op::anonymousBind)), "POST", "/v1/binds", "id"});
        EXPECT_EQ(failureOf(error).kind, kind) << code;
        const auto other = SlingError::httpStatus(code, "https://x", {})
                               .with({std::string(rawValue(Op::clearHistory)), "PUT", "/", "id"});
        EXPECT_EQ(failureOf(other).kind == FailureKind::needsBind, false) << code;
    }
}

TEST(DeliveryFailure, whatNeverReachedTheServiceIsTriedAgainUnlessItNeverCan) {
    for (int code = 0; code <= static_cast<int>(SlingErrorKind::malformedBody); ++code) {
        const auto kind = static_cast<SlingErrorKind>(code);
        if (kind == SlingErrorKind::httpStatus) continue;
        const bool isForGood = kind == SlingErrorKind::malformedURL ||
                               kind == SlingErrorKind::forbiddenHeader ||
                               kind == SlingErrorKind::malformedBody;
        const auto failure = failureOf(SlingError(kind, "the detail"));
        EXPECT_EQ(failure.kind, isForGood ? FailureKind::refusal : FailureKind::passing) << code;
        EXPECT_EQ(failure.refusal.status, 0);
        EXPECT_EQ(failure.refusal.title, name(kind));
        EXPECT_THAT(failure.text, HasSubstr("the detail"));
    }
}

TEST(DeliveryFailure, aServiceThatIsSwitchedOffMayBeSwitchedOnAgain) {
    using Case = ConfigurationManagerError::Case;
    const std::pair<Case, FailureKind> rows[] = {{Case::invalidParameters, FailureKind::refusal},
                                                 {Case::serviceDisabled, FailureKind::passing},
                                                 {Case::placeholderUnfilled, FailureKind::refusal},
                                                 {Case::serviceNotConfigured, FailureKind::passing},
                                                 {Case::identifierRefused, FailureKind::refusal}};
    for (const auto& [reason, kind] : rows) {
        const auto failure = failureOf(ConfigurationManagerError(reason, "operation", "detail"));
        EXPECT_EQ(failure.kind, kind) << static_cast<int>(reason);
        EXPECT_EQ(failure.refusal.title, "not to be sent");
    }
}

TEST(DeliveryFailure, aReplyThatCannotBeReadIsTriedAgain) {
    EXPECT_EQ(failureOf(ProfileError::userProfileSerializationError).kind, FailureKind::passing);
    EXPECT_EQ(failureOf(ProfileError::anonymousBindSerializationError).kind,
              FailureKind::needsBind);
    const auto other = failureOf(std::runtime_error("somebody else's"));
    EXPECT_EQ(other.kind, FailureKind::passing);
    EXPECT_EQ(other.text, "somebody else's");
    EXPECT_EQ(other.refusal.at, now);
}

TEST(DeliveryFailure, theServiceSaysHowLongToWait) {
    const auto failure = deliveryFailure(status(503, {{"Retry-After", "7"}}), now);
    EXPECT_EQ(failure.retryAfter, 7s);
    EXPECT_EQ(failure.headers.size(), 1U);
    EXPECT_EQ(deliveryFailure(status(503), now).retryAfter, std::nullopt);
}

TEST(DeliveryFailure, wordsThatMayBeTokensAreLeftOut) {
    const auto shown = [](const std::string& text) {
        return failureOf(problem("", text)).refusal.detail;
    };
    EXPECT_EQ(shown("token abcdefghijklmno1 is old"), "token … is old");
    EXPECT_EQ(shown("token abcdefghijklmn1 is old"), "token abcdefghijklmn1 is old");
    EXPECT_EQ(shown("incomprehensibilities are words"), "incomprehensibilities are words");
    EXPECT_EQ(shown(std::string(40, 'a')), std::string(40, 'a'));
    EXPECT_EQ(shown(std::string(41, 'a')), "…");
    EXPECT_EQ(shown("ends with a space "), "ends with a space ");
}

TEST(DeliveryFailure, longTextsAreCutBetweenCharacters) {
    // Wherever a cut falls in a character of three bytes.
    for (const char* const before : {"", "a", "aa"}) {
        std::string text = before;
        while (text.size() < 1500)
            text += "日本語 ";
        const auto detail = failureOf(problem("", text)).refusal.detail;
        EXPECT_EQ(text.find(detail), 0U);
        EXPECT_GT(detail.size(), 996U);
        EXPECT_NE(static_cast<unsigned char>(text[detail.size()]) & 0xC0U, 0x80U) << before;
    }
    std::string words;
    while (words.size() < 1500)
        words += "žluťoučký ";
    const auto refusal = failureOf(problem(words, words)).refusal;
    EXPECT_LE(refusal.title.size(), 200U);
    EXPECT_GT(refusal.title.size(), 196U);
    EXPECT_LE(refusal.detail.size(), 1000U);
    EXPECT_GT(refusal.detail.size(), 996U);
    for (const auto& text : {refusal.title, refusal.detail}) {
        EXPECT_EQ(words.find(text), 0U);
        // The next byte of the whole text begins a character.
        EXPECT_NE(static_cast<unsigned char>(words[text.size()]) & 0xC0U, 0x80U);
    }
}

}  // namespace
