#include <cstdlib>
#include <exception>
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

namespace {

/// Whether the memory of this thread is used up.
thread_local bool memoryIsUsedUp = false;

}  // namespace

void* operator new(std::size_t size) {
    void* const memory = memoryIsUsedUp ? nullptr : std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

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
    memoryIsUsedUp = true;
    const ErrorDescription description = describe(error);
    memoryIsUsedUp = false;
    EXPECT_EQ(description, (ErrorDescription{"std.bad_alloc", 0, "out of memory", ""}));
    static_assert(noexcept(describe(error)));
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
