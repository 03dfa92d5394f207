#include <exception>
#include <string_view>
#include <typeinfo>

#include <gtest/gtest.h>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinProfile/model/ProfileError.hpp>

#include "ThrowingLibrary.hpp"

namespace {

using HalvardSling::SlingError;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinProfile::ProfileError;

/// Whether what is thrown is caught as this type, not only as its base, and is exactly it.
template <class Error, class Thrower>
bool isCaughtAs(Thrower thrower) {
    try {
        thrower();
    } catch (const Error& error) {
        return typeid(error) == typeid(Error);
    } catch (const std::exception&) {
        return false;
    }
    return false;
}

TEST(ErrorsAcrossSharedLibraries, AProfileErrorIsCaughtAsItselfForEveryCase) {
    for (int code = 0; code < ProfileError::caseCount; ++code) {
        EXPECT_TRUE(isCaughtAs<ProfileError>([&] { throwProfileError(code); })) << code;
        try {
            throwProfileError(code);
        } catch (const ProfileError& error) {
            EXPECT_EQ(error.code(), code);
            EXPECT_NE(std::string_view(error.what()), "");
        }
    }
}

TEST(ErrorsAcrossSharedLibraries, AConfigurationManagerErrorIsCaughtAsItself) {
    EXPECT_TRUE(isCaughtAs<ConfigurationManagerError>(throwConfigurationManagerError));
}

TEST(ErrorsAcrossSharedLibraries, ASlingErrorIsCaughtAsItself) {
    EXPECT_TRUE(isCaughtAs<SlingError>(throwSlingError));
}

TEST(ErrorsAcrossSharedLibraries, AnErrorMadeHereIsCaughtHereToo) {
    EXPECT_TRUE(isCaughtAs<ProfileError>([] { throw ProfileError::userSerializationError; }));
}

}  // namespace
