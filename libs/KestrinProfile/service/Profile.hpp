#pragma once

#include <optional>
#include <string>

#include <HalvardSling/Observable.hpp>
#include <HalvardSling/Response.hpp>
#include <KestrinConfigManager/APIParams.hpp>
#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>

namespace KestrinProfile {

/// The operations of a household's personalization service. A stateless value: any number may
/// exist, and they are interchangeable.
///
/// An operation looks up its service in the configuration of
/// `KestrinConfigManager::ConfigurationManager::sharedInstance()`, asks that service's guard, and
/// returns a cold observable: nothing is sent before it is subscribed to, and each subscription
/// sends a request of its own. It runs on the caller's thread up to its return, takes no lock of
/// its own and touches neither network nor file; events are delivered on the networking library's
/// thread, or at once where no request is needed.
///
/// No operation throws. Every failure is the observable's error:
///  - `ProfileError`, for what this library refuses or cannot decode;
///  - `KestrinConfigManager::ConfigurationManagerError` where the application is not configured for
///    the operation, and whatever the service's guard refuses with;
///  - `HalvardSling::SlingError` for everything on the way. One with status 403 also makes the
///    configuration manager react (`reactToForbiddenReply`) before it reaches the subscriber.
class Profile {
  public:
    /// The keys that the decoders read.
    struct Keys {
        /// Where the reply to a profile list carries its array.
        static constexpr const char* getProfiles = "data";
    };

    Profile() = default;

    /// Obtains the anonymous bind of a profile. Emits the parent's held bind, without a request,
    /// where it is valid and belongs to the profile; otherwise requests one, and stores it in the
    /// configuration manager before it is emitted.
    ///
    /// @param profileID  the profile; by default the household's parent, as configured at the time
    ///                   of the call. Absent: fails with `profileIDValdationFailure`
    ///
    /// Fails with `anonymousBindSerializationError` where the reply holds no valid bind. A reply
    /// with status 403 makes the configuration manager react twice: the request has its own hook,
    /// like all, and this operation a second one, which also sees a 403 that a guard answers with.
    [[nodiscard]] HalvardSling::Observable<KestrinConfigManager::AnonymousBind>
    requestAnonymousBind(
        std::optional<std::string> profileID =
            KestrinConfigManager::ConfigurationManager::parentProfileID()) const;

  private:
    friend struct ProfileTestAccess;

    /// Turns a record into a guarded request to the service that is configured for the operation.
    /// @param params       the record; read before this returns, never kept
    /// @param operation    absent: fails with `parameterOperationMismatch`
    /// @param requireBind  never looked at: whether a request needs a bind is for the service's
    ///                     guard to say
    [[nodiscard]] HalvardSling::Observable<HalvardSling::Response> createProfileRequest(
        const KestrinConfigManager::APIParams& params, std::optional<ProfileOperation> operation,
        bool requireBind) const;
};

}  // namespace KestrinProfile
