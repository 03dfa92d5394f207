#include <map>
#include <new>
#include <stdexcept>

#include <gmock/gmock.h>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinHousehold/error/Error.hpp>
#include <KestrinProfile/model/ProfileError.hpp>

namespace {

using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using KestrinHousehold::OutboxError;
using KestrinProfile::ErrorDescription;
using KestrinProfile::ErrorNotice;
using KestrinProfile::ProfileError;
using Case = KestrinHousehold::OutboxError::Case;

TEST(HouseholdErrorTest, AnErrorOfTheOutboxHasTheShapeOfAllOthers) {
    for (const Case value :
         {Case::invalidWrite, Case::full, Case::storeUnavailable, Case::notStored, Case::closed}) {
        const OutboxError error(value, "the detail");
        EXPECT_EQ(KestrinHousehold::describe(std::make_exception_ptr(error)),
                  (ErrorDescription{"KestrinHousehold.OutboxError", static_cast<int>(value),
                                    error.what(), std::string(error.advice())}));
        EXPECT_THAT(error.what(), testing::HasSubstr("the detail"));
        EXPECT_NE(error.advice(), "");
    }
}

TEST(HouseholdErrorTest, WhatToShowIsDecidedForEachErrorOfTheOutbox) {
    const std::map<Case, ErrorNotice> table{
        {Case::invalidWrite, ErrorNotice::mendInput},  {Case::full, ErrorNotice::noNetwork},
        {Case::storeUnavailable, ErrorNotice::broken}, {Case::notStored, ErrorNotice::noSpace},
        {Case::closed, ErrorNotice::nothing},
    };
    EXPECT_EQ(table.size(), static_cast<std::size_t>(Case::closed) + 1);
    for (const auto& [value, notice] : table)
        EXPECT_EQ(KestrinHousehold::whatToShow(std::make_exception_ptr(OutboxError(value))), notice)
            << OutboxError(value).what();
}

TEST(HouseholdErrorTest, AnyOtherErrorIsWhatItIsToProfile) {
    const std::exception_ptr others[] = {
        nullptr,
        std::make_exception_ptr(7),
        std::make_exception_ptr(std::bad_alloc()),
        std::make_exception_ptr(std::runtime_error("text")),
        std::make_exception_ptr(ProfileError::anonymousBindUninitialized),
        std::make_exception_ptr(SlingError(SlingErrorKind::tls, "")),
        std::make_exception_ptr(SlingError::httpStatus(422, "https://x", {})),
    };
    for (const auto& error : others) {
        EXPECT_EQ(KestrinHousehold::describe(error), KestrinProfile::describe(error));
        EXPECT_EQ(KestrinHousehold::whatToShow(error), KestrinProfile::whatToShow(error));
    }
}

/// Which handler an error reaches.
std::string_view handlerOf(const std::exception_ptr& error) {
    return KestrinHousehold::visitError(
        error, [](const OutboxError&) { return "OutboxError"; },
        [](const SlingError&) { return "SlingError"; },
        [](const std::exception& other) {
            return dynamic_cast<const KestrinProfile::UnknownError*>(&other) != nullptr
                       ? "unknown"
                       : "std::exception";
        });
}

TEST(HouseholdErrorTest, TheMostExactHandlerGetsTheError) {
    EXPECT_EQ(handlerOf(std::make_exception_ptr(OutboxError(Case::full))), "OutboxError");
    EXPECT_EQ(handlerOf(std::make_exception_ptr(SlingError(SlingErrorKind::tls, ""))),
              "SlingError");
    EXPECT_EQ(handlerOf(std::make_exception_ptr(ProfileError::userSerializationError)),
              "std::exception");
    EXPECT_EQ(handlerOf(nullptr), "unknown");
    const auto onlyForAll = [](const std::exception& error) { return std::string(error.what()); };
    EXPECT_EQ(
        KestrinHousehold::visitError(std::make_exception_ptr(OutboxError(Case::full)), onlyForAll),
        OutboxError(Case::full).what());
}

TEST(HouseholdErrorTest, WhatAHandlerThrowsLeavesTheVisit) {
    const auto visit = [] {
        KestrinHousehold::visitError(
            std::make_exception_ptr(OutboxError(Case::full)),
            [](const OutboxError&) { throw std::logic_error("of the handler"); },
            [](const std::exception&) {});
    };
    EXPECT_THROW(visit(), std::logic_error);
}

}  // namespace
