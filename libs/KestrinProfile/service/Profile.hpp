#pragma once

#include <optional>
#include <string>
#include <vector>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/rx/Observable.hpp>
#include <KestrinConfigManager/APIParams.hpp>
#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/Export.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>
#include <KestrinProfile/model/Types.hpp>
#include <KestrinProfile/model/User.hpp>
#include <KestrinProfile/model/UserProfile.hpp>
#include <KestrinProfile/params/ProfileParams.hpp>
#include <KestrinProfile/params/SearchParams.hpp>
#include <KestrinProfile/params/UserParams.hpp>

namespace KestrinProfile {

/// The operations of a household's personalization service. A stateless value: any number may
/// exist, and they are interchangeable.
///
/// An operation looks up its service in the configuration of
/// `KestrinConfigManager::ConfigurationManager::sharedInstance()`, asks that service's guard, and
/// returns a cold observable: nothing is sent before it is subscribed to, and each subscription
/// sends a request of its own. It runs on the caller's thread up to its return, takes no lock of
/// its own and touches neither network nor file.
///
/// Events arrive on the networking library's thread, one for all requests. Only what needs no
/// request arrives at once, on the thread that subscribes and before `subscribe` returns: a held
/// bind, and an error that is known without asking the service. A handler may start the next
/// operation, but must not wait for it: on the networking thread it would wait for ever, past every
/// time limit, because both the reply and the limits need that very thread.
///
/// No operation throws. Every failure is the observable's error:
///  - `ProfileError`, for what this library refuses or cannot decode;
///  - `KestrinConfigManager::ConfigurationManagerError` if the application is not configured for
///  the
///    operation, and whatever the service's guard refuses with;
///  - `HalvardSling::SlingError` for everything on the way. One with status 403 also makes the
///    configuration manager react (`reactToForbiddenReply`) before it reaches the subscriber;
///  - `std::bad_alloc`, or a `SlingError` of the kind `outOfMemory`, for a lack of memory. Only
///    where there is none for that error, or for the subscription, std::bad_alloc leaves the
///    operation or `subscribe`, and nothing was sent.
/// `describe` and `visitError` (Error.hpp) tell them apart.
///
/// A parameter record is taken by value: the operation, and the content kind if the operation says
/// it, are set on the method's own copy, whatever the caller's record holds there. Operations that
/// change something emit the service's `Response` as it came, unread.
class KESTRIN_PROFILE_EXPORT Profile {
  public:
    /// What the operations return and emit.
    /// @{
    template <class T>
    using Observable = HalvardSling::Observable<T>;
    using Response = HalvardSling::Response;
    using AnonymousBind = KestrinConfigManager::AnonymousBind;
    /// @}

    /// The keys that the decoders read.
    struct Keys {
        /// Where the reply to a profile list carries its array.
        static constexpr const char* getProfiles = "data";
    };

    /// All are alike.
    Profile() = default;

    // The household's profiles.

    /// Obtains the anonymous bind of a profile. Emits the parent's held bind at once, on the thread
    /// that subscribes and without a request, if it is valid and belongs to the profile; otherwise
    /// requests one, and stores it in the configuration manager before it is emitted.
    ///
    /// @param profileID  the profile; by default the household's parent, as configured at the time
    ///                   of the call. Absent: fails with `profileIDValdationFailure`
    ///
    /// Fails with `anonymousBindSerializationError` if the reply holds no valid bind. A reply with
    /// status 403 makes the configuration manager react twice: the request has its own hook, like
    /// all, and this operation a second one, which also sees a 403 that a guard answers with.
    [[nodiscard]] Observable<AnonymousBind> requestAnonymousBind(
        std::optional<std::string> profileID =
            KestrinConfigManager::ConfigurationManager::parentProfileID()) const;

    /// Asks whether a name may be given to a profile (`userName`). The service answers a name that
    /// it does not take with an error status and the reason in its body.
    [[nodiscard]] Observable<Response> validateProfileName(ProfileParams params) const;

    /// Creates the record's user and emits it as the service knows it, with its identifier.
    [[nodiscard]] Observable<User> createProfile(UserParams params) const;

    /// Lists the household's profiles, in the service's order.
    /// @param bind  absent: the parent's bind, as held at the time of the call
    /// Fails with `userSerializationError` if the reply has no array of dictionaries under "data".
    [[nodiscard]] Observable<std::vector<User>> getProfiles(
        std::optional<AnonymousBind> bind = std::nullopt) const;

    /// Gives a profile the name, avatar, group and default mark of the record's user, whose
    /// identifier says which. Fails, and sends nothing, with `userInvalidForOperation` if the user
    /// or its identifier is absent or the identifier empty, and with `parentInvalidForOperation`
    /// for the household's parent.
    [[nodiscard]] Observable<Response> editProfile(UserParams params) const;

    /// Deletes the profile of the record's user, with all its lists. Fails like `editProfile`.
    [[nodiscard]] Observable<Response> deleteProfile(UserParams params) const;

    // The viewing history: videos with progress, the latest first.

    /// The whole list.
    [[nodiscard]] Observable<UserProfile> requestHistory(ProfileParams params) const;
    /// The history's entry of one video (`videoID`).
    [[nodiscard]] Observable<UserProfile> requestVideoHistory(ProfileParams params) const;
    /// Records how far a video was watched (`videoID`, `progress`, `isComplete`). The content kind
    /// is `video`.
    [[nodiscard]] Observable<Response> addHistoryVideo(ProfileParams params) const;
    /// Removes one video (`videoID`).
    [[nodiscard]] Observable<Response> deleteVideoHistory(ProfileParams params) const;
    /// Empties the list.
    [[nodiscard]] Observable<Response> clearHistory(ProfileParams params) const;

    // Favourite shows.

    /// The whole list.
    [[nodiscard]] Observable<UserProfile> requestFavorites(ProfileParams params) const;
    /// Adds one show (`showID`). The content kind is `show`.
    [[nodiscard]] Observable<Response> addFavoriteShow(ProfileParams params) const;
    /// Adds several shows at once (`elements`). The record's content kind stays as it is; the
    /// entries carry theirs.
    [[nodiscard]] Observable<Response> addFavoriteShows(ProfileParams params) const;
    /// Removes one show (`showID`).
    [[nodiscard]] Observable<Response> deleteFavoriteShow(ProfileParams params) const;
    /// Empties the list.
    [[nodiscard]] Observable<Response> clearFavorites(ProfileParams params) const;

    // The watch list: videos to watch.

    /// The whole list.
    [[nodiscard]] Observable<UserProfile> requestWatchList(ProfileParams params) const;
    /// Adds one video (`videoID`). The content kind is `video`.
    [[nodiscard]] Observable<Response> addWatchListVideo(ProfileParams params) const;
    /// Removes one video (`videoID`).
    [[nodiscard]] Observable<Response> deleteWatchListVideo(ProfileParams params) const;
    /// Empties the list.
    [[nodiscard]] Observable<Response> clearWatchList(ProfileParams params) const;

    // The search history.

    /// Records a search text (`search`).
    [[nodiscard]] Observable<Response> addSearchHistory(SearchParams params) const;
    /// Deletes the search history of a brand, for the selected profile as held at the time of the
    /// call.
    /// @param brandID  the brand; an empty text is sent as it is
    [[nodiscard]] Observable<Response> deleteSearchHistory(std::string brandID) const;

  private:
    // The bodies that the operations share, by shape.
    [[nodiscard]] Observable<UserProfile> readList(ProfileParams params,
                                                   ProfileOperation operation) const;
    [[nodiscard]] Observable<Response> addItem(ProfileParams params, Types type,
                                               ProfileOperation operation) const;
    [[nodiscard]] Observable<Response> send(ProfileParams params, ProfileOperation operation) const;
    [[nodiscard]] Observable<Response> send(SearchParams params, ProfileOperation operation) const;
    [[nodiscard]] Observable<Response> send(UserParams params, ProfileOperation operation) const;
    [[nodiscard]] Observable<Response> changeProfile(UserParams params,
                                                     ProfileOperation operation) const;

    /// Turns a record into a guarded request to the service that is configured for the operation.
    /// @param params       the record; read before this returns, never kept
    /// @param operation    absent: fails with `parameterOperationMismatch`
    /// @param requireBind  never looked at: whether a request needs a bind is for the service's
    ///                     guard to say
    [[nodiscard]] Observable<Response> createProfileRequest(
        const KestrinConfigManager::APIParams& params, std::optional<ProfileOperation> operation,
        bool requireBind) const;
};

}  // namespace KestrinProfile
