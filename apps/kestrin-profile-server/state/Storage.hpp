#pragma once

#include <optional>
#include <string>

#include <kestrin-profile-server/state/Seed.hpp>
#include <kestrin-profile-server/storage/Database.hpp>

namespace KestrinProfileServer {

// Whole states in the database. What writes runs in a transaction of the caller's; a problem that
// it throws leaves parts behind, which the caller undoes.

/// All that there is.
[[nodiscard]] Seed storedState(Connection& connection);

/// A profile with its lists.
[[nodiscard]] SeedProfile storedProfile(Connection& connection, const Profile& profile);

/// Adds what the seed describes. A household that is there gets its profiles besides those that it
/// has, and a profile that is there is replaced.
void addState(Connection& connection, const Seed& seed);

/// Replaces all that there is. Households keep the secrets that they have.
void replaceState(Connection& connection, const Seed& seed);

/// A household that has a profile of this identifier; the first one if no name is given.
[[nodiscard]] std::optional<Household> householdOfProfile(
    Connection& connection, const std::string& profileID,
    const std::optional<std::string>& householdName);

}  // namespace KestrinProfileServer
