#include <memory>
#include <optional>
#include <set>
#include <string>
#include <type_traits>

#include <gmock/gmock.h>

#include <KestrinConfigManager/APIParams.hpp>
#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinConfigManager/Archivable.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinConfigManager/Serializable.hpp>

namespace {

using KestrinConfigManager::APIParams;
using KestrinConfigManager::ConfigurationManagerError;
using testing::HasSubstr;

struct SilentRecord final : APIParams {};

TEST(APIParams, ARecordThatSaysNothingHasDefaults) {
    const std::unique_ptr<const APIParams> record = std::make_unique<SilentRecord>();
    EXPECT_EQ(record->headers(), std::nullopt);
    EXPECT_FALSE(record->dictionaryRepresentation().has_value());
    EXPECT_EQ(record->urlEncodedString(), std::nullopt);
    EXPECT_TRUE(record->hasValidParams());
    EXPECT_EQ(record->URLMapping(), std::nullopt);
    EXPECT_EQ(record->queryParameters(), std::nullopt);
    EXPECT_FALSE(record->removeUserAgent());
}

struct ReplyOnly : KestrinConfigManager::Serializable {
    static std::optional<ReplyOnly> fromJSON(const HalvardSling::JSONDictionary&) {
        return ReplyOnly{};
    }
};
static_assert(KestrinConfigManager::SerializableRecord<ReplyOnly>);
static_assert(KestrinConfigManager::SerializableRecord<KestrinConfigManager::AnonymousBind>);
static_assert(KestrinConfigManager::Archivable<KestrinConfigManager::AnonymousBind>);
static_assert(!KestrinConfigManager::Archivable<ReplyOnly>);

TEST(Serializable, ARecordThatIsNeverSentHasNoRequestForm) {
    EXPECT_FALSE(ReplyOnly().serialized().has_value());
}

using Error = ConfigurationManagerError;

static_assert(std::is_nothrow_copy_constructible_v<Error>);

// A reason is neither a number nor an error, and the short name of a reason is the error itself.
static_assert(!std::is_convertible_v<Error::Case, int>);
static_assert(!std::is_convertible_v<Error::Case, Error>);
static_assert(std::is_same_v<decltype(Error::serviceNotConfigured), const Error>);

TEST(ConfigurationManagerError, CodesAreThePositionsOfTheCases) {
    EXPECT_EQ(Error::invalidParameters.code(), 0);
    EXPECT_EQ(Error::serviceDisabled.code(), 1);
    EXPECT_EQ(Error::placeholderUnfilled.code(), 2);
    EXPECT_EQ(Error::serviceNotConfigured.code(), 3);
    EXPECT_EQ(Error::identifierRefused.code(), 4);
}

TEST(ConfigurationManagerError, TheNameOfAReasonIsThrownAsTheError) {
    try {
        throw Error::identifierRefused;
    } catch (const Error& error) {
        EXPECT_EQ(error.value(), Error::Case::identifierRefused);
    }
}

TEST(ConfigurationManagerError, SaysWhatTheCallerShouldDo) {
    EXPECT_EQ(Error::serviceNotConfigured.advice(), "load a configuration that has it");
    EXPECT_EQ(Error(Error::Case::serviceDisabled, "history-get").advice(),
              "do without the operation");
}

TEST(ConfigurationManagerError, HasADomain) {
    EXPECT_EQ(ConfigurationManagerError::domain(),
              "KestrinConfigManager.ConfigurationManagerError");
}

TEST(ConfigurationManagerError, TheReasonAloneDecidesEquality) {
    EXPECT_EQ(Error(Error::Case::serviceDisabled, "a", "b"), Error::serviceDisabled);
    EXPECT_NE(Error::serviceDisabled, Error::invalidParameters);
}

TEST(ConfigurationManagerError, TheTextSaysWhatAndWhereAndWhatToDo) {
    const ConfigurationManagerError error(Error::Case::placeholderUnfilled, "history-get",
                                          "%UXID%");
    EXPECT_STREQ(error.what(),
                 "placeholderUnfilled in \"history-get\": the parameters have no value for a "
                 "placeholder of the service's URL (%UXID%); use a template whose placeholders the "
                 "operation fills");
}

TEST(ConfigurationManagerError, WithoutOperationAndDetailTheTextLeavesThemOut) {
    EXPECT_STREQ(Error::serviceDisabled.what(),
                 "serviceDisabled: the configuration switches the service off; do without the "
                 "operation");
}

TEST(ConfigurationManagerError, EveryReasonHasATextOfItsOwn) {
    std::set<std::string> texts;
    for (int code = 0; code < 5; ++code)
        texts.insert(
            ConfigurationManagerError(static_cast<ConfigurationManagerError::Case>(code)).what());
    EXPECT_EQ(texts.size(), 5U);
}

TEST(ConfigurationManagerError, ACopyKeepsTheText) {
    std::optional<ConfigurationManagerError> error(std::in_place, Error::Case::serviceDisabled,
                                                   "history-get");
    const ConfigurationManagerError copy = *error;
    error.reset();
    EXPECT_THAT(copy.what(), HasSubstr("history-get"));
}

}  // namespace
