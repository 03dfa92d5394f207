#include <algorithm>
#include <memory>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/model/ProfileError.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "Scenes.hpp"

namespace HouseholdEvening {

using HalvardSling::SlingError;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinProfile::Profile;
using KestrinProfile::ProfileError;
using KestrinProfile::ProfileParams;
using KestrinProfile::User;
using KestrinProfile::UserParams;

namespace {

/// Tells the created profiles from the household's own.
constexpr const char* ownGroup = "household evening";

constexpr int refusedContent = 422;

User parent() {
    return User(ConfigurationManager::parentProfileID());
}

std::vector<User> profiles() {
    return await(Profile().getProfiles(bindOf(parent())));
}

std::string namesOf(const std::vector<User>& users) {
    std::vector<std::string> names;
    for (const auto& user : users)
        names.push_back(user.username.value_or("-"));
    return fmt::format("{}", fmt::join(names, ", "));
}

void deleteProfile(const User& user) {
    await(Profile().deleteProfile(UserParams(bindOf(parent()), user)));
}

std::string obtainBind(const Stage& stage) {
    ConfigurationManager::sharedInstance().dropBinds();
    const auto before = stage.sent();
    const AnonymousBind bind = await(Profile().requestAnonymousBind());
    require(stage.sent() == before + 1, "one request is sent");
    require(ConfigurationManager::profileBind(true) == bind, "the bind is stored");
    return fmt::format(
        "{} requested, decoded and stored with one request; token masked, {} characters",
        bind.profileID, bind.token.size());
}

std::string useHeldBind(const Stage& stage) {
    const auto before = stage.sent();
    const auto held = ConfigurationManager::profileBind(true);
    const AnonymousBind bind = await(Profile().requestAnonymousBind());
    require(held == bind && stage.sent() == before, "the held bind answers and no request is sent");
    return "answered by the held bind, no request sent";
}

std::string beForbidden(const Stage& stage, const std::string& blockedProfileID) {
    const auto refusal = stage.refusalOf(Profile().requestAnonymousBind(blockedProfileID));
    require(refusal.error.statusCode() == 403,
            fmt::format("the service answers 403 for the profile '{}' (start it with "
                        "--block {}); instead: {}",
                        blockedProfileID, blockedProfileID, refusal.error.what()));
    require(refusal.reactions == 2, "the reaction is called twice");
    require(!ConfigurationManager::profileBind(true), "the held binds are dropped");
    return fmt::format("{} reactions, held binds dropped, the error delivered: {}",
                       refusal.reactions, refusal.error.what());
}

std::string missService(const Stage& stage) {
    auto& manager = ConfigurationManager::sharedInstance();
    const auto before = stage.sent();
    const auto configured = manager.currentConfiguration();
    auto empty = *configured;
    empty.services = std::make_shared<const KestrinConfigManager::ServiceTable>();
    manager.configure(empty);
    const auto request = Profile().requestAnonymousBind();
    manager.configure(*configured);
    const auto error = errorOf<ConfigurationManagerError>(request);
    require(error == ConfigurationManagerError::serviceNotConfigured,
            "the configuration has no such service");
    require(stage.sent() == before, "no request is sent");
    return error.what();
}

std::string comeHome(Cast& cast) {
    const int leftovers = deleteCreatedProfiles();
    cast.home = profiles();
    require(!cast.home.empty() && cast.home.front().profileID == parent().profileID,
            "the parent is listed first");
    std::string text = fmt::format("{} at home: {}", cast.home.size(), namesOf(cast.home));
    if (leftovers > 0) text += fmt::format("; deleted {} of an interrupted evening", leftovers);
    return text;
}

/// Creates a profile under the name, or under the name with the first number that makes it free.
User created(const std::string& name, const std::string& avatar) {
    constexpr int mostTries = 10;
    for (int number = 1;; ++number) {
        const std::string tried = number == 1 ? name : fmt::format("{} {}", name, number);
        const auto user = User::withoutProfileID(tried, avatar, ownGroup);
        try {
            return await(Profile().createProfile(UserParams(bindOf(parent()), user)));
        } catch (const SlingError& error) {
            if (error.statusCode() != refusedContent || number == mostTries) throw;
        }
    }
}

std::string moveIn(Cast& cast) {
    cast.anna = created("Anna", "fox");
    cast.ben = created("Ben", "owl");
    auto expected = cast.home;
    expected.insert(expected.end(), {cast.anna, cast.ben});
    const auto listed = profiles();
    require(listed == expected, "both are listed, after those that were there");
    return fmt::format("{} profiles: {}", listed.size(), namesOf(listed));
}

std::string proposeNames(const Stage& stage, const Cast& cast) {
    ProfileParams params(bindOf(cast.ben));
    params.userName = cast.anna.username;
    const auto refusal = stage.refusalOf(Profile().validateProfileName(params));
    const std::string reason = reasonOf(refusal.error);
    require(refusal.error.statusCode() == refusedContent && !reason.empty(),
            "the service answers 422 and says why");
    params.userName = *cast.ben.username + " the Younger";
    await(Profile().validateProfileName(params));
    return fmt::format("'{}' for {}: 422, {}; '{}' is accepted", *cast.anna.username,
                       *cast.ben.username, reason, *params.userName);
}

std::string edit(Cast& cast) {
    const User changed(*cast.ben.profileID, *cast.ben.username + " the Younger", "bear", ownGroup);
    await(Profile().editProfile(UserParams(bindOf(parent()), changed)));
    const auto listed = profiles();
    require(std::ranges::count(listed, changed) == 1 && std::ranges::count(listed, cast.ben) == 0,
            "the profile is listed as it was changed");
    std::string text = fmt::format("{} with the {} is now {} with the {}", *cast.ben.username,
                                   *cast.ben.avatar, *changed.username, *changed.avatar);
    cast.ben = changed;
    return text;
}

std::string spareTheParent(const Stage& stage) {
    const UserParams params(bindOf(parent()), parent());
    const auto before = stage.sent();
    const auto edited = errorOf<ProfileError>(Profile().editProfile(params));
    const auto deleted = errorOf<ProfileError>(Profile().deleteProfile(params));
    require(edited == ProfileError::parentInvalidForOperation && deleted == edited,
            "the library refuses both with parentInvalidForOperation");
    require(stage.sent() == before, "no request is sent");
    return fmt::format("to edit and to delete, no request sent: {}", edited.what());
}

std::string leave(const Cast& cast) {
    deleteProfile(cast.anna);
    deleteProfile(cast.ben);
    require(profiles() == cast.home, "the household is as it was");
    return fmt::format("{} and {} deleted with their lists; at home, as before: {}",
                       *cast.anna.username, *cast.ben.username, namesOf(cast.home));
}

}  // namespace

AnonymousBind bindOf(const User& user) {
    auto& manager = ConfigurationManager::sharedInstance();
    manager.selectProfile(user.profileID.value());
    const auto held = manager.bind(false);
    return held && held->isValid() ? *held : await(Profile().requestAnonymousBind(user.profileID));
}

int deleteCreatedProfiles() {
    int count = 0;
    for (const auto& user : profiles()) {
        if (user.group != ownGroup) continue;
        deleteProfile(user);
        ++count;
    }
    return count;
}

void playBinds(Stage& stage, const Cast& cast) {
    Stage::scene("Who is there");
    stage.step("bind for the parent", [&] { return obtainBind(stage); });
    stage.step("the same again", [&] { return useHeldBind(stage); });
    stage.step("bind for a blocked profile",
               [&] { return beForbidden(stage, cast.blockedProfileID); });
    stage.step("an unconfigured operation", [&] { return missService(stage); });
}

void playHousehold(Stage& stage, Cast& cast) {
    Stage::scene("The household");
    stage.step("who is at home", [&] { return comeHome(cast); });
    stage.step("two profiles are created and listed", [&] { return moveIn(cast); });
    stage.step("a name is refused", [&] { return proposeNames(stage, cast); });
    stage.step("a profile is edited", [&] { return edit(cast); });
    stage.step("the parent is refused", [&] { return spareTheParent(stage); });
}

void playGoodNight(Stage& stage, const Cast& cast) {
    Stage::scene("Good night");
    stage.step("both profiles are deleted", [&] { return leave(cast); });
}

}  // namespace HouseholdEvening
