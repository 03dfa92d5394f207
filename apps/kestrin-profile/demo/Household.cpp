#include <algorithm>
#include <optional>

#include <fmt/format.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/model/ProfileError.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "../Caller.hpp"
#include "Scenes.hpp"

namespace KestrinProfileCLI {

using HalvardSling::SlingError;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;
using KestrinProfile::Profile;
using KestrinProfile::ProfileError;
using KestrinProfile::ProfileParams;
using KestrinProfile::User;
using KestrinProfile::UserParams;

namespace {

/// The group of the demo's own profiles, by which a later one knows what an interrupted one left.
constexpr const char* ownGroup = "kestrin-profile demo";

constexpr int refusedContent = 422;

std::string namesOf(const std::vector<User>& users) {
    std::vector<std::string> names;
    for (const auto& user : users)
        names.push_back(user.username.value_or("-"));
    return joined(names, ", ");
}

void deleteProfile(const Stage& stage, const User& user) {
    static_cast<void>(stage.await(Profile().deleteProfile(UserParams(parentsBind(stage), user))));
}

std::string comeHome(const Stage& stage, Cast& cast) {
    const int leftovers = deleteLeftovers(stage);
    cast.home = profilesOf(stage);
    Stage::require(!cast.home.empty() &&
                       cast.home.front().profileID == ConfigurationManager::parentProfileID(),
                   "the parent is listed first");
    std::string text = fmt::format("{} at home: {}", cast.home.size(), namesOf(cast.home));
    if (leftovers > 0) text += fmt::format("; {} that an earlier demo left deleted", leftovers);
    return text;
}

/// Creates a profile under the name, or under the name with the first number that makes it free.
User created(const Stage& stage, const std::string& name, const std::string& avatar) {
    constexpr int mostTries = 10;
    for (int number = 1;; ++number) {
        const std::string tried = number == 1 ? name : fmt::format("{} {}", name, number);
        const auto user = User::withoutProfileID(tried, avatar, ownGroup);
        try {
            return stage.await(Profile().createProfile(UserParams(parentsBind(stage), user)));
        } catch (const SlingError& error) {
            if (error.statusCode() != refusedContent || number == mostTries) throw;
        }
    }
}

std::string moveIn(const Stage& stage, Cast& cast) {
    cast.anna = created(stage, "Anna", "fox");
    cast.ben = created(stage, "Ben", "owl");
    auto expected = cast.home;
    expected.insert(expected.end(), {cast.anna, cast.ben});
    const auto listed = profilesOf(stage);
    Stage::require(listed == expected, "both are listed, after those that were there");
    return fmt::format("{} profiles: {}", listed.size(), namesOf(listed));
}

std::string proposeNames(const Stage& stage, const Cast& cast) {
    ProfileParams params(bindOf(stage, cast.ben), cast.brand);
    params.userName = cast.anna.username;
    const auto refusal = stage.refusalOf(Profile().validateProfileName(params));
    const std::string reason = reasonOf(refusal.error);
    Stage::require(refusal.error.statusCode() == refusedContent && !reason.empty(),
                   "the service answers 422 and says why");
    params.userName = *cast.ben.username + " the Younger";
    static_cast<void>(stage.await(Profile().validateProfileName(params)));
    return fmt::format("'{}' for {}: 422, {}; '{}' is accepted", *cast.anna.username,
                       *cast.ben.username, reason, *params.userName);
}

std::string edit(const Stage& stage, Cast& cast) {
    const User changed(*cast.ben.profileID, *cast.ben.username + " the Younger", "bear", ownGroup);
    static_cast<void>(stage.await(Profile().editProfile(UserParams(parentsBind(stage), changed))));
    const auto listed = profilesOf(stage);
    Stage::require(
        std::ranges::count(listed, changed) == 1 && std::ranges::count(listed, cast.ben) == 0,
        "the profile is listed as it was changed");
    std::string text = fmt::format("{} with the {} is now {} with the {}", *cast.ben.username,
                                   *cast.ben.avatar, *changed.username, *changed.avatar);
    cast.ben = changed;
    return text;
}

std::string spareTheParent(const Stage& stage) {
    const UserParams params(parentsBind(stage), User(ConfigurationManager::parentProfileID(), "X"));
    const auto before = stage.sent();
    const auto edited = stage.errorOf<ProfileError>(Profile().editProfile(params));
    const auto deleted = stage.errorOf<ProfileError>(Profile().deleteProfile(params));
    Stage::require(edited == ProfileError::parentInvalidForOperation && deleted == edited,
                   "the library refuses both with parentInvalidForOperation");
    Stage::require(stage.sent() == before, "no request is sent");
    return fmt::format("to edit and to delete, no request sent: {}", edited.what());
}

std::string leave(const Stage& stage, const Cast& cast) {
    deleteProfile(stage, cast.anna);
    deleteProfile(stage, cast.ben);
    Stage::require(profilesOf(stage) == cast.home, "the household is as it was");
    ConfigurationManager::sharedInstance().dropBinds();
    return fmt::format("{} and {} deleted with their lists; at home, as before: {}",
                       *cast.anna.username, *cast.ben.username, namesOf(cast.home));
}

}  // namespace

AnonymousBind bindOf(const Stage& stage, const User& user) {
    return bindFor(stage.session(), user.profileID.value());
}

AnonymousBind parentsBind(const Stage& stage) {
    return bindFor(stage.session(), ConfigurationManager::parentProfileID());
}

std::vector<User> profilesOf(const Stage& stage) {
    return stage.await(Profile().getProfiles(parentsBind(stage)));
}

int deleteLeftovers(const Stage& stage) {
    int count = 0;
    for (const auto& user : profilesOf(stage)) {
        if (user.group != ownGroup) continue;
        deleteProfile(stage, user);
        ++count;
    }
    return count;
}

void playHousehold(Stage& stage, Cast& cast) {
    stage.scene("The household");
    stage.step("who is at home", [&] { return comeHome(stage, cast); });
    stage.step("two profiles are created and listed", [&] { return moveIn(stage, cast); });
    stage.step("a name is refused", [&] { return proposeNames(stage, cast); });
    stage.step("a profile is edited", [&] { return edit(stage, cast); });
    stage.step("the parent is refused", [&] { return spareTheParent(stage); });
}

void playGoodNight(Stage& stage, const Cast& cast) {
    stage.scene("Good night");
    stage.step("both profiles are deleted", [&] { return leave(stage, cast); });
}

}  // namespace KestrinProfileCLI
