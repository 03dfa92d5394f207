#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/Serializable.hpp>
#include <KestrinProfile/Export.hpp>
#include <KestrinProfile/model/DateFormatter.hpp>
#include <KestrinProfile/model/Types.hpp>

namespace KestrinProfile {

struct UserProfileElement;

/// Equal in all fields. Time stamps are equal if `DateFormatter::iso8601()` writes the same
/// text for both: within the same millisecond.
KESTRIN_PROFILE_EXPORT bool operator==(const UserProfileElement& left,
                                       const UserProfileElement& right);

/// One entry of a profile's list: a video of the history, a favourite show, a video to watch.
///
/// It has three dictionary forms. The one for requests tells the service only which item it is and
/// of which kind; the archive adds progress and completion; only the forms that take a date
/// formatter carry the time stamp.
///
/// |                                 | id | type | progress | isCompleted | autoAddTimestamp |
/// |---------------------------------|----|------|----------|-------------|------------------|
/// | `serialized`                    | x  | x    |          |             |                  |
/// | `encode`                        | x  | x    | x        | x           |                  |
/// | `encode` with a formatter       | x  | x    | x        | x           | x                |
/// | `fromJSON`, `fromEncoded`       | x  | x    | x        | x           |                  |
/// | the two with a formatter        | x  | x    | x        | x           | x                |
///
/// Every form leaves out what is absent. `UserProfile` reads and archives its entries with the
/// formatter, so in a list they keep their time stamps.
struct KESTRIN_PROFILE_EXPORT UserProfileElement : KestrinConfigManager::Serializable {
    /// The keys of its dictionary forms, named as the members.
    struct Keys {
        /// The key of a member.
        /// @{
        static constexpr const char* id = "id";
        static constexpr const char* type = "type";
        static constexpr const char* progress = "progress";
        static constexpr const char* isCompleted = "isCompleted";
        static constexpr const char* autoAddTimestamp = "autoAddTimestamp";
        /// @}
    };

    /// An entry with nothing in it.
    UserProfileElement() = default;

    /// @param id                the video or show
    /// @param type              its kind; stored as the wire form
    /// @param progress          how far it was watched, as the service counts it
    /// @param isCompleted       whether it was watched to the end
    /// @param autoAddTimestamp  when it was added
    explicit UserProfileElement(std::optional<std::string> id,
                                std::optional<Types> type = std::nullopt,
                                std::optional<std::int64_t> progress = std::nullopt,
                                std::optional<bool> isCompleted = std::nullopt,
                                std::optional<Date> autoAddTimestamp = std::nullopt);

    std::optional<std::string> id;  ///< the video or show
    /// The wire form of a `Types` case, or any other text that the service sent.
    std::optional<std::string> type;
    std::optional<std::int64_t> progress;  ///< how far it was watched, as the service counts it
    std::optional<bool> isCompleted;       ///< whether it was watched to the end
    std::optional<Date> autoAddTimestamp;  ///< when it was added

    /// Reads an entry without its time stamp. Always present: what is missing or has the wrong kind
    /// is absent in the entry.
    [[nodiscard]] static std::optional<UserProfileElement> fromJSON(
        const HalvardSling::JSONDictionary& dictionary);

    /// Reads an entry with its time stamp, which is absent if its text is no date.
    [[nodiscard]] static std::optional<UserProfileElement> fromJSON(
        const HalvardSling::JSONDictionary& dictionary, const DateFormatter& formatter);

    /// Reads an archive; the same as `fromJSON`.
    [[nodiscard]] static std::optional<UserProfileElement> fromEncoded(
        const HalvardSling::JSONDictionary& dictionary);
    /// Reads an archive with its time stamp; the same as `fromJSON`.
    [[nodiscard]] static std::optional<UserProfileElement> fromEncoded(
        const HalvardSling::JSONDictionary& dictionary, const DateFormatter& formatter);

    /// The form for requests: identifier and kind. Always present, possibly empty.
    [[nodiscard]] std::optional<HalvardSling::JSONDictionary> serialized() const;

    /// The archive form without the time stamp.
    [[nodiscard]] HalvardSling::JSONDictionary encode() const;

    /// The archive form with the time stamp.
    [[nodiscard]] HalvardSling::JSONDictionary encode(const DateFormatter& formatter) const;

    /// The entry for people and logs, on six lines after an empty one.
    [[nodiscard]] std::string description() const;

    friend bool operator==(const UserProfileElement& left, const UserProfileElement& right);

  private:
    friend struct UserProfile;
    /// Reads an entry where it stands: moving each into its list would be a tenth of reading it.
    void read(const HalvardSling::JSONDictionary& dictionary, const DateFormatter& formatter);
};

}  // namespace KestrinProfile
