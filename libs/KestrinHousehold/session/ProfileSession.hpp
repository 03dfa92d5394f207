#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/rx/Observable.hpp>
#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinHousehold/Export.hpp>
#include <KestrinProfile/model/User.hpp>
#include <KestrinProfile/model/UserProfile.hpp>
#include <KestrinProfile/model/UserProfileElement.hpp>

namespace KestrinHousehold {

class Household;

namespace internal {
struct Actor;
}

/// What is different for some calls.
struct CallOptions {
    /// Whether the household's retry policy is used; false: the request is sent once. A refused
    /// request is sent once more under a new bind all the same.
    bool repeats = true;
    /// How long the call may take, from its subscription on and with all that it waits for; what
    /// takes longer ends with `SlingErrorKind::totalTimeout`. Absent: that of the retry policy.
    std::optional<std::chrono::nanoseconds> deadline{};
    /// The brand whose lists are meant; absent: the configured one, at the time of each attempt.
    std::optional<std::string> brandID{};
};

/// Who acts: one profile of a household, with all operations of `KestrinProfile::Profile` as it may
/// do them. A value; copies are cheap.
///
/// Each operation returns a cold observable, which emits one value and completes, or fails with one
/// error. Nothing happens before it is subscribed to; each subscription is a call of its own:
///  1. It waits for the profile's bind if none is held or that has expired. One request obtains it
///     for all calls that wait; its error is the error of each of them, and a later call tries
///     anew.
///  2. It sends its request with that bind. The profile and the brand are the session's, whatever
///     is selected meanwhile.
///  3. If the reply has status 403 and the bind was held before the call, the call waits for a
///     newer bind (one request for all that were refused) and sends the request once more. What is
///     refused then stays refused, and so does what no new bind could be obtained for.
///  4. It is repeated as the household's `RetryPolicy` says.
///
/// Unsubscribing ends the call wherever it is. It does not concern others that wait for the same
/// bind; with the last of them the request for the bind is cancelled.
///
/// Errors are those of `KestrinProfile::Profile`, unchanged, and `SlingErrorKind::cancelled` once
/// the household is destroyed. Events arrive on the thread on which the networking library, the
/// scheduler or another call's reply brought them, or at once, in `subscribe`; a handler must not
/// block. All members may be called from any thread.
class KESTRIN_HOUSEHOLD_EXPORT ProfileSession {
  public:
    /// What the operations return, take and emit.
    /// @{
    template <class T>
    using Observable = HalvardSling::Observable<T>;
    using Response = HalvardSling::Response;
    using AnonymousBind = KestrinConfigManager::AnonymousBind;
    using User = KestrinProfile::User;
    using UserProfile = KestrinProfile::UserProfile;
    using UserProfileElement = KestrinProfile::UserProfileElement;
    /// @}

    /// The profile that acts.
    [[nodiscard]] const std::string& profileID() const noexcept;

    /// The options of this session's calls.
    [[nodiscard]] const CallOptions& options() const noexcept { return options_; }

    /// A session of the same profile whose calls have other options.
    [[nodiscard]] ProfileSession with(CallOptions options) const;

    /// The same whose requests are sent once.
    [[nodiscard]] ProfileSession withoutRepeats() const;

    /// The same whose calls end after this time at the latest.
    [[nodiscard]] ProfileSession withDeadline(std::chrono::nanoseconds deadline) const;

    /// The profile's bind: the held one at once, or a new one, which is then held.
    [[nodiscard]] Observable<AnonymousBind> bind() const;

    /// A new bind, also if one is held, which is given up: for when the service has changed what
    /// the profile may do. If a bind is being obtained already, it is that one. If none can be had,
    /// the profile has none, and its next call tries anew.
    [[nodiscard]] Observable<AnonymousBind> renewBind() const;

    // The household's profiles, as far as the service lets this one see and change them.

    /// Asks whether a name may be given to a profile.
    [[nodiscard]] Observable<Response> validateProfileName(std::string name) const;
    /// Creates a profile and emits it as the service knows it, with its identifier.
    [[nodiscard]] Observable<User> createProfile(User user) const;
    /// The household's profiles, in the service's order.
    [[nodiscard]] Observable<std::vector<User>> profiles() const;
    /// Gives the profile with the user's identifier the user's name, avatar, group and default
    /// mark.
    [[nodiscard]] Observable<Response> editProfile(User user) const;
    /// Deletes a profile with all its lists. Its bind is forgotten.
    [[nodiscard]] Observable<Response> deleteProfile(std::string profileID) const;

    // The viewing history: videos with progress, the latest first.

    /// The whole list.
    [[nodiscard]] Observable<UserProfile> history() const;
    /// The history's entry of one video.
    [[nodiscard]] Observable<UserProfile> videoHistory(std::string videoID) const;
    /// Records how far a video was watched.
    /// @param videoID     the video
    /// @param progress    how far; 0 or more
    /// @param isComplete  whether it was watched to the end; absent: the service is not told
    [[nodiscard]] Observable<Response> addHistoryVideo(
        std::string videoID, std::chrono::seconds progress,
        std::optional<bool> isComplete = std::nullopt) const;
    /// Removes one video.
    [[nodiscard]] Observable<Response> deleteVideoHistory(std::string videoID) const;
    /// Empties the list.
    [[nodiscard]] Observable<Response> clearHistory() const;

    // Favourite shows.

    /// The whole list.
    [[nodiscard]] Observable<UserProfile> favorites() const;
    /// Adds one show.
    [[nodiscard]] Observable<Response> addFavoriteShow(std::string showID) const;
    /// Adds several shows at once; the entries carry their content kind.
    [[nodiscard]] Observable<Response> addFavoriteShows(
        std::vector<UserProfileElement> shows) const;
    /// Removes one show.
    [[nodiscard]] Observable<Response> deleteFavoriteShow(std::string showID) const;
    /// Empties the list.
    [[nodiscard]] Observable<Response> clearFavorites() const;

    // The watch list: videos to watch.

    /// The whole list.
    [[nodiscard]] Observable<UserProfile> watchList() const;
    /// Adds one video.
    [[nodiscard]] Observable<Response> addWatchListVideo(std::string videoID) const;
    /// Removes one video.
    [[nodiscard]] Observable<Response> deleteWatchListVideo(std::string videoID) const;
    /// Empties the list.
    [[nodiscard]] Observable<Response> clearWatchList() const;

    // The search history.

    /// Records a search text.
    [[nodiscard]] Observable<Response> addSearchHistory(std::string search) const;
    /// Deletes the searches of the session's brand. `Profile` sends this request with the bind of
    /// whatever profile is selected; here it is this session's. The service's guard sees a record
    /// that is no `SearchParams`, with the same answers.
    [[nodiscard]] Observable<Response> deleteSearchHistory() const;

  private:
    friend class Household;
    explicit ProfileSession(std::shared_ptr<const internal::Actor> actor);

    std::shared_ptr<const internal::Actor> actor_;
    CallOptions options_;
};

}  // namespace KestrinHousehold
