#include <exception>
#include <string>

#include <gmock/gmock.h>

#include <KestrinHousehold/error/Error.hpp>

namespace {

// [errors]
/// The text for the viewer; empty: there is nothing to say.
std::string textFor(const std::exception_ptr& error) {
    using enum KestrinProfile::ErrorNotice;
    switch (KestrinHousehold::whatToShow(error)) {
        case nothing:
            return {};
        case noNetwork:
            return "You are offline.";
        case serviceDown:
            return "Our service is taking a break. Please try again in a moment.";
        case signInAgain:
            return "Please sign in again.";
        case notAllowed:
            return "This profile may not do that.";
        case mendInput:
            return "Please choose something else.";
        case notSecure:
            return "This network is not safe.";
        case noSpace:
            return "Your device is full.";
        default:
            return "Something went wrong. Please update the app.";
    }
}

/// The line for the log. It never holds a token.
std::string logLine(const std::exception_ptr& error) {
    const auto description = KestrinHousehold::describe(error);
    return std::string(description.domain) + " " + std::to_string(description.code) + ": " +
           description.message;
}
// [end]

using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;

std::exception_ptr status(int code) {
    return std::make_exception_ptr(SlingError::httpStatus(code, "https://api.example", {}));
}

TEST(ErrorRecipe, DoesNotSayThatAPasswordIsWrongWhenTheServiceIsDown) {
    EXPECT_EQ(textFor(status(503)), "Our service is taking a break. Please try again in a moment.");
    EXPECT_EQ(textFor(status(401)), "Please sign in again.");
    EXPECT_EQ(textFor(status(403)), "This profile may not do that.");
    EXPECT_EQ(textFor(status(422)), "Please choose something else.");
    EXPECT_EQ(textFor(std::make_exception_ptr(SlingError(SlingErrorKind::nameNotResolved, "x"))),
              "You are offline.");
    using KestrinHousehold::OutboxError;
    EXPECT_EQ(textFor(std::make_exception_ptr(OutboxError(OutboxError::Case::notStored))),
              "Your device is full.");
}

TEST(ErrorRecipe, LogsWhatHappened) {
    EXPECT_EQ(logLine(status(503)).substr(0, 27), "HalvardSling.SlingError 0: ");
}

}  // namespace
