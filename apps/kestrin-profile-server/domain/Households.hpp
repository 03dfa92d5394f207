#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kestrin-profile-server/storage/Database.hpp>

namespace KestrinProfileServer {

struct Household {
    std::int64_t row = 0;
    std::string name;
    std::string secret;
    std::string parentProfileID;
};

/// The household that presents this secret.
[[nodiscard]] std::optional<Household> householdBySecret(Connection& connection,
                                                         std::string_view secret);

/// The household of this name, created with a random secret and its parent profile when it is
/// missing. Throws StartError when it exists with another parent profile than the given one.
[[nodiscard]] Household ensureHousehold(Connection& connection, const std::string& name,
                                        const std::optional<std::string>& parentProfileID);

/// All households, the oldest first. The identifier of a parent that is not there yet is empty.
[[nodiscard]] std::vector<Household> allHouseholds(Connection& connection);

/// The household of this name, created without profiles when it is missing. Throws the problem of a
/// secret that another household has, or that no header can carry.
/// @param secret  that it gets; absent: it keeps the one that it has, or gets a random one
[[nodiscard]] Household householdNamed(Connection& connection, const std::string& name,
                                       const std::optional<std::string>& secret);

/// Removes all households with everything that they have.
void clearAll(Connection& connection);

/// Whether the service answers 403 for this profile of the household.
[[nodiscard]] bool isBlocked(Connection& connection, std::int64_t household,
                             const std::string& profileID);
void setBlocked(Connection& connection, std::int64_t household, const std::string& profileID,
                bool blocked);
/// The identifiers of those that are blocked, profiles or not.
[[nodiscard]] std::vector<std::string> blockedProfiles(Connection& connection,
                                                       std::int64_t household);

/// The key that signs tokens: random, created once per database.
[[nodiscard]] std::string tokenKey(Connection& connection);

}  // namespace KestrinProfileServer
