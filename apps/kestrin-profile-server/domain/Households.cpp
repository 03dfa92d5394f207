#include <algorithm>

#include <kestrin-profile-server/domain/Households.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
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

std::int64_t insertHousehold(Connection& connection, const std::string& name,
                             const std::string& secret) {
    Query(connection, "INSERT INTO households (name, secret) VALUES (?, ?)", name, secret).run();
    return connection.database().getLastInsertRowid();
}

void createHousehold(Connection& connection, const std::string& name,
                     const std::string& parentProfileID) {
    const std::int64_t row =
        insertHousehold(connection, name, hexadecimal(randomBytes(secretBytes)));
    insertParentProfile(connection, row, parentProfileID, parentUsername);
}

void checkSecret(Connection& connection, const std::string& name, const std::string& secret) {
    const bool travels =
        std::ranges::all_of(secret, [](char each) { return each > ' ' && each <= '~'; });
    if (secret.empty() || !travels) {
        throw Problem(ProblemKind::invalidRequest,
                      "the secret of the household '" + name +
                          "' is empty, or has other than visible ASCII characters");
    }
    const auto owner = householdBySecret(connection, secret);
    if (owner && owner->name != name) {
        throw Problem(ProblemKind::taken, "the secret of the household '" + name +
                                              "' is that of '" + owner->name + "' already");
    }
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

std::vector<Household> allHouseholds(Connection& connection) {
    static const std::string sql = std::string(householdColumns) + " ORDER BY household";
    std::vector<Household> households;
    Query query(connection, sql);
    while (query.next())
        households.push_back(householdIn(query));
    return households;
}

Household householdNamed(Connection& connection, const std::string& name,
                         const std::optional<std::string>& secret) {
    if (secret) checkSecret(connection, name, *secret);
    auto household = householdByName(connection, name);
    if (!household) {
        Household created;
        created.name = name;
        created.secret = secret.value_or(hexadecimal(randomBytes(secretBytes)));
        created.row = insertHousehold(connection, name, created.secret);
        return created;
    }
    if (secret) {
        Query(connection, "UPDATE households SET secret = ? WHERE household = ?", *secret,
              household->row)
            .run();
        household->secret = *secret;
    }
    return *std::move(household);
}

void clearAll(Connection& connection) {
    for (const char* const sql : {"DELETE FROM entries", "DELETE FROM purges",
                                  "DELETE FROM profiles", "DELETE FROM households"})
        Query(connection, sql).run();
}

std::vector<std::string> blockedProfiles(Connection& connection, std::int64_t household) {
    std::vector<std::string> ids;
    Query query(connection, "SELECT profile_id FROM blocks WHERE household = ? ORDER BY profile_id",
                household);
    while (query.next())
        ids.push_back(query.text(0));
    return ids;
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
