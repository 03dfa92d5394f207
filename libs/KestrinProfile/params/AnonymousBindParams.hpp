#pragma once

#include <optional>
#include <string>

#include <KestrinConfigManager/APIParams.hpp>
#include <KestrinProfile/Export.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>

namespace KestrinProfile {

/// The parameters of the request for an anonymous bind: the only request that carries no bind of
/// its own, and so no authorisation header. It is always valid.
class KESTRIN_PROFILE_EXPORT AnonymousBindParams final : public KestrinConfigManager::APIParams {
  public:
    /// The keys of the body.
    struct Keys {
        static constexpr const char* profileID = "profileId";  ///< of the profile's identifier
    };

    /// @param profileID  the profile for which a bind is requested; may be empty
    /// @param operation  the operation that the request performs
    AnonymousBindParams(std::string profileID, ProfileOperation operation);

    std::string profileID;       ///< the profile for which a bind is requested
    ProfileOperation operation;  ///< the operation that the request performs

    /// One entry, "profileId".
    [[nodiscard]] std::optional<HalvardSling::JSONDictionary> dictionaryRepresentation()
        const override;

    /// One entry, "%UXID%": the profile identifier.
    [[nodiscard]] std::optional<KestrinConfigManager::TextMap> URLMapping() const override;

    /// Always true.
    [[nodiscard]] bool hasValidParams() const override;

    /// Two records are equal when they ask for the same profile, whatever their operations.
    friend bool operator==(const AnonymousBindParams& left, const AnonymousBindParams& right) {
        return left.profileID == right.profileID;
    }
};

}  // namespace KestrinProfile
