#pragma once

#include <string>
#include <vector>

#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinProfile/model/User.hpp>

#include "Session.hpp"

namespace KestrinProfileCLI {

/// The household's profiles, as they were when they were looked up.
class Household {
  public:
    /// Looks the profiles up. In a dry run it does not.
    /// @param bind  who asks
    Household(Session& session, const KestrinConfigManager::AnonymousBind& bind);

    /// The profile with an identifier; where none has it, the one with that name. In a dry run the
    /// text is taken for an identifier.
    /// @throws CommandError where there is no such profile, or more than one with the name
    [[nodiscard]] KestrinProfile::User find(const std::string& nameOrID) const;

  private:
    bool isKnown_;
    std::vector<KestrinProfile::User> users_;
};

/// The bind of a profile, which becomes the selected one: the held one where it is valid, otherwise
/// a new one, which is kept.
[[nodiscard]] KestrinConfigManager::AnonymousBind bindFor(Session& session,
                                                          const std::string& profileID);

/// The identifier of the profile that acts: the parent, or what --profile names by its identifier
/// or its name. Only a profile for which no bind is held is looked up.
[[nodiscard]] std::string callersID(Session& session);

/// `bindFor` the profile that acts.
[[nodiscard]] KestrinConfigManager::AnonymousBind callersBind(Session& session);

/// The brand: the named one, or the configured one.
/// @throws CommandError where there is none
[[nodiscard]] std::string brandOf(const Session& session);

}  // namespace KestrinProfileCLI
