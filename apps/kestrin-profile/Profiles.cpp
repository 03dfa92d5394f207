#include "Profiles.hpp"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>

namespace KestrinProfileCLI {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;
using KestrinHousehold::ProfileSession;
using KestrinProfile::User;

namespace {

constexpr const char* seeProfiles = "see the household's profiles: kestrin-profile profiles list";

bool isBindHeldFor(const std::string& profileID) {
    const auto held = ConfigurationManager::sharedInstance().heldBinds().binds;
    return std::ranges::find(held, profileID, &AnonymousBind::profileID) != held.end();
}

}  // namespace

KnownProfiles::KnownProfiles(Session& session, const ProfileSession& asking)
    : isKnown_(!session.options.dryRun) {
    if (isKnown_) users_ = session.waitFor(asking.profiles());
}

User KnownProfiles::find(const std::string& nameOrID) const {
    if (auto user = seek(nameOrID)) return *std::move(user);
    throw CommandError({ExitCode::notFound,
                        fmt::format("the household has no profile '{}'", nameOrID), seeProfiles});
}

std::optional<User> KnownProfiles::seek(const std::string& nameOrID) const {
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

std::string actingProfileName(const Session& session) {
    return session.options.profile.value_or(ConfigurationManager::parentProfileID());
}

std::string actingProfileID(Session& session) {
    const std::string parent = ConfigurationManager::parentProfileID();
    std::string named = actingProfileName(session);
    if (named == parent || session.options.dryRun || isBindHeldFor(named)) return named;
    const KnownProfiles known(session, session.profile(parent));
    return known.find(named).profileID.value_or(named);
}

ProfileSession actingProfile(Session& session) {
    return session.profile(actingProfileID(session));
}

ProfileSession actingProfileOfBrand(Session& session) {
    KestrinHousehold::CallOptions options;
    options.brandID = brandOf(session);
    return actingProfile(session).with(std::move(options));
}

std::string brandOf(const Session& session) {
    if (session.options.brand) return *session.options.brand;
    const auto configuration = ConfigurationManager::sharedInstance().currentConfiguration();
    if (configuration && configuration->brand) return configuration->brand->rawValue;
    throw CommandError({ExitCode::usage, "the configuration names no brand",
                        "name one with --brand ID, or in the configuration"});
}

}  // namespace KestrinProfileCLI
