#include <algorithm>
#include <memory>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/model/ProfileError.hpp>

#include "Scenes.hpp"

namespace HouseholdEvening {

using HalvardSling::SlingError;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinProfile::ProfileError;
using KestrinProfile::User;

namespace {

/// Tells the created profiles from the household's own.
constexpr const char* ownGroup = "household evening";

constexpr int refusedContent = 422;

std::vector<User> profiles(const Cast& cast) {
    return await(cast.parent().profiles());
}

std::string namesOf(const std::vector<User>& users) {
    std::vector<std::string> names;
    names.reserve(users.size());
    for (const auto& user : users)
        names.push_back(user.username.value_or("-"));
    return fmt::format("{}", fmt::join(names, ", "));
}

std::string obtainBind(const Stage& stage, const Cast& cast) {
    const auto before = stage.sent();
    const AnonymousBind bind = await(cast.parent().bind());
    require(stage.sent() == before + 1, "one request is sent");
    require(ConfigurationManager::profileBind(true) == bind, "the bind is stored");
    return fmt::format(
        "{} requested, decoded and stored with one request; token masked, {} characters",
        bind.profileID, bind.token.size());
}

std::string useHeldBind(const Stage& stage, const Cast& cast) {
    const auto before = stage.sent();
    const auto held = ConfigurationManager::profileBind(true);
    const AnonymousBind bind = await(cast.parent().bind());
    require(held == bind && stage.sent() == before, "the held bind answers and no request is sent");
    return "answered by the held bind, no request sent";
}

std::string beForbidden(const Stage& stage, const Cast& cast) {
    const std::string& blocked = cast.blockedProfileID;
    const auto held = ConfigurationManager::profileBind(true);
    const auto refusal = stage.refusalOf(cast.household.session(blocked).bind());
    require(refusal.error.statusCode() == 403,
            fmt::format("the service answers 403 for the profile '{}' (start it with "
                        "--block {}); instead: {}",
                        blocked, blocked, refusal.error.what()));
    require(refusal.reactions == 2, "the reaction is called twice");
    require(ConfigurationManager::profileBind(true) == held, "the parent's bind is put back");
    return fmt::format("{} reactions, the parent's bind put back, the error delivered: {}",
                       refusal.reactions, refusal.error.what());
}

/// Takes all services away as long as it lives.
class WithoutServices {
  public:
    WithoutServices() {
        auto empty = *configured_;
        empty.services = std::make_shared<const KestrinConfigManager::ServiceTable>();
        ConfigurationManager::sharedInstance().configure(empty);
    }
    WithoutServices(const WithoutServices&) = delete;
    WithoutServices& operator=(const WithoutServices&) = delete;
    ~WithoutServices() { ConfigurationManager::sharedInstance().configure(*configured_); }

  private:
    std::shared_ptr<const KestrinConfigManager::Configuration> configured_ =
        ConfigurationManager::sharedInstance().currentConfiguration();
};

std::string missService(const Stage& stage, const Cast& cast) {
    const auto before = stage.sent();
    const WithoutServices meanwhile;
    const auto error = errorOf<ConfigurationManagerError>(cast.parent().history());
    require(error == ConfigurationManagerError::serviceNotConfigured,
            "the configuration has no such service");
    require(stage.sent() == before, "no request is sent");
    return error.what();
}

std::string comeHome(Cast& cast) {
    const int leftovers = deleteCreatedProfiles(cast);
    cast.home = profiles(cast);
    require(!cast.home.empty() && cast.home.front().profileID == cast.parent().profileID(),
            "the parent is listed first");
    std::string text = fmt::format("{} at home: {}", cast.home.size(), namesOf(cast.home));
    if (leftovers > 0) text += fmt::format("; deleted {} of an interrupted evening", leftovers);
    return text;
}

/// Creates a profile under the name, or under the name with the first number that makes it free.
User created(const Cast& cast, const std::string& name, const std::string& avatar) {
    constexpr int mostTries = 10;
    for (int number = 1;; ++number) {
        const std::string tried = number == 1 ? name : fmt::format("{} {}", name, number);
        const auto user = User::withoutProfileID(tried, avatar, ownGroup);
        try {
            return await(cast.parent().createProfile(user));
        } catch (const SlingError& error) {
            if (error.statusCode() != refusedContent || number == mostTries) throw;
        }
    }
}

std::string moveIn(Cast& cast) {
    cast.anna = created(cast, "Anna", "fox");
    cast.ben = created(cast, "Ben", "owl");
    auto expected = cast.home;
    expected.insert(expected.end(), {cast.anna, cast.ben});
    const auto listed = profiles(cast);
    require(listed == expected, "both are listed, after those that were there");
    return fmt::format("{} profiles: {}", listed.size(), namesOf(listed));
}

std::string proposeNames(const Stage& stage, const Cast& cast) {
    const auto ben = cast.as(cast.ben);
    const auto refusal = stage.refusalOf(ben.validateProfileName(cast.anna.username.value()));
    const std::string reason = reasonOf(refusal.error);
    require(refusal.error.statusCode() == refusedContent && !reason.empty(),
            "the service answers 422 and says why");
    const std::string other = cast.ben.username.value() + " the Younger";
    await(ben.validateProfileName(other));
    return fmt::format("'{}' for {}: 422, {}; '{}' is accepted", *cast.anna.username,
                       *cast.ben.username, reason, other);
}

std::string edit(Cast& cast) {
    const User changed(*cast.ben.profileID, *cast.ben.username + " the Younger", "bear", ownGroup);
    await(cast.parent().editProfile(changed));
    const auto listed = profiles(cast);
    require(std::ranges::count(listed, changed) == 1 && std::ranges::count(listed, cast.ben) == 0,
            "the profile is listed as it was changed");
    std::string text = fmt::format("{} with the {} is now {} with the {}", *cast.ben.username,
                                   *cast.ben.avatar, *changed.username, *changed.avatar);
    cast.ben = changed;
    return text;
}

std::string spareTheParent(const Stage& stage, const Cast& cast) {
    const auto parent = cast.parent();
    const auto before = stage.sent();
    const auto edited = errorOf<ProfileError>(parent.editProfile(User(parent.profileID())));
    const auto deleted = errorOf<ProfileError>(parent.deleteProfile(parent.profileID()));
    require(edited == ProfileError::parentInvalidForOperation && deleted == edited,
            "the library refuses both with parentInvalidForOperation");
    require(stage.sent() == before, "no request is sent");
    return fmt::format("to edit and to delete, no request sent: {}", edited.what());
}

std::string leave(const Cast& cast) {
    for (const auto& each : {cast.anna, cast.ben})
        await(cast.parent().deleteProfile(each.profileID.value()));
    require(profiles(cast) == cast.home, "the household is as it was");
    return fmt::format("{} and {} deleted with their lists; at home, as before: {}",
                       *cast.anna.username, *cast.ben.username, namesOf(cast.home));
}

}  // namespace

int deleteCreatedProfiles(const Cast& cast) {
    int count = 0;
    for (const auto& user : profiles(cast)) {
        if (user.group != ownGroup) continue;
        await(cast.parent().deleteProfile(user.profileID.value()));
        ++count;
    }
    return count;
}

void playBinds(Stage& stage, const Cast& cast) {
    Stage::scene("Who is there");
    stage.step("bind for the parent", [&] { return obtainBind(stage, cast); });
    stage.step("the same again", [&] { return useHeldBind(stage, cast); });
    stage.step("bind for a blocked profile", [&] { return beForbidden(stage, cast); });
    stage.step("an unconfigured operation", [&] { return missService(stage, cast); });
}

void playHousehold(Stage& stage, Cast& cast) {
    Stage::scene("The household");
    stage.step("who is at home", [&] { return comeHome(cast); });
    stage.step("two profiles are created and listed", [&] { return moveIn(cast); });
    stage.step("a name is refused", [&] { return proposeNames(stage, cast); });
    stage.step("a profile is edited", [&] { return edit(cast); });
    stage.step("the parent is refused", [&] { return spareTheParent(stage, cast); });
}

void playGoodNight(Stage& stage, const Cast& cast) {
    Stage::scene("Good night");
    stage.step("both profiles are deleted", [&] { return leave(cast); });
}

}  // namespace HouseholdEvening
