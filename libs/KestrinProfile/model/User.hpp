#pragma once

#include <optional>
#include <string>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/Serializable.hpp>
#include <KestrinProfile/Export.hpp>

namespace KestrinProfile {

/// One profile of the household, as the service knows it.
///
/// It has two dictionary forms: the one for requests never carries the profile identifier, which
/// travels in the URL; the archive does. Absent texts are left out of both, "default" never is.
struct KESTRIN_PROFILE_EXPORT User : KestrinConfigManager::Serializable {
    /// The keys of its dictionary forms, named as the members.
    struct Keys {
        /// The key of a member.
        /// @{
        static constexpr const char* profileID = "profileId";
        static constexpr const char* username = "username";
        static constexpr const char* avatar = "avatar";
        static constexpr const char* group = "group";
        static constexpr const char* defaultUser = "default";
        /// @}
    };

    /// A profile that the service knows.
    explicit User(std::string profileID, std::optional<std::string> username = std::nullopt,
                  std::optional<std::string> avatar = std::nullopt,
                  std::optional<std::string> group = std::nullopt, bool defaultUser = false);

    /// A profile that is still to be created: it has no identifier yet.
    [[nodiscard]] static User withoutProfileID(std::string username, std::string avatar,
                                               std::string group, bool defaultUser = false);

    std::optional<std::string> profileID;  ///< absent until the service has created the profile
    std::optional<std::string> username;   ///< the display name
    std::optional<std::string> avatar;     ///< the picture, as the application names it
    std::optional<std::string> group;      ///< what the service sorts the profile into
    bool defaultUser = false;              ///< whether this is the household's default profile

    /// Reads a profile. Always present: a text that is missing or has the wrong kind is absent in
    /// it, and `defaultUser` is false.
    [[nodiscard]] static std::optional<User> fromJSON(
        const HalvardSling::JSONDictionary& dictionary);

    /// Reads an archive; the same as `fromJSON`.
    [[nodiscard]] static std::optional<User> fromEncoded(
        const HalvardSling::JSONDictionary& dictionary);

    /// The form for requests, without the profile identifier. Always present.
    [[nodiscard]] std::optional<HalvardSling::JSONDictionary> serialized() const;

    /// The archive form.
    [[nodiscard]] HalvardSling::JSONDictionary encode() const;

    /// Equal in all fields; an absent text differs from an empty one.
    friend bool operator==(const User&, const User&) = default;

  private:
    User() = default;
};

}  // namespace KestrinProfile
