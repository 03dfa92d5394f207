#include <kestrin-profile-server/domain/Households.hpp>
#include <kestrin-profile-server/domain/Profiles.hpp>
#include <kestrin-profile-server/domain/Secrets.hpp>

namespace KestrinProfileServer {
namespace {

constexpr std::size_t secretBytes = 32;
constexpr const char* defaultParentProfileID = "parent";
constexpr const char* parentUsername = "Parent";

constexpr const char* householdColumns =
    "SELECT household, name, secret,"
    " (SELECT id FROM profiles WHERE profiles.household = households.household AND is_parent)"
    " FROM households";

Household householdIn(const Query& query) {
    return Household{query.integer(0), query.text(1), query.text(2), query.text(3)};
}

std::optional<Household> householdByName(Connection& connection, const std::string& name) {
    static const std::string sql = std::string(householdColumns) + " WHERE name = ?";
    Query query(connection, sql, name);
    return query.next() ? std::optional(householdIn(query)) : std::nullopt;
}

void createHousehold(Connection& connection, const std::string& name,
                     const std::string& parentProfileID) {
    Query(connection, "INSERT INTO households (name, secret) VALUES (?, ?)", name,
          hexadecimal(randomBytes(secretBytes)))
        .run();
    const std::int64_t row = connection.database().getLastInsertRowid();
    insertParentProfile(connection, row, parentProfileID, parentUsername);
}

}  // namespace

std::optional<Household> householdBySecret(Connection& connection, std::string_view secret) {
    // Every secret is compared, and each in constant time: how long it takes tells nothing.
    std::optional<Household> found;
    Query query(connection, householdColumns);
    while (query.next()) {
        Household each = householdIn(query);
        if (equalInConstantTime(each.secret, secret)) found = std::move(each);
    }
    return found;
}

Household ensureHousehold(Connection& connection, const std::string& name,
                          const std::optional<std::string>& parentProfileID) {
    if (!householdByName(connection, name))
        createHousehold(connection, name, parentProfileID.value_or(defaultParentProfileID));
    // NOLINTNEXTLINE(bugprone-unchecked-optional-access): it exists by now.
    Household household = *householdByName(connection, name);
    if (parentProfileID && *parentProfileID != household.parentProfileID) {
        throw StartError("the household '" + name + "' already has the parent profile '" +
                         household.parentProfileID +
                         "'. Leave out --parent-profile, or name another --household or"
                         " --database.");
    }
    return household;
}

bool isBlocked(Connection& connection, std::int64_t household, const std::string& profileID) {
    return Query(connection, "SELECT 1 FROM blocks WHERE household = ? AND profile_id = ?",
                 household, profileID)
        .next();
}

void setBlocked(Connection& connection, std::int64_t household, const std::string& profileID,
                bool blocked) {
    Query(connection,
          blocked ? "INSERT OR IGNORE INTO blocks (household, profile_id) VALUES (?, ?)"
                  : "DELETE FROM blocks WHERE household = ? AND profile_id = ?",
          household, profileID)
        .run();
}

std::string tokenKey(Connection& connection) {
    Query(connection, "INSERT OR IGNORE INTO settings (name, value) VALUES ('token-key', ?)",
          hexadecimal(randomBytes(secretBytes)))
        .run();
    Query query(connection, "SELECT value FROM settings WHERE name = 'token-key'");
    query.next();
    return query.text(0);
}

}  // namespace KestrinProfileServer
