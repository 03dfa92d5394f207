#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/object.hpp>

#include <kestrin-profile-server/storage/Database.hpp>

namespace KestrinProfileServer {

struct Profile {
    std::int64_t row = 0;
    std::int64_t household = 0;
    std::string id;
    std::string username;
    std::optional<std::string> avatar;
    std::optional<std::string> group;
    bool isDefault = false;
    bool isParent = false;
};

/// What a create or edit request says; absent values stay as they are.
struct ProfileChange {
    std::optional<std::string> username;
    std::optional<std::string> avatar;
    std::optional<std::string> group;
    std::optional<bool> isDefault;
};

[[nodiscard]] std::optional<Profile> findProfile(Connection& connection, std::int64_t household,
                                                 const std::string& id);
[[nodiscard]] std::optional<Profile> findProfile(Connection& connection,
                                                 const std::string& householdName,
                                                 const std::string& id);

/// The household's profiles: the parent first, then as they were created.
[[nodiscard]] std::vector<Profile> profilesOf(Connection& connection, std::int64_t household);

/// The trimmed name, when a profile of the household may be called so; otherwise throws the
/// problem with the reason. The profile `owner` may keep its own name.
[[nodiscard]] std::string checkedUsername(Connection& connection, std::int64_t household,
                                          const std::string& username,
                                          std::optional<std::int64_t> owner);

/// The first profile of a new household; it is the default one.
void insertParentProfile(Connection& connection, std::int64_t household, const std::string& id,
                         const std::string& username);

/// A new profile with a random identifier. Throws when the household already has `limit`.
[[nodiscard]] Profile createProfile(Connection& connection, std::int64_t household,
                                    const ProfileChange& change, std::size_t limit);

[[nodiscard]] Profile editProfile(Connection& connection, const Profile& profile,
                                  const ProfileChange& change);

/// The profile with exactly these values, changed if the household has one of this identifier, else
/// created, then with a random identifier if it has none. Its lists stay.
/// @param wanted  without a row; its household's
[[nodiscard]] Profile putProfile(Connection& connection, const Profile& wanted);

/// Makes the keys under which names are unique again, if they were made by another version of
/// Unicode's letters than that of this program, or by an older rule. Runs in a transaction of the
/// caller's.
void renewNameKeys(Connection& connection);

/// Deletes the profile. Nothing finds its lists any more; `purgePiece` removes them, piece by
/// piece, because there may be many entries. The parent profile stays: a problem.
void deleteProfile(Connection& connection, const Profile& profile);

/// Whether deleted profiles have left entries.
[[nodiscard]] bool hasPurges(Connection& connection);

/// Removes some of them, so many that others wait for little.
void purgePiece(Connection& connection);

/// Whether clients can send the identifier as it is, in a URL and in a header.
[[nodiscard]] bool isProfileID(std::string_view id);

/// What an identifier of a profile is, for messages.
[[nodiscard]] std::string profileIDRule();

/// The profile as the protocol writes it.
[[nodiscard]] boost::json::object profileJSON(const Profile& profile);

}  // namespace KestrinProfileServer
