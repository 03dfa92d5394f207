#include <algorithm>
#include <utility>

#include <boost/json.hpp>

#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Profiles.hpp>
#include <kestrin-profile-server/domain/Secrets.hpp>
#include <kestrin-profile-server/domain/Text.hpp>

namespace KestrinProfileServer {
namespace {

constexpr std::size_t longestUsername = 40;
constexpr std::size_t profileIDBytes = 12;

constexpr std::int64_t entriesOfPiece = 500;

constexpr std::string_view firstPurge = "SELECT profile FROM purges LIMIT 1";

constexpr std::string_view lastOfPiece =
    "SELECT list, brand, id FROM entries WHERE profile = ? ORDER BY list, brand, id"
    " LIMIT 1 OFFSET ?";

constexpr std::string_view deleteUpTo =
    "DELETE FROM entries WHERE profile = ? AND (list, brand, id) <= (?, ?, ?)";

constexpr std::string_view profileByHousehold =
    "SELECT profile, household, id, username, avatar, profile_group, is_default, is_parent"
    " FROM profiles WHERE household = ? AND id = ?";

constexpr std::string_view profileByHouseholdName =
    "SELECT profile, household, id, username, avatar, profile_group, is_default, is_parent"
    " FROM profiles WHERE household = (SELECT household FROM households WHERE name = ?) AND id = ?";

constexpr std::string_view profilesByHousehold =
    "SELECT profile, household, id, username, avatar, profile_group, is_default, is_parent"
    " FROM profiles WHERE household = ? ORDER BY is_parent DESC, profile";

Profile profileIn(const Query& query) {
    return Profile{query.integer(0),      query.integer(1),      query.text(2),  query.text(3),
                   query.optionalText(4), query.optionalText(5), query.truth(6), query.truth(7)};
}

/// The form under which names are unique.
std::string nameKeyOf(const std::string& username) {
    return toUTF8(caseFolded(codePointsOf(username)));
}

bool isTaken(Connection& connection, std::int64_t household, const std::string& username,
             std::optional<std::int64_t> owner) {
    return Query(connection,
                 "SELECT 1 FROM profiles WHERE household = ? AND name_key = ?"
                 " AND profile IS NOT ?",
                 household, nameKeyOf(username), owner)
        .next();
}

std::size_t countProfiles(Connection& connection, std::int64_t household) {
    Query query(connection, "SELECT count(*) FROM profiles WHERE household = ?", household);
    query.next();
    return static_cast<std::size_t>(query.integer(0));
}

Profile reread(Connection& connection, const Profile& profile) {
    // NOLINTNEXTLINE(bugprone-unchecked-optional-access): the caller has just written it.
    return *findProfile(connection, profile.household, profile.id);
}

/// A household has exactly one default profile: the new one takes it from the former one.
void makeDefault(Connection& connection, std::int64_t household, const std::string& id) {
    Query(connection, "UPDATE profiles SET is_default = 0 WHERE household = ? AND is_default",
          household)
        .run();
    Query(connection, "UPDATE profiles SET is_default = 1 WHERE household = ? AND id = ?",
          household, id)
        .run();
}

void makeParentDefault(Connection& connection, std::int64_t household) {
    makeDefault(connection, household, profilesOf(connection, household).front().id);
}

void applyDefault(Connection& connection, const Profile& profile, std::optional<bool> wanted) {
    if (!wanted || *wanted == profile.isDefault) return;
    if (*wanted)
        makeDefault(connection, profile.household, profile.id);
    else
        makeParentDefault(connection, profile.household);
}

void insertProfile(Connection& connection, const Profile& profile) {
    Query(connection,
          // The number of a deleted profile is not given again before its entries are gone.
          "INSERT INTO profiles (profile, household, id, username, name_key, avatar, profile_group,"
          " is_default, is_parent) VALUES ((SELECT 1 + max("
          " (SELECT coalesce(max(profile), 0) FROM profiles),"
          " (SELECT coalesce(max(profile), 0) FROM purges))), ?, ?, ?, ?, ?, ?, ?, ?)",
          profile.household, profile.id, profile.username, nameKeyOf(profile.username),
          profile.avatar, profile.group, profile.isDefault, profile.isParent)
        .run();
}

}  // namespace

std::optional<Profile> findProfile(Connection& connection, std::int64_t household,
                                   const std::string& id) {
    Query query(connection, profileByHousehold, household, id);
    return query.next() ? std::optional(profileIn(query)) : std::nullopt;
}

std::optional<Profile> findProfile(Connection& connection, const std::string& householdName,
                                   const std::string& id) {
    Query query(connection, profileByHouseholdName, householdName, id);
    return query.next() ? std::optional(profileIn(query)) : std::nullopt;
}

std::vector<Profile> profilesOf(Connection& connection, std::int64_t household) {
    std::vector<Profile> profiles;
    Query query(connection, profilesByHousehold, household);
    while (query.next())
        profiles.push_back(profileIn(query));
    return profiles;
}

std::string checkedUsername(Connection& connection, std::int64_t household,
                            const std::string& username, std::optional<std::int64_t> owner) {
    const auto refuse = [](const std::string& reason) {
        throw Problem(ProblemKind::invalidName, reason);
    };
    const std::u32string name = trimmed(codePointsOf(username));
    if (name.empty()) refuse("the name is empty; it needs at least one visible character");
    if (std::ranges::any_of(name, isControl)) refuse("the name has a control character");
    if (name.size() > longestUsername) {
        refuse("the name has " + std::to_string(name.size()) + " characters, " +
               std::to_string(longestUsername) + " are allowed");
    }
    std::string text = toUTF8(name);
    if (isTaken(connection, household, text, owner))
        refuse("another profile of the household is already called '" + text + "'");
    return text;
}

void insertParentProfile(Connection& connection, std::int64_t household, const std::string& id,
                         const std::string& username) {
    insertProfile(connection, Profile{.household = household,
                                      .id = id,
                                      .username = username,
                                      .avatar = {},
                                      .group = {},
                                      .isDefault = true,
                                      .isParent = true});
}

void renewNameKeys(Connection& connection) {
    const std::string version = caseFoldingVersion();
    if (Query(connection, "SELECT 1 FROM settings WHERE name = 'name_keys' AND value = ?", version)
            .next())
        return;
    std::vector<std::pair<std::int64_t, std::string>> names;
    {
        Query query(connection, "SELECT profile, username FROM profiles");
        while (query.next())
            names.emplace_back(query.integer(0), query.text(1));
    }
    for (const auto& [profile, username] : names) {
        // Who shares a name only by the new rule keeps it, and the key of the former rule.
        Query(connection, "UPDATE OR IGNORE profiles SET name_key = ?2 WHERE profile = ?1", profile,
              nameKeyOf(username))
            .run();
    }
    Query(connection, "INSERT OR REPLACE INTO settings (name, value) VALUES ('name_keys', ?)",
          version)
        .run();
}

Profile putProfile(Connection& connection, const Profile& wanted) {
    const auto known =
        wanted.id.empty() ? std::nullopt : findProfile(connection, wanted.household, wanted.id);
    Profile profile = wanted;
    if (profile.id.empty()) profile.id = hexadecimal(randomBytes(profileIDBytes));
    profile.username = checkedUsername(connection, wanted.household, wanted.username,
                                       known ? std::optional(known->row) : std::nullopt);
    profile.isDefault = known ? known->isDefault : wanted.isParent;
    if (known) {
        Query(connection,
              "UPDATE profiles SET username = ?2, name_key = ?3, avatar = ?4, profile_group = ?5"
              " WHERE profile = ?1",
              known->row, profile.username, nameKeyOf(profile.username), profile.avatar,
              profile.group)
            .run();
    } else {
        insertProfile(connection, profile);
    }
    applyDefault(connection, profile, wanted.isDefault);
    return reread(connection, profile);
}

Profile createProfile(Connection& connection, std::int64_t household, const ProfileChange& change,
                      std::size_t limit) {
    const std::string username =
        checkedUsername(connection, household, change.username.value_or(""), std::nullopt);
    const std::size_t count = countProfiles(connection, household);
    if (count >= limit) {
        throw Problem(ProblemKind::tooManyProfiles, "the household has " + std::to_string(count) +
                                                        " profiles, " + std::to_string(limit) +
                                                        " are allowed; delete one first");
    }
    const Profile profile{.household = household,
                          .id = hexadecimal(randomBytes(profileIDBytes)),
                          .username = username,
                          .avatar = change.avatar,
                          .group = change.group};
    insertProfile(connection, profile);
    applyDefault(connection, profile, change.isDefault);
    return reread(connection, profile);
}

Profile editProfile(Connection& connection, const Profile& profile, const ProfileChange& change) {
    const std::string username = change.username ? checkedUsername(connection, profile.household,
                                                                   *change.username, profile.row)
                                                 : profile.username;
    Query(connection,
          "UPDATE profiles SET username = ?2, name_key = ?3, avatar = coalesce(?4, avatar),"
          " profile_group = coalesce(?5, profile_group) WHERE profile = ?1",
          profile.row, username, nameKeyOf(username), change.avatar, change.group)
        .run();
    applyDefault(connection, profile, change.isDefault);
    return reread(connection, profile);
}

void deleteProfile(Connection& connection, const Profile& profile) {
    if (profile.isParent) {
        throw Problem(ProblemKind::parentProfile,
                      "the household's parent profile cannot be deleted");
    }
    if (profile.isDefault) makeParentDefault(connection, profile.household);
    Query(connection, "INSERT INTO purges (profile) VALUES (?)", profile.row).run();
    Query(connection, "DELETE FROM profiles WHERE profile = ?", profile.row).run();
}

bool hasPurges(Connection& connection) {
    return Query(connection, firstPurge).next();
}

void purgePiece(Connection& connection) {
    Query purge(connection, firstPurge);
    if (!purge.next()) return;
    const std::int64_t profile = purge.integer(0);
    Query last(connection, lastOfPiece, profile, entriesOfPiece - 1);
    if (last.next()) {
        Query(connection, deleteUpTo, profile, last.text(0), last.text(1), last.text(2)).run();
    } else {
        Query(connection, "DELETE FROM entries WHERE profile = ?", profile).run();
        Query(connection, "DELETE FROM purges WHERE profile = ?", profile).run();
    }
}

bool isProfileID(std::string_view id) {
    const auto travels = [](char each) {
        return each > ' ' && each <= '~' && std::string_view("#&%").find(each) == std::string::npos;
    };
    return !id.empty() && id.size() <= longestText && std::ranges::all_of(id, travels);
}

std::string profileIDRule() {
    return "a profile identifier has 1 to " + std::to_string(longestText) +
           " visible ASCII characters, none of them '#', '&' or '%': it travels in URLs and headers"
           " as it is";
}

boost::json::object profileJSON(const Profile& profile) {
    boost::json::object json{{"profileId", profile.id}, {"username", profile.username}};
    if (profile.avatar) json["avatar"] = *profile.avatar;
    if (profile.group) json["group"] = *profile.group;
    json["default"] = profile.isDefault;
    return json;
}

}  // namespace KestrinProfileServer
