#include "ActingProfile.hpp"

#include <algorithm>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/service/Error.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "CurlCommand.hpp"

namespace KestrinProfileCLI {

using HalvardSling::SlingError;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;
using KestrinProfile::Profile;
using KestrinProfile::User;

namespace {

constexpr const char* seeProfiles = "see the household's profiles: kestrin-profile profiles list";

/// The bind that is held for a profile, which becomes the selected one.
std::optional<AnonymousBind> heldFor(const std::string& profileID) {
    auto& manager = ConfigurationManager::sharedInstance();
    manager.selectProfile(profileID);
    return manager.bind(false);
}

std::optional<AnonymousBind> usableBind(const std::string& profileID) {
    auto held = heldFor(profileID);
    if (held && !held->isValid()) held.reset();
    return held;
}

}  // namespace

bool isForbidden(const std::exception_ptr& error) {
    return KestrinProfile::visitError(
        error, [](const SlingError& reply) { return reply.statusCode() == 403; },
        [](const std::exception&) { return false; });
}

ActingProfile::ActingProfile(Session& session) : ActingProfile(session, actingProfileID(session)) {}

ActingProfile::ActingProfile(Session& session, std::string profileID)
    : session_(session),
      profileID_(std::move(profileID)),
      isHeld_(usableBind(profileID_).has_value()),
      bind_(bindFor(session, profileID_)) {}

bool ActingProfile::renewBindAfter(const std::exception_ptr& error) {
    if (!isHeld_ || !isForbidden(error)) return false;
    isHeld_ = false;
    try {
        bind_ = bindFor(session_, profileID_);
        return true;
    } catch (const CommandError&) {
        throw;  // A signal came.
    } catch (...) {
        return false;
    }
}

void ActingProfile::restoreBind() const {
    ConfigurationManager::sharedInstance().storeBind(bind_);
}

Household::Household(ActingProfile& profile) : isKnown_(!profile.session().options.dryRun) {
    if (isKnown_)
        users_ =
            profile.waitFor([](const AnonymousBind& bind) { return Profile().getProfiles(bind); });
}

User Household::find(const std::string& nameOrID) const {
    if (auto user = seek(nameOrID)) return *std::move(user);
    throw CommandError({ExitCode::notFound,
                        fmt::format("the household has no profile '{}'", nameOrID), seeProfiles});
}

std::optional<User> Household::seek(const std::string& nameOrID) const {
    if (!isKnown_) return User(nameOrID);
    const auto identified = std::ranges::find(users_, nameOrID, &User::profileID);
    if (identified != users_.end()) return *identified;
    const auto isNamed = [&](const User& user) {
        return user.username == nameOrID && user.profileID;
    };
    const auto count = std::ranges::count_if(users_, isNamed);
    if (count == 0) return std::nullopt;
    if (count > 1)
        throw CommandError({ExitCode::usage,
                            fmt::format("{} profiles have the name '{}'", count, nameOrID),
                            std::string("name the profile by its identifier; ") + seeProfiles});
    return *std::ranges::find_if(users_, isNamed);
}

AnonymousBind bindFor(Session& session, const std::string& profileID) {
    if (session.options.dryRun)
        ConfigurationManager::sharedInstance().storeBind({profileID, std::string(unknownToken)});
    auto held = usableBind(profileID);
    auto bind =
        held ? *std::move(held) : session.waitFor(Profile().requestAnonymousBind(profileID));
    if (!session.options.dryRun) session.terminal.hide(bind.token);
    if (!held) session.saveBinds();
    return bind;
}

std::string actingProfileName(const Session& session) {
    return session.options.profile.value_or(ConfigurationManager::parentProfileID());
}

std::string actingProfileID(Session& session) {
    const std::string parent = ConfigurationManager::parentProfileID();
    std::string named = actingProfileName(session);
    if (named == parent || session.options.dryRun || heldFor(named)) return named;
    ActingProfile asking(session, parent);
    return Household(asking).find(named).profileID.value_or(named);
}

std::string brandOf(const Session& session) {
    if (session.options.brand) return *session.options.brand;
    const auto configuration = ConfigurationManager::sharedInstance().currentConfiguration();
    if (configuration && configuration->brand) return configuration->brand->rawValue;
    throw CommandError({ExitCode::usage, "the configuration names no brand",
                        "name one with --brand ID, or in the configuration"});
}

}  // namespace KestrinProfileCLI
