#pragma once

#include <optional>

#include <KestrinConfigManager/APIParams.hpp>
#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinProfile/Export.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>
#include <KestrinProfile/model/User.hpp>

namespace KestrinProfile {

/// The parameters of the operations on the household's profiles: create, list, edit, delete. It has
/// no equality.
class KESTRIN_PROFILE_EXPORT UserParams final : public KestrinConfigManager::APIParams {
  public:
    /// Parameters for a profile.
    /// @param bind  authorises the request; absent: the bind that the shared configuration manager
    ///              holds for the household's parent profile, if any
    /// @param user  the profile to create, edit or delete
    explicit UserParams(std::optional<KestrinConfigManager::AnonymousBind> bind = std::nullopt,
                        std::optional<User> user = std::nullopt);

    std::optional<ProfileOperation> operation;                ///< `Profile` sets it on its copy
    std::optional<KestrinConfigManager::AnonymousBind> bind;  ///< authorises the request
    std::optional<User> user;  ///< the profile to create, edit or delete

    /// The headers that authorise the request; empty without a bind, never absent.
    [[nodiscard]] std::optional<KestrinConfigManager::TextMap> headers() const override;

    /// The user, for `createProfile` and `editProfile`; else absent.
    [[nodiscard]] std::optional<HalvardSling::JSONDictionary> dictionaryRepresentation()
        const override;

    /// "%UXID%": for `editProfile` and `deleteProfile` the user's profile identifier, for
    /// everything else the bind's; left out if that is absent. Never absent itself.
    [[nodiscard]] std::optional<KestrinConfigManager::TextMap> URLMapping() const override;

    /// Whether there is a bind and what the operation needs: a user for `createProfile`, one with a
    /// profile identifier for `editProfile` and `deleteProfile`.
    [[nodiscard]] bool hasValidParams() const override;
};

}  // namespace KestrinProfile
