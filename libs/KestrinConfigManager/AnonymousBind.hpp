#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/Export.hpp>
#include <KestrinConfigManager/Serializable.hpp>

namespace KestrinConfigManager {

/// The right to act for one profile without a person's account: the profile's identifier and the
/// token that the service issued for it. The token is a secret: it belongs in no log and no text.
struct KESTRIN_CONFIG_MANAGER_EXPORT AnonymousBind : Serializable {
    /// What times are told by.
    using Clock = std::chrono::system_clock;

    /// The keys of both the service's reply and the archive.
    struct Keys {
        static constexpr const char* profileID = "profileId";  ///< of the profile's identifier
        static constexpr const char* token = "token";          ///< of the token
    };

    /// How long after its expiry a token still counts as valid here, so that a device whose clock
    /// is fast does not refuse every new bind. The service has the last word.
    static constexpr std::chrono::seconds leeway = std::chrono::minutes(5);

    /// The longest text of a bind, in bytes. Both texts travel in headers, and few servers take
    /// larger ones.
    static constexpr std::size_t longestText = std::size_t{16} * 1024;

    /// A bind of two empty texts, which is not valid.
    AnonymousBind() = default;
    /// A bind that the application has.
    AnonymousBind(std::string aProfileID, std::string aToken)
        : profileID(std::move(aProfileID)), token(std::move(aToken)) {}

    /// Reads a bind. Absent if one of the two texts is missing or is not a text.
    [[nodiscard]] static std::optional<AnonymousBind> fromJSON(
        const HalvardSling::JSONDictionary& dictionary);

    /// Reads an archive; the same as `fromJSON`.
    [[nodiscard]] static std::optional<AnonymousBind> fromEncoded(
        const HalvardSling::JSONDictionary& dictionary);

    /// The archive form: both texts.
    [[nodiscard]] HalvardSling::JSONDictionary encode() const;

    /// Which of the texts can be sent in no header, so that every request with the bind would fail:
    /// it holds anything but printable ASCII, begins or ends with a blank, or is longer than
    /// `longestText`.
    /// @return its key, one of `Keys`; null if both can be sent. An empty text can.
    [[nodiscard]] const char* unsendableText() const noexcept;

    /// Whether the bind can be used: both texts are non-empty and can be sent (see
    /// `unsendableText`) and, if the token is a JSON Web Token with an "exp" claim (RFC 7519,
    /// section 4.1.4), it did not expire more than `leeway` ago. A token of another form has no
    /// expiry that a client could know.
    /// @param now  the time to judge by
    [[nodiscard]] bool isValid(Clock::time_point now = Clock::now()) const;

    /// The last second at which `isValid` is true of a bind whose texts can be used: that of the
    /// "exp" claim, and the `leeway`. Absent: the token has no expiry that a client could know. It
    /// may lie beyond what `Clock` can say, so compare it with a time in whole seconds. Keep it
    /// if you ask often: each call decodes the token.
    [[nodiscard]] std::optional<std::chrono::sys_seconds> validUntil() const;

    friend bool operator==(const AnonymousBind&, const AnonymousBind&) = default;

    std::string profileID;  ///< the profile that the bind belongs to
    std::string token;      ///< goes into the "Authorization" header
};

}  // namespace KestrinConfigManager
