#include <exception>
#include <optional>
#include <string>
#include <utility>

#include <gmock/gmock.h>

#include <rxcpp/operators/rx-map.hpp>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinHousehold/error/Error.hpp>
#include <KestrinHousehold/session/Household.hpp>

#include "household/HouseholdFixture.hpp"

namespace {

using HalvardSling::Observable;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::Configuration;
using KestrinConfigManager::ConfigurationManager;
using KestrinHousehold::Household;
using KestrinHousehold::ProfileSession;

// [sign in]
/// The household of who has signed in, in this run of the application or an earlier one.
/// @param configuration    what `KestrinConfigManager::loadConfiguration` has read
/// @param parentProfileID  the household's parent profile, which the sign-in service has told
Household signedIn(Configuration configuration, std::string parentProfileID) {
    configuration.parentProfileID = std::move(parentProfileID);
    ConfigurationManager::sharedInstance().configure(std::move(configuration));
    return Household();
}

/// The parent's session, once it has a bind: the held one, or one that the service gives it now.
Observable<ProfileSession> enter(const Household& household) {
    ProfileSession session = household.session();
    return session.bind() |
           rxcpp::operators::map([session](const AnonymousBind&) { return session; });
}

/// Ends what is under way, and forgets the binds, also where they are kept.
void signOut(std::optional<Household>& household) {
    household.reset();
    ConfigurationManager::sharedInstance().dropBinds();
}
// [end]

using KestrinHousehold::whatToShow;
using KestrinProfile::ErrorNotice;
using testing::IsEmpty;

class SignInRecipe : public TestSupport::HouseholdFixture {
  protected:
    std::optional<Household> home_{signedIn(*manager.currentConfiguration(), "anna")};
};

TEST_F(SignInRecipe, ObtainsABindOnceForAllRuns) {
    const TestSupport::Observed<ProfileSession> first(enter(*home_));
    answer(bindReply("anna", "t1"));
    ASSERT_EQ(first.values().size(), 1U);
    EXPECT_EQ(first.values().front().profileID(), "anna");

    home_ = signedIn(*manager.currentConfiguration(), "anna");
    const TestSupport::Observed<ProfileSession> second(enter(*home_));
    EXPECT_EQ(second.values().size(), 1U);
    EXPECT_THAT(transport->waiting(), IsEmpty());
}

TEST_F(SignInRecipe, SaysThatTheViewerIsToSignInAgain) {
    std::optional<ErrorNotice> shown;
    enter(*home_).subscribe([](const ProfileSession&) {},
                            [&](const std::exception_ptr& error) { shown = whatToShow(error); });
    answer(reply(401));
    EXPECT_EQ(shown, ErrorNotice::signInAgain);
}

TEST_F(SignInRecipe, LeavesNothingAfterSigningOut) {
    manager.storeBind({"anna", "t1"});
    const TestSupport::Observed calls(home_->session().history());
    signOut(home_);
    EXPECT_EQ(transport->cancelled(), 1U);
    EXPECT_THAT(manager.heldBinds().binds, IsEmpty());
}

}  // namespace
