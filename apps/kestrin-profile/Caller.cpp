#include "Caller.hpp"

#include <algorithm>

#include <fmt/format.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/params/RequestSupport.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "CurlCommand.hpp"

namespace KestrinProfileCLI {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;
using KestrinProfile::Profile;
using KestrinProfile::User;

namespace {

constexpr const char* seeProfiles = "see the household's profiles: kestrin-profile profiles list";

bool isHeld(const std::string& profileID) {
    auto& manager = ConfigurationManager::sharedInstance();
    manager.selectProfile(profileID);
    return manager.bind(false).has_value();
}

void holdUnknownBind(const std::string& profileID) {
    auto& manager = ConfigurationManager::sharedInstance();
    manager.setBindProfileID(profileID);
    manager.setBindToken(std::string(unknownToken));
}

}  // namespace

Household::Household(Session& session, const AnonymousBind& bind)
    : isKnown_(!session.options.dryRun) {
    if (isKnown_) users_ = session.await(Profile().getProfiles(bind));
}

User Household::find(const std::string& nameOrID) const {
    if (!isKnown_) return User(nameOrID);
    const auto identified = std::ranges::find(users_, nameOrID, &User::profileID);
    if (identified != users_.end()) return *identified;
    const auto isNamed = [&](const User& user) {
        return user.username == nameOrID && user.profileID;
    };
    const auto count = std::ranges::count_if(users_, isNamed);
    if (count == 0)
        throw CommandError({ExitCode::notFound,
                            fmt::format("the household has no profile '{}'", nameOrID),
                            seeProfiles});
    if (count > 1)
        throw CommandError({ExitCode::usage,
                            fmt::format("{} profiles have the name '{}'", count, nameOrID),
                            std::string("name the profile by its identifier; ") + seeProfiles});
    return *std::ranges::find_if(users_, isNamed);
}

AnonymousBind bindFor(Session& session, const std::string& profileID) {
    if (session.options.dryRun) holdUnknownBind(profileID);
    auto& manager = ConfigurationManager::sharedInstance();
    manager.selectProfile(profileID);
    if (auto held = manager.bind(false); held && held->isValid()) return *std::move(held);
    auto bind = session.await(Profile().requestAnonymousBind(profileID));
    session.keepBinds();
    return bind;
}

std::string callersID(Session& session) {
    const std::string parent = ConfigurationManager::parentProfileID();
    const std::string named = session.options.profile.value_or(parent);
    if (named == parent || session.options.dryRun || isHeld(named)) return named;
    return *Household(session, bindFor(session, parent)).find(named).profileID;
}

AnonymousBind callersBind(Session& session) {
    return bindFor(session, callersID(session));
}

std::string brandOf(const Session& session) {
    const auto configured = KestrinProfile::currentBrandID();
    if (session.options.brand) return *session.options.brand;
    if (configured) return *configured;
    throw CommandError({ExitCode::usage, "the configuration names no brand",
                        "name one with --brand ID, or in the configuration"});
}

}  // namespace KestrinProfileCLI
