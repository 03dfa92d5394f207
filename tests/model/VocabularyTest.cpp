#include <algorithm>
#include <array>
#include <csignal>
#include <exception>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_set>

#include <gmock/gmock.h>

#include <KestrinProfile/model/ListTypes.hpp>
#include <KestrinProfile/model/ProfileError.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>
#include <KestrinProfile/model/Types.hpp>

namespace KestrinProfile {
namespace {

using testing::StartsWith;

template <class Enumeration>
struct Row {
    Enumeration value;
    std::string_view rawValue;
};

constexpr std::array<Row<ProfileOperation>, 23> operations{{
    {ProfileOperation::testOperation, "test-operation-do-not-use"},
    {ProfileOperation::anonymousBind, "personalization-bind-anonymous"},
    {ProfileOperation::validate, "personalization-validator"},
    {ProfileOperation::createProfile, "personalization-create-profile"},
    {ProfileOperation::getProfiles, "personalization-get-profiles"},
    {ProfileOperation::editProfile, "personalization-edit-profile"},
    {ProfileOperation::deleteProfile, "personalization-delete-profile"},
    {ProfileOperation::getHistory, "personalization-history-get"},
    {ProfileOperation::getVideoProgress, "personalization-get-video-history"},
    {ProfileOperation::addVideoToHistory, "personalization-history-add-video"},
    {ProfileOperation::removeVideoFromHistory, "personalization-history-delete-video"},
    {ProfileOperation::clearHistory, "personalization-history-clear"},
    {ProfileOperation::getFavorites, "personalization-favorites-get"},
    {ProfileOperation::addFavoriteShow, "personalization-favorites-add-show"},
    {ProfileOperation::addFavoriteShows, "personalization-favorites-add-shows"},
    {ProfileOperation::removeFavoriteShow, "personalization-favorites-delete-show"},
    {ProfileOperation::clearFavorites, "personalization-favorites-clear"},
    {ProfileOperation::getWatchList, "personalization-watchlist-get"},
    {ProfileOperation::addVideoToWatchList, "personalization-watchlist-add-video"},
    {ProfileOperation::removeFromWatchList, "personalization-watchlist-delete-video"},
    {ProfileOperation::clearWatchList, "personalization-watchlist-clear"},
    {ProfileOperation::addSearchHistory, "personalization-searchhistory-add"},
    {ProfileOperation::deleteSearchHistory, "personalization-searchhistory-delete"},
}};

constexpr std::array<Row<Types>, 5> kinds{{
    {Types::show, "SHOW"},
    {Types::video, "VIDEO"},
    {Types::game, "GAME"},
    {Types::collection, "COLLECTION"},
    {Types::none, "none"},
}};

static_assert(profileOperationCount == operations.size());

TEST(ProfileOperationTest, ConvertsEveryCaseBothWays) {
    for (const auto& row : operations) {
        EXPECT_EQ(rawValue(row.value), row.rawValue);
        EXPECT_EQ(profileOperation(row.rawValue), row.value) << row.rawValue;
    }
}

TEST(ProfileOperationTest, OrdinalIsThePositionAndTheHash) {
    for (std::size_t ordinal = 0; ordinal < operations.size(); ++ordinal) {
        EXPECT_EQ(static_cast<std::size_t>(operations[ordinal].value), ordinal);
        EXPECT_EQ(std::hash<ProfileOperation>()(operations[ordinal].value), ordinal);
    }
}

TEST(TypesTest, ConvertsEveryCaseBothWays) {
    for (const auto& row : kinds) {
        EXPECT_EQ(rawValue(row.value), row.rawValue);
        EXPECT_EQ(types(row.rawValue), row.value) << row.rawValue;
    }
}

TEST(TypesTest, OrdinalIsThePositionAndTheHash) {
    for (std::size_t ordinal = 0; ordinal < kinds.size(); ++ordinal) {
        EXPECT_EQ(static_cast<std::size_t>(kinds[ordinal].value), ordinal);
        EXPECT_EQ(std::hash<Types>()(kinds[ordinal].value), ordinal);
    }
}

/// The text with each letter, in turn, in the other case.
std::set<std::string> inOtherCases(std::string_view text) {
    std::set<std::string> all;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (std::string_view("-").find(text[at]) != std::string_view::npos) continue;
        std::string changed(text);
        changed[at] = static_cast<char>(changed[at] ^ 0x20);
        all.insert(std::move(changed));
    }
    return all;
}

template <class Rows, class Convert>
void expectOnlyExactTexts(const Rows& rows, Convert convert) {
    std::set<std::string> others{""};
    for (const auto& row : rows) {
        const std::string text(row.rawValue);
        others.insert({" " + text, text + " ", text + '\0', text + text, text.substr(1),
                       text.substr(0, text.size() - 1)});
        others.merge(inOtherCases(text));
    }
    for (const auto& row : rows)
        others.erase(std::string(row.rawValue));
    for (const auto& other : others)
        EXPECT_FALSE(convert(other)) << other;
}

TEST(ProfileOperationTest, TakesNoOtherText) {
    expectOnlyExactTexts(operations, [](std::string_view text) { return profileOperation(text); });
}

TEST(TypesTest, TakesNoOtherText) {
    expectOnlyExactTexts(kinds, [](std::string_view text) { return types(text); });
    EXPECT_FALSE(types("NONE"));
    EXPECT_FALSE(types("show"));
    EXPECT_FALSE(types("MOVIE"));
}

TEST(ListTypesTest, GivesTheServicesNames) {
    EXPECT_EQ(ListTypes::watchList().rawValue(), "watchlist");
    EXPECT_EQ(ListTypes::history().rawValue(), "history");
    EXPECT_EQ(ListTypes::favorites().rawValue(), "favorites");
    EXPECT_EQ(ListTypes::searchHistory().rawValue(), "searchhistory");
}

TEST(ListTypesTest, KeepsAFreeNameAsItIs) {
    for (const std::string name : {"", "my list", "watchlist", "\xC3\xA9t\xC3\xA9"}) {
        EXPECT_EQ(ListTypes::list(name).rawValue(), name);
        EXPECT_EQ(ListTypes::list(name).value(), ListTypes::Case::list);
    }
}

TEST(ListTypesTest, KnowsItsCase) {
    EXPECT_EQ(ListTypes::watchList().value(), ListTypes::Case::watchList);
    EXPECT_EQ(ListTypes::history().value(), ListTypes::Case::history);
    EXPECT_EQ(ListTypes::favorites().value(), ListTypes::Case::favorites);
    EXPECT_EQ(ListTypes::searchHistory().value(), ListTypes::Case::searchHistory);
}

static_assert(std::is_same_v<decltype(ListTypes::history().rawValue()), std::string>,
              "the name outlives the list that gave it");

template <class Value>
concept Comparable = requires(const Value& value) { value == value; };
static_assert(!Comparable<ListTypes>, "a free name may be the same text as one of the four");
static_assert(!std::is_constructible_v<ListTypes, std::string>);

struct ErrorRow {
    ProfileError error;
    ProfileError::Case value;
    std::string name;
};

const std::array<ErrorRow, 8> errors{{
    {ProfileError::parameterOperationMismatch, ProfileError::Case::parameterOperationMismatch,
     "parameterOperationMismatch"},
    {ProfileError::anonymousBindUninitialized, ProfileError::Case::anonymousBindUninitialized,
     "anonymousBindUninitialized"},
    {ProfileError::profileIDValdationFailure, ProfileError::Case::profileIDValdationFailure,
     "profileIDValdationFailure"},
    {ProfileError::userInvalidForOperation, ProfileError::Case::userInvalidForOperation,
     "userInvalidForOperation"},
    {ProfileError::parentInvalidForOperation, ProfileError::Case::parentInvalidForOperation,
     "parentInvalidForOperation"},
    {ProfileError::anonymousBindSerializationError,
     ProfileError::Case::anonymousBindSerializationError, "anonymousBindSerializationError"},
    {ProfileError::userProfileSerializationError, ProfileError::Case::userProfileSerializationError,
     "userProfileSerializationError"},
    {ProfileError::userSerializationError, ProfileError::Case::userSerializationError,
     "userSerializationError"},
}};

static_assert(ProfileError::caseCount == errors.size());

// What a name gives is the error itself: nobody throws or converts a bare enumerator by mistake.
static_assert(std::is_same_v<decltype(ProfileError::userSerializationError), const ProfileError>);
static_assert(!std::is_convertible_v<ProfileError::Case, int>);
static_assert(!std::is_convertible_v<ProfileError::Case, ProfileError>);
static_assert(!std::is_convertible_v<ProfileError, int>);
static_assert(!std::is_convertible_v<int, ProfileError>);

/// Whether `raise` with an error finds a function: that of the C library, which ends the process.
template <class Error>
concept IsRaisedAsASignal = requires(Error error) { ::raise(error); };
static_assert(IsRaisedAsASignal<int>);
static_assert(!IsRaisedAsASignal<ProfileError> && !IsRaisedAsASignal<ProfileError::Case>);

TEST(ProfileErrorTest, CodeIsThePosition) {
    for (std::size_t position = 0; position < errors.size(); ++position) {
        const auto& [error, value, name] = errors[position];
        EXPECT_EQ(error.code(), static_cast<int>(position));
        EXPECT_EQ(error.value(), value);
        EXPECT_EQ(std::hash<ProfileError>()(error), position);
        EXPECT_EQ(ProfileError::domain(), "KestrinProfile.ProfileError");
        EXPECT_THAT(error.what(), StartsWith(name + ": "));
        EXPECT_NE(error.advice(), "");
    }
    EXPECT_EQ(ProfileError::userSerializationError.code(), 7);
    EXPECT_EQ(ProfileError::parameterOperationMismatch.code(), 0);
}

TEST(ProfileErrorTest, EqualsOnlyItself) {
    for (const auto& left : errors)
        for (const auto& right : errors)
            EXPECT_EQ(left.error == ProfileError(right.value), &left == &right);
}

TEST(ProfileErrorTest, IsThrownByItsNameAsAnException) {
    try {
        throw ProfileError::parentInvalidForOperation;
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), ProfileError::parentInvalidForOperation.what());
    }
    EXPECT_THROW(throw ProfileError::userSerializationError, ProfileError);
}

/// Initialised before any function runs.
const ProfileError early = ProfileError::userProfileSerializationError;

TEST(ProfileErrorTest, IsThereWhileTheProgramStarts) {
    EXPECT_EQ(early.value(), ProfileError::Case::userProfileSerializationError);
}

}  // namespace
}  // namespace KestrinProfile
