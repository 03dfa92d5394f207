#pragma once

#include <optional>
#include <string>
#include <vector>

#include <KestrinHousehold/session/ProfileSession.hpp>
#include <KestrinProfile/model/User.hpp>

#include "Session.hpp"

namespace KestrinProfileCLI {

/// The household's profiles, as they were when they were looked up.
class KnownProfiles {
  public:
    /// Looks the profiles up. In a dry run it does not.
    /// @param asking  who asks for them
    KnownProfiles(Session& session, const KestrinHousehold::ProfileSession& asking);

    /// The profile with this identifier, otherwise the one with this name. In a dry run the text is
    /// taken for an identifier.
    /// @throws CommandError if there is no such profile, or more than one with the name
    [[nodiscard]] KestrinProfile::User find(const std::string& nameOrID) const;

    /// The same; absent if there is no such profile.
    /// @throws CommandError if more than one has the name
    [[nodiscard]] std::optional<KestrinProfile::User> seek(const std::string& nameOrID) const;

  private:
    bool isKnown_;
    std::vector<KestrinProfile::User> users_;
};

/// The profile that acts, as the command line names it: by its identifier or its name.
[[nodiscard]] std::string actingProfileName(const Session& session);

/// The identifier of the profile that acts: the parent, or what --profile names by its identifier
/// or its name. Only a profile for which no bind is held is looked up.
[[nodiscard]] std::string actingProfileID(Session& session);

/// The profile that acts.
[[nodiscard]] KestrinHousehold::ProfileSession actingProfile(Session& session);

/// The profile that acts, on the lists of the brand that is named or configured.
/// @throws CommandError if there is none
[[nodiscard]] KestrinHousehold::ProfileSession actingProfileOfBrand(Session& session);

/// The brand: the named one, or the configured one.
/// @throws CommandError if there is none
[[nodiscard]] std::string brandOf(const Session& session);

}  // namespace KestrinProfileCLI
