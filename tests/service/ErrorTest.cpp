#include <exception>
#include <map>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinProfile/model/ProfileError.hpp>
#include <KestrinProfile/service/Error.hpp>

#include "support/Allocations.hpp"

namespace KestrinProfile {
namespace {

using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using KestrinConfigManager::ConfigurationManagerError;
using testing::HasSubstr;

template <class Error>
ErrorDescription descriptionOf(const Error& error) {
    return describe(std::make_exception_ptr(error));
}

TEST(DescribeTest, AnErrorOfTheLibrarySaysAllByItself) {
    const auto error = ProfileError::parentInvalidForOperation;
    EXPECT_EQ(descriptionOf(error), (ErrorDescription{"KestrinProfile.ProfileError", 4,
                                                      error.what(), std::string(error.advice())}));
}

TEST(DescribeTest, AnErrorOfThePlatformHasTheSameShape) {
    const auto configuration = descriptionOf(
        ConfigurationManagerError(ConfigurationManagerError::Case::serviceNotConfigured, "op"));
    EXPECT_EQ(configuration.domain, "KestrinConfigManager.ConfigurationManagerError");
    EXPECT_EQ(configuration.code, 3);
    EXPECT_THAT(configuration.message, HasSubstr("op"));
    EXPECT_NE(configuration.advice, "");

    const auto network = descriptionOf(SlingError(SlingErrorKind::tls, "no trust"));
    EXPECT_EQ(network.domain, "HalvardSling.SlingError");
    EXPECT_EQ(network.code, static_cast<int>(SlingErrorKind::tls));
    EXPECT_THAT(network.message, HasSubstr("no trust"));
    EXPECT_NE(network.advice, "");
}

TEST(DescribeTest, DescriptionsAreEqualIfAllTheirPartsAre) {
    const ErrorDescription description{"domain", 1, "message", "advice"};
    EXPECT_EQ(description, (ErrorDescription{"domain", 1, "message", "advice"}));
    EXPECT_NE(description, (ErrorDescription{"other", 1, "message", "advice"}));
    EXPECT_NE(description, (ErrorDescription{"domain", 2, "message", "advice"}));
    EXPECT_NE(description, (ErrorDescription{"domain", 1, "other", "advice"}));
    EXPECT_NE(description, (ErrorDescription{"domain", 1, "message", "other"}));
}

TEST(DescribeTest, AnyOtherExceptionHasADomainAndItsText) {
    EXPECT_EQ(descriptionOf(std::runtime_error("broken")),
              (ErrorDescription{"std.exception", 0, "broken", ""}));
    EXPECT_EQ(descriptionOf(std::bad_alloc()),
              (ErrorDescription{"std.bad_alloc", 0, std::bad_alloc().what(), ""}));
}

TEST(DescribeTest, WhatIsNoExceptionIsUnknown) {
    const ErrorDescription unknown{"unknown", 0, "an unknown error", ""};
    EXPECT_EQ(descriptionOf(7), unknown);
    EXPECT_EQ(describe(nullptr), unknown);
}

TEST(DescribeTest, NeverFailsAlsoWithoutMemory) {
    const auto error = std::make_exception_ptr(std::runtime_error(std::string(1000, 'x')));
    const TestSupport::FailingAllocations failing(TestSupport::Failing::allFrom, 1);
    const ErrorDescription description = describe(error);
    failing.end();
    EXPECT_EQ(description, (ErrorDescription{"std.bad_alloc", 0, "out of memory", ""}));
    static_assert(noexcept(describe(error)));
}

template <class Error>
ErrorNotice noticeOf(const Error& error) {
    return whatToShow(std::make_exception_ptr(error));
}

TEST(WhatToShowTest, IsDecidedForEachKindOfNetworkError) {
    using enum SlingErrorKind;
    const std::map<SlingErrorKind, ErrorNotice> table{
        {httpStatus, ErrorNotice::mendInput},  // here: 422
        {cannotConnect, ErrorNotice::serviceDown},
        {nameNotResolved, ErrorNotice::noNetwork},
        {tls, ErrorNotice::notSecure},
        {connectTimeout, ErrorNotice::noNetwork},
        {totalTimeout, ErrorNotice::serviceDown},
        {connectionLost, ErrorNotice::noNetwork},
        {tooLarge, ErrorNotice::broken},
        {malformedURL, ErrorNotice::mendInput},
        {forbiddenHeader, ErrorNotice::broken},
        {malformedReply, ErrorNotice::broken},
        {redirect, ErrorNotice::broken},
        {cancelled, ErrorNotice::nothing},
        {outOfMemory, ErrorNotice::broken},
        {malformedBody, ErrorNotice::mendInput},
    };
    EXPECT_EQ(table.size(), static_cast<std::size_t>(malformedBody) + 1);
    for (const auto& [kind, notice] : table)
        EXPECT_EQ(kind == httpStatus ? noticeOf(SlingError::httpStatus(422, "", {}))
                                     : noticeOf(SlingError(kind, "")),
                  notice)
            << name(kind);
}

TEST(WhatToShowTest, OfAKindThatALaterVersionMayHaveIsUnknown) {
    const auto later = static_cast<SlingErrorKind>(1000);
    EXPECT_EQ(noticeOf(SlingError(later, "")), ErrorNotice::unknown);
}

TEST(WhatToShowTest, OfAStatusThatNobodyNamesIsThatTheServiceIsDown) {
    EXPECT_EQ(noticeOf(SlingError(SlingErrorKind::httpStatus, "")), ErrorNotice::serviceDown);
}

TEST(WhatToShowTest, IsDecidedForEachStatus) {
    const std::map<int, ErrorNotice> table{
        {401, ErrorNotice::signInAgain}, {402, ErrorNotice::notAllowed},
        {403, ErrorNotice::notAllowed},  {451, ErrorNotice::notAllowed},
        {405, ErrorNotice::broken},      {406, ErrorNotice::broken},
        {415, ErrorNotice::broken},      {426, ErrorNotice::broken},
        {431, ErrorNotice::broken},      {501, ErrorNotice::broken},
        {505, ErrorNotice::broken},      {407, ErrorNotice::noNetwork},
        {511, ErrorNotice::noNetwork},   {408, ErrorNotice::serviceDown},
        {425, ErrorNotice::serviceDown}, {429, ErrorNotice::serviceDown},
    };
    for (int status = 400; status < 600; ++status) {
        const auto known = table.find(status);
        const auto other = status < 500 ? ErrorNotice::mendInput : ErrorNotice::serviceDown;
        EXPECT_EQ(noticeOf(SlingError::httpStatus(status, "", {})),
                  known == table.end() ? other : known->second)
            << status;
    }
}

TEST(WhatToShowTest, IsDecidedForEachErrorOfTheLibrary) {
    using enum ProfileError::Case;
    const std::map<ProfileError::Case, ErrorNotice> table{
        {parameterOperationMismatch, ErrorNotice::broken},
        {anonymousBindUninitialized, ErrorNotice::signInAgain},
        {profileIDValdationFailure, ErrorNotice::mendInput},
        {userInvalidForOperation, ErrorNotice::mendInput},
        {parentInvalidForOperation, ErrorNotice::notAllowed},
        {anonymousBindSerializationError, ErrorNotice::broken},
        {userProfileSerializationError, ErrorNotice::broken},
        {userSerializationError, ErrorNotice::broken},
    };
    EXPECT_EQ(table.size(), std::size_t{ProfileError::caseCount});
    for (const auto& [value, notice] : table)
        EXPECT_EQ(noticeOf(ProfileError(value)), notice) << ProfileError(value).what();
}

TEST(WhatToShowTest, IsDecidedForEachErrorOfTheConfiguration) {
    using enum ConfigurationManagerError::Case;
    const std::map<ConfigurationManagerError::Case, ErrorNotice> table{
        {invalidParameters, ErrorNotice::mendInput}, {serviceDisabled, ErrorNotice::serviceDown},
        {placeholderUnfilled, ErrorNotice::broken},  {serviceNotConfigured, ErrorNotice::broken},
        {identifierRefused, ErrorNotice::mendInput},
    };
    EXPECT_EQ(table.size(), static_cast<std::size_t>(identifierRefused) + 1);
    for (const auto& [value, notice] : table)
        EXPECT_EQ(noticeOf(ConfigurationManagerError(value)), notice);
}

TEST(WhatToShowTest, IsDecidedForWhatElseThereIs) {
    EXPECT_EQ(noticeOf(std::bad_alloc()), ErrorNotice::broken);
    EXPECT_EQ(noticeOf(std::runtime_error("")), ErrorNotice::unknown);
    EXPECT_EQ(noticeOf(7), ErrorNotice::unknown);
    EXPECT_EQ(whatToShow(nullptr), ErrorNotice::unknown);
    static_assert(noexcept(whatToShow(nullptr)));
}

TEST(WhatToShowTest, HasAName) {
    EXPECT_EQ(name(ErrorNotice::nothing), "nothing");
    EXPECT_EQ(name(ErrorNotice::notSecure), "notSecure");
    EXPECT_EQ(name(ErrorNotice::unknown), "unknown");
    EXPECT_EQ(name(ErrorNotice::noSpace), "noSpace");
    EXPECT_EQ(name(static_cast<ErrorNotice>(static_cast<int>(ErrorNotice::noSpace) + 1)),
              "unknown");
}

/// Which handler an error reaches.
template <class Error>
std::string_view handlerOf(const Error& error) {
    return visitError(
        std::make_exception_ptr(error), [](const ProfileError&) { return "ProfileError"; },
        [](const ConfigurationManagerError&) { return "ConfigurationManagerError"; },
        [](const SlingError&) { return "SlingError"; },
        [](const std::exception&) { return "std::exception"; });
}

TEST(VisitErrorTest, TheMostExactHandlerGetsTheError) {
    EXPECT_EQ(handlerOf(ProfileError::userSerializationError), "ProfileError");
    EXPECT_EQ(
        handlerOf(ConfigurationManagerError(ConfigurationManagerError::Case::serviceDisabled)),
        "ConfigurationManagerError");
    EXPECT_EQ(handlerOf(SlingError(SlingErrorKind::tls, "")), "SlingError");
    EXPECT_EQ(handlerOf(std::logic_error("")), "std::exception");
    EXPECT_EQ(handlerOf("a text"), "std::exception");
}

TEST(VisitErrorTest, AHandlerForAllTakesWhatHasNoHandlerOfItsOwn) {
    const auto text = [](const auto& error) {
        return visitError(
            std::make_exception_ptr(error), [](const SlingError&) { return std::string("reply"); },
            [](const std::exception& other) { return std::string(other.what()); });
    };
    EXPECT_EQ(text(SlingError(SlingErrorKind::tls, "")), "reply");
    EXPECT_EQ(text(ProfileError::userSerializationError),
              ProfileError::userSerializationError.what());
    EXPECT_EQ(text(7), UnknownError().what());
}

TEST(VisitErrorTest, AHandlerMayKeepStateAndThrow) {
    const auto state = std::make_shared<std::vector<int>>();
    const auto error = std::make_exception_ptr(ProfileError::userSerializationError);
    EXPECT_THROW(visitError(error,
                            [state](const std::exception&) {
                                state->push_back(1);
                                throw std::logic_error("of the handler");
                            }),
                 std::logic_error);
    EXPECT_EQ(*state, std::vector{1});
}

}  // namespace
}  // namespace KestrinProfile
