#pragma once

#include <string>
#include <vector>

#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinProfile/model/User.hpp>

#include "Stage.hpp"

namespace KestrinProfileCLI {

/// Who plays.
struct Cast {
    std::string brand;
    std::string blockedProfileID;            ///< one that the service refuses
    std::vector<KestrinProfile::User> home;  ///< the household as the demo found it
    KestrinProfile::User anna{""};           ///< created by the demo, like the next
    KestrinProfile::User ben{""};
};

/// The bind of a profile of the cast, which becomes the selected one.
[[nodiscard]] KestrinConfigManager::AnonymousBind bindOf(const Stage& stage,
                                                         const KestrinProfile::User& user);

/// The household's parent's.
[[nodiscard]] KestrinConfigManager::AnonymousBind parentsBind(const Stage& stage);

/// The household's profiles, asked for by the parent.
[[nodiscard]] std::vector<KestrinProfile::User> profilesOf(const Stage& stage);

// The scenes, in the order in which they are played.

/// Binds: requested, held, forbidden; an operation without a service.
void playBinds(Stage& stage, const Cast& cast);

/// Profiles: created, refused, edited. Fills in the rest of the cast.
void playHousehold(Stage& stage, Cast& cast);

/// An evening's favourites, history, watch list and searches.
void playLists(Stage& stage, const Cast& cast);

/// A refusal and an outage, and that all is well afterwards.
void playTrouble(Stage& stage, const Cast& cast);

/// What the evening left, as tables.
void showLists(const Stage& stage, const Cast& cast);

/// The created profiles are deleted, and the household is as it was.
void playGoodNight(Stage& stage, const Cast& cast);

/// Deletes the profiles that a demo has created and not deleted; nothing else of the household is
/// touched.
/// @return how many there were
int deleteLeftovers(const Stage& stage);

}  // namespace KestrinProfileCLI
