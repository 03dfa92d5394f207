#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

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

/// Whether the service answers 403 for this profile of the household.
[[nodiscard]] bool isBlocked(Connection& connection, std::int64_t household,
                             const std::string& profileID);
void setBlocked(Connection& connection, std::int64_t household, const std::string& profileID,
                bool blocked);

/// The key that signs tokens: random, created once per database.
[[nodiscard]] std::string tokenKey(Connection& connection);

}  // namespace KestrinProfileServer
