#pragma once

#include <exception>
#include <optional>
#include <string>
#include <vector>

#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinProfile/model/User.hpp>

#include "Session.hpp"

namespace KestrinProfileCLI {

/// Whether a request failed with status 403.
[[nodiscard]] bool isForbidden(const std::exception_ptr& error);

/// A profile that acts, with a bind for it. A held bind may be stale although it has not expired:
/// the service has a new key, or the profile was blocked for a while. So a request that is refused
/// with status 403 under a held bind is sent once more under a new one. If none can be had, the
/// refusal stands.
class ActingProfile {
  public:
    /// The profile that acts as the command line says.
    explicit ActingProfile(Session& session);
    ActingProfile(Session& session, std::string profileID);

    [[nodiscard]] const KestrinConfigManager::AnonymousBind& bind() const noexcept { return bind_; }
    [[nodiscard]] Session& session() const noexcept { return session_; }

    /// Waits for the one value of a request.
    /// @param make  makes the request's observable; given the bind, and called again for the second
    ///              attempt
    template <class Make>
    [[nodiscard]] auto waitFor(Make make) {
        try {
            return session_.waitFor(make(bind_));
        } catch (...) {
            if (!renewBindAfter(std::current_exception())) throw;
        }
        return session_.waitFor(make(bind_));
    }

    /// Obtains a new bind if a request that was made with the present one failed in such a way that
    /// this may help; at most once.
    /// @return whether `bind` is a new one now
    [[nodiscard]] bool renewBindAfter(const std::exception_ptr& error);

    /// Holds the present bind again, after a late refusal of the former one has dropped it.
    void restoreBind() const;

  private:
    Session& session_;
    std::string profileID_;
    bool isHeld_ = false;  // whether the bind was there before, and no other was tried
    KestrinConfigManager::AnonymousBind bind_;
};

/// The household's profiles, as they were when they were looked up.
class Household {
  public:
    /// Looks the profiles up. In a dry run it does not.
    explicit Household(ActingProfile& profile);

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

/// The bind of a profile, which becomes the selected one: the held one if it is valid, otherwise a
/// new one, which is saved.
[[nodiscard]] KestrinConfigManager::AnonymousBind bindFor(Session& session,
                                                          const std::string& profileID);

/// The profile that acts, as the command line names it: by its identifier or its name.
[[nodiscard]] std::string actingProfileName(const Session& session);

/// The identifier of the profile that acts: the parent, or what --profile names by its identifier
/// or its name. Only a profile for which no bind is held is looked up.
[[nodiscard]] std::string actingProfileID(Session& session);

/// The brand: the named one, or the configured one.
/// @throws CommandError if there is none
[[nodiscard]] std::string brandOf(const Session& session);

}  // namespace KestrinProfileCLI
