#include <algorithm>
#include <map>
#include <utility>

#include <kestrin-profile-server/domain/Households.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/state/Storage.hpp>

namespace KestrinProfileServer {
namespace {

constexpr std::string_view parentUsername = "Parent";

SeedProfile defaultParent() {
    SeedProfile seed;
    seed.profile.id = "parent";
    seed.profile.username = parentUsername;
    return seed;
}

void putProfile(Connection& connection, const Household& household, const SeedProfile& seed,
                bool isParent) {
    Profile wanted = seed.profile;
    wanted.household = household.row;
    wanted.isParent = isParent;
    const Profile stored = putProfile(connection, wanted);
    for (std::size_t kind = 0; kind < listKinds; ++kind) {
        std::map<std::string_view, std::vector<const Entry*>> brands;
        for (const SeedEntry& each : seed.lists[kind])
            brands[each.brand].push_back(&each.entry);
        replaceLists(connection, stored.row, static_cast<ListKind>(kind), brands);
    }
    setBlocked(connection, household.row, stored.id, seed.isBlocked);
}

void refuse(const std::string& reason) {
    throw Problem(ProblemKind::invalidRequest, reason);
}

/// The parent of a household that is there stays who it is.
void checkParent(const SeedHousehold& seed, const Household& household) {
    if (!seed.parent || household.parentProfileID.empty()) return;
    const std::string& wanted = seed.parent->profile.id;
    if (wanted.empty() || wanted == household.parentProfileID) return;
    refuse("the household '" + seed.id + "' has the parent '" + household.parentProfileID +
           "'; expected is that one, or none");
}

SeedProfile parentOf(const SeedHousehold& seed, const Household& household) {
    SeedProfile parent = seed.parent.value_or(defaultParent());
    if (!household.parentProfileID.empty()) parent.profile.id = household.parentProfileID;
    if (parent.profile.id.empty()) parent.profile.id = defaultParent().profile.id;
    return parent;
}

/// Each profile is described once, and one of them at most is the default.
void checkProfiles(const SeedHousehold& seed, const std::string& parentProfileID) {
    std::vector<std::string_view> ids{parentProfileID};
    int defaults = seed.parent && seed.parent->profile.isDefault ? 1 : 0;
    for (const SeedProfile& each : seed.profiles) {
        const std::string& id = each.profile.id;
        if (!id.empty() && std::ranges::find(ids, id) != ids.end())
            refuse("the household '" + seed.id + "' has the profile '" + id + "' more than once");
        ids.push_back(id);
        if (each.profile.isDefault) ++defaults;
    }
    if (defaults > 1) refuse("the household '" + seed.id + "' has more than one default profile");
}

void addHousehold(Connection& connection, const SeedHousehold& seed) {
    const Household household = householdNamed(connection, seed.id, seed.secret);
    checkParent(seed, household);
    const SeedProfile parent = parentOf(seed, household);
    checkProfiles(seed, parent.profile.id);
    if (seed.parent || household.parentProfileID.empty())
        putProfile(connection, household, parent, true);
    for (const SeedProfile& each : seed.profiles)
        putProfile(connection, household, each, false);
    for (const std::string& each : seed.blocked)
        setBlocked(connection, household.row, each, true);
}

SeedHousehold storedHousehold(Connection& connection, const Household& household) {
    SeedHousehold seed;
    seed.id = household.name;
    seed.secret = household.secret;
    auto blocked = blockedProfiles(connection, household.row);
    for (const Profile& profile : profilesOf(connection, household.row)) {
        SeedProfile stored = storedProfile(connection, profile);
        std::erase(blocked, profile.id);
        if (profile.isParent)
            seed.parent = std::move(stored);
        else
            seed.profiles.push_back(std::move(stored));
    }
    seed.blocked = std::move(blocked);
    return seed;
}

}  // namespace

Seed storedState(Connection& connection) {
    Seed seed;
    for (const Household& household : allHouseholds(connection))
        seed.households.push_back(storedHousehold(connection, household));
    return seed;
}

SeedProfile storedProfile(Connection& connection, const Profile& profile) {
    SeedProfile seed;
    seed.profile = profile;
    seed.isBlocked = isBlocked(connection, profile.household, profile.id);
    for (std::size_t kind = 0; kind < listKinds; ++kind) {
        forEachEntry(connection, profile.row, static_cast<ListKind>(kind),
                     [&](std::string brand, Entry entry) {
                         seed.lists[kind].push_back({std::move(brand), std::move(entry)});
                     });
    }
    return seed;
}

void addState(Connection& connection, const Seed& seed) {
    for (const SeedHousehold& household : seed.households)
        addHousehold(connection, household);
}

void replaceState(Connection& connection, const Seed& seed) {
    std::map<std::string, std::string> secrets;
    for (const Household& each : allHouseholds(connection))
        secrets[each.name] = each.secret;
    clearAll(connection);
    for (SeedHousehold household : seed.households) {
        const auto kept = secrets.find(household.id);
        if (!household.secret && kept != secrets.end()) household.secret = kept->second;
        addHousehold(connection, household);
    }
}

std::optional<Household> householdOfProfile(Connection& connection, const std::string& profileID,
                                            const std::optional<std::string>& householdName) {
    for (const Household& each : allHouseholds(connection)) {
        if (householdName && each.name != *householdName) continue;
        if (findProfile(connection, each.row, profileID)) return each;
    }
    return std::nullopt;
}

}  // namespace KestrinProfileServer
