#include <chrono>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): kill
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <KestrinProfile/model/User.hpp>
#include <KestrinProfile/model/UserProfile.hpp>

#include "../../apps/kestrin-profile/Interruption.hpp"
#include "../../apps/kestrin-profile/Results.hpp"
#include "../../apps/kestrin-profile/Session.hpp"
#include "support/CallCount.hpp"

namespace {

using KestrinProfile::Types;
using KestrinProfile::User;
using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;
using TestSupport::growthOfCalls;

constexpr double mostGrowth = 5;
constexpr int amount = 200;

class OutputGrowth : public testing::Test {
  protected:
    [[nodiscard]] static UserProfile list(int entries) {
        std::vector<UserProfileElement> elements;
        for (int entry = 0; entry < entries; ++entry)
            elements.emplace_back("v" + std::to_string(entry), Types::video, entry, entry % 2 == 0);
        UserProfile list = UserProfile::fromJSON({}).value();
        list.elements = elements;
        return list;
    }

    KestrinProfileCLI::Interruption interruption;
    KestrinProfileCLI::Session session{interruption};
};

TEST_F(OutputGrowth, AListTakesAsMuchWorkAsItHasEntries) {
    for (const bool json : {false, true})
        for (const bool hasProgress : {false, true}) {
            session.options.json = json;
            const double growth = growthOfCalls(
                [&](int entries) {
                    static_cast<void>(
                        linesOf(session, list(entries), {"VIDEO", hasProgress, true}));
                },
                amount);
            EXPECT_GE(growth, 1) << "nothing is counted";
            EXPECT_LT(growth, mostGrowth) << json << hasProgress;
        }
}

TEST_F(OutputGrowth, AHouseholdTakesAsMuchWorkAsItHasProfiles) {
    for (const bool json : {false, true}) {
        session.options.json = json;
        const double growth = growthOfCalls(
            [&](int profiles) {
                static_cast<void>(linesOf(
                    session, std::vector<User>(static_cast<std::size_t>(profiles), User("id"))));
            },
            amount);
        EXPECT_GE(growth, 1) << "nothing is counted";
        EXPECT_LT(growth, mostGrowth) << json;
    }
}

TEST_F(OutputGrowth, ASignalEndsIt) {
    const std::vector<User> users(2, User("id"));
    ASSERT_FALSE(linesOf(session, list(2), {"VIDEO", true, true}).empty());
    ASSERT_FALSE(linesOf(session, users).empty());
    ::kill(::getpid(), SIGTERM);
    ASSERT_FALSE(interruption.pause(std::chrono::hours(1))) << "the signal did not come";
    EXPECT_THROW(static_cast<void>(linesOf(session, list(2), {"VIDEO", true, true})),
                 KestrinProfileCLI::CommandError);
    EXPECT_THROW(static_cast<void>(linesOf(session, users)), KestrinProfileCLI::CommandError);
}

}  // namespace
