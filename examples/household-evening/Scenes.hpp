#pragma once

#include <string>
#include <vector>

#include <KestrinHousehold/session/Household.hpp>
#include <KestrinProfile/model/User.hpp>

#include "ServiceProcess.hpp"
#include "Stage.hpp"

namespace HouseholdEvening {

using KestrinHousehold::ProfileSession;

/// Who plays.
struct Cast {
    KestrinHousehold::Household household;
    std::string blockedProfileID;            ///< one that the service refuses
    std::vector<KestrinProfile::User> home;  ///< the household as it was found
    KestrinProfile::User anna{""};           ///< created in the second scene, like Ben
    KestrinProfile::User ben{""};

    [[nodiscard]] ProfileSession parent() const { return household.session(); }
    [[nodiscard]] ProfileSession as(const KestrinProfile::User& user) const {
        return household.session(user.profileID.value());
    }
};

/// Deletes the profiles that were created here, now or by an evening that was interrupted.
/// @return how many there were
int deleteCreatedProfiles(const Cast& cast);

// The scenes, in order.

/// Binds: requested, held, forbidden; an operation without a service.
void playBinds(Stage& stage, const Cast& cast);

/// Profiles: created, refused, edited. Fills in the rest of the cast.
void playHousehold(Stage& stage, Cast& cast);

/// Favourites, history, watch list and searches.
void playLists(Stage& stage, const Cast& cast);

/// A refusal; the service is taken away while somebody watches, and what that leaves arrives when
/// it is back.
/// @param service  null: one that cannot be taken away, and the scene ends after the refusal
void playTrouble(Stage& stage, const Cast& cast, ServiceProcess* service);

/// Prints what the evening left in the lists.
void showLists(const Cast& cast);

/// The created profiles are deleted, and the household is as it was.
void playGoodNight(Stage& stage, const Cast& cast);

}  // namespace HouseholdEvening
