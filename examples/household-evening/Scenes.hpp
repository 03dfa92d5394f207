#pragma once

#include <string>
#include <vector>

#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinProfile/model/User.hpp>

#include "Stage.hpp"

namespace HouseholdEvening {

/// Who plays.
struct Cast {
    std::string blockedProfileID;            ///< one that the service refuses
    std::vector<KestrinProfile::User> home;  ///< the household as it was found
    KestrinProfile::User anna{""};           ///< created in the second scene, like Ben
    KestrinProfile::User ben{""};
};

/// The bind of a profile, which becomes the selected one: the held one if it is valid, otherwise a
/// new one.
[[nodiscard]] KestrinConfigManager::AnonymousBind bindOf(const KestrinProfile::User& user);

/// Deletes the profiles that were created here, now or by an evening that was interrupted.
/// @return how many there were
int deleteCreatedProfiles();

// The scenes, in order.

/// Binds: requested, held, forbidden; an operation without a service.
void playBinds(Stage& stage, const Cast& cast);

/// Profiles: created, refused, edited. Fills in the rest of the cast.
void playHousehold(Stage& stage, Cast& cast);

/// Favourites, history, watch list and searches.
void playLists(Stage& stage, const Cast& cast);

/// A refusal, an outage, and that all is well afterwards.
void playTrouble(Stage& stage, const Cast& cast);

/// Prints what the evening left in the lists.
void showLists(const Cast& cast);

/// The created profiles are deleted, and the household is as it was.
void playGoodNight(Stage& stage, const Cast& cast);

}  // namespace HouseholdEvening
