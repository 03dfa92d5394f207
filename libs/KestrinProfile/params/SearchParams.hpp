#pragma once

#include <optional>
#include <string>

#include <KestrinConfigManager/APIParams.hpp>
#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinProfile/Export.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>
#include <KestrinProfile/model/Types.hpp>

namespace KestrinProfile {

class SearchParams;

/// Equal in all five fields.
KESTRIN_PROFILE_EXPORT bool operator==(const SearchParams& left, const SearchParams& right);

/// The parameters of the two operations on the search history. The search text travels in the URL;
/// the body is always the same.
class KESTRIN_PROFILE_EXPORT SearchParams final : public KestrinConfigManager::APIParams {
  public:
    /// The only key of the body, and its value.
    struct Keys {
        static constexpr const char* type = "type";  ///< the key
        static constexpr const char* term = "TERM";  ///< the value
    };

    /// Parameters for the configured brand, as it is at the time of the call.
    /// @param search  the search text
    /// @param type    the content kind; it is not sent
    /// @param bind    authorises the request; absent: the bind that the shared configuration
    ///                manager holds for the selected profile, if any
    explicit SearchParams(std::string search = {}, Types type = Types::none,
                          std::optional<KestrinConfigManager::AnonymousBind> bind = std::nullopt);

    /// The same for another brand.
    /// @param search   the search text
    /// @param type     the content kind; it is not sent
    /// @param bind     as above
    /// @param brandID  the brand; absent: none, and no request is valid
    SearchParams(std::string search, Types type,
                 std::optional<KestrinConfigManager::AnonymousBind> bind,
                 std::optional<std::string> brandID);

    std::string search;                  ///< fills "%SEARCH%"
    std::optional<std::string> brandID;  ///< fills "%BRANDNAME%"

    /// The operation; `Profile` sets it on its copy.
    [[nodiscard]] const std::optional<ProfileOperation>& operation() const noexcept {
        return operation_;
    }
    /// What authorises the request; absent: none was given or held.
    [[nodiscard]] const std::optional<KestrinConfigManager::AnonymousBind>& bind() const noexcept {
        return bind_;
    }
    /// The content kind that was given.
    [[nodiscard]] Types type() const noexcept { return type_; }

    /// The headers that authorise the request; empty without a bind, never absent.
    [[nodiscard]] std::optional<KestrinConfigManager::TextMap> headers() const override;

    /// "type" with the text "TERM", whatever the record holds: the service's mark of a search text.
    [[nodiscard]] std::optional<HalvardSling::JSONDictionary> dictionaryRepresentation()
        const override;

    /// The placeholders for which there is a value, the search text always; never absent.
    [[nodiscard]] std::optional<KestrinConfigManager::TextMap> URLMapping() const override;

    /// Whether there is a bind, an operation and a brand.
    [[nodiscard]] bool hasValidParams() const override;

    friend bool operator==(const SearchParams& left, const SearchParams& right);

  private:
    friend class Profile;

    std::optional<ProfileOperation> operation_;
    std::optional<KestrinConfigManager::AnonymousBind> bind_;
    Types type_;
};

}  // namespace KestrinProfile
