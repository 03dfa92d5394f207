#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/Serializable.hpp>
#include <KestrinProfile/Export.hpp>
#include <KestrinProfile/model/UserProfileElement.hpp>

namespace KestrinProfile {

struct UserProfile;

/// Equal in all fields; absent `elements` differ from empty ones.
KESTRIN_PROFILE_EXPORT bool operator==(const UserProfile& left, const UserProfile& right);

/// One of a profile's lists, as the service returned it. It is made only by its readers, and never
/// sent: `serialized` is the default that every record has, absent.
struct KESTRIN_PROFILE_EXPORT UserProfile : KestrinConfigManager::Serializable {
    /// The keys of its dictionary forms, named as the members.
    struct Keys {
        /// The key of a member.
        /// @{
        static constexpr const char* id = "id";
        static constexpr const char* maxSize = "maxSize";
        static constexpr const char* elements = "elements";
        /// @}
    };

    std::optional<std::string> id;        ///< the list's identifier
    std::optional<std::int64_t> maxSize;  ///< how many entries the service keeps in the list
    /// The entries in the service's order, with their time stamps. Absent: the service sent no
    /// usable list, which is another thing than an empty one.
    std::optional<std::vector<UserProfileElement>> elements;

    /// Reads a list. Always present: what is missing or has the wrong kind is absent in it. One
    /// item of "elements" that is not an object makes the whole of `elements` absent.
    [[nodiscard]] static std::optional<UserProfile> fromJSON(
        const HalvardSling::JSONDictionary& dictionary);

    /// Reads an archive; the same as `fromJSON`.
    [[nodiscard]] static std::optional<UserProfile> fromEncoded(
        const HalvardSling::JSONDictionary& dictionary);

    /// The archive form, with the entries' time stamps.
    [[nodiscard]] HalvardSling::JSONDictionary encode() const;

    /// The list for people and logs, on three lines, the last of which holds the entries'
    /// descriptions as one quoted text. No brace closes it.
    [[nodiscard]] std::string description() const;

    friend bool operator==(const UserProfile& left, const UserProfile& right);

  private:
    UserProfile() = default;

    void readElements(const HalvardSling::JSONDictionary& dictionary);
};

}  // namespace KestrinProfile
