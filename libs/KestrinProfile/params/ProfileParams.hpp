#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <KestrinConfigManager/APIParams.hpp>
#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinProfile/Export.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>
#include <KestrinProfile/model/Types.hpp>
#include <KestrinProfile/model/UserProfileElement.hpp>

namespace KestrinProfile {

class ProfileParams;

/// Compares everything but `elements` and `userName`: two records that differ only in those
/// are equal.
KESTRIN_PROFILE_EXPORT bool operator==(const ProfileParams& left, const ProfileParams& right);

/// The parameters of every operation on a list (history, favourites, watch list) and of the check
/// of a profile name. Fill in what the operation needs; `Profile` sets the operation, and the
/// content kind if the operation decides it, on a copy.
class KESTRIN_PROFILE_EXPORT ProfileParams final : public KestrinConfigManager::APIParams {
  public:
    /// The keys of the body.
    struct Keys {
        /// The key of a member.
        /// @{
        static constexpr const char* type = "type";
        static constexpr const char* progress = "progress";
        static constexpr const char* isComplete = "isCompleted";
        static constexpr const char* elements = "elements";
        /// @}
    };

    /// Parameters for the configured brand, as it is at the time of the call.
    /// @param bind  authorises the request; absent: the bind that the shared configuration manager
    ///              holds for the selected profile, if any
    explicit ProfileParams(std::optional<KestrinConfigManager::AnonymousBind> bind = std::nullopt);

    /// Parameters for a given brand.
    /// @param bind      as above
    /// @param brandID   the brand; absent: none, and no request is valid
    /// @param elements  the entries for `addFavoriteShows`
    ProfileParams(std::optional<KestrinConfigManager::AnonymousBind> bind,
                  std::optional<std::string> brandID,
                  std::optional<std::vector<UserProfileElement>> elements = std::nullopt);

    std::optional<std::string> brandID;                       ///< fills "%BRANDNAME%"
    std::optional<std::string> videoID;                       ///< fills "%VIDEO%"
    std::optional<std::string> showID;                        ///< fills "%SHOWID%"
    std::optional<std::vector<UserProfileElement>> elements;  ///< sent by `addFavoriteShows`
    /// How far the video was watched, as the service counts it; sent by `addHistoryVideo`.
    std::optional<std::intptr_t> progress;
    std::optional<bool> isComplete;       ///< watched to the end; sent by `addHistoryVideo`
    std::optional<std::string> userName;  ///< the proposed profile name, fills "%USERNAME%"

    /// What authorises the request; absent: none was given or held.
    [[nodiscard]] const std::optional<KestrinConfigManager::AnonymousBind>& bind() const noexcept {
        return bind_;
    }
    /// The content kind; `Profile` sets it on its copy.
    [[nodiscard]] const std::optional<Types>& type() const noexcept { return type_; }
    /// The operation; `Profile` sets it on its copy.
    [[nodiscard]] const std::optional<ProfileOperation>& operation() const noexcept {
        return operation_;
    }

    /// The headers that authorise the request; empty without a bind, never absent.
    [[nodiscard]] std::optional<KestrinConfigManager::TextMap> headers() const override;

    /// The body of the operations that have one, else absent. The service takes "isCompleted" and
    /// "progress" as texts.
    [[nodiscard]] std::optional<HalvardSling::JSONDictionary> dictionaryRepresentation()
        const override;

    /// The placeholders for which there is a value; never absent.
    [[nodiscard]] std::optional<KestrinConfigManager::TextMap> URLMapping() const override;

    /// Whether there is a bind, a brand, and what the operation needs.
    [[nodiscard]] bool hasValidParams() const override;

    friend bool operator==(const ProfileParams& left, const ProfileParams& right);

  private:
    friend class Profile;

    std::optional<KestrinConfigManager::AnonymousBind> bind_;
    std::optional<Types> type_;
    std::optional<ProfileOperation> operation_;
};

}  // namespace KestrinProfile
