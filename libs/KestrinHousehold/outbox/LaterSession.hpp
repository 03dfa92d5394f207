#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <HalvardSling/rx/Observable.hpp>
#include <KestrinHousehold/Export.hpp>
#include <KestrinHousehold/outbox/Outbox.hpp>
#include <KestrinHousehold/session/ProfileSession.hpp>
#include <KestrinProfile/model/UserProfileElement.hpp>

namespace KestrinHousehold {

/// The writes of a session for which "later is fine": each is kept in an outbox, and emits its
/// entry once it is on the disk. Errors are those of `Outbox::add`. A value; copies are cheap.
class KESTRIN_HOUSEHOLD_EXPORT LaterSession {
  public:
    /// Emits the entry once it is on the disk.
    using Kept = HalvardSling::Observable<OutboxEntry>;

    /// The writes of a session.
    /// @param session  whose profile and brand; of the brand, its option, else the one that is
    ///                 configured now, else none
    /// @param outbox   not null
    LaterSession(const ProfileSession& session, std::shared_ptr<Outbox> outbox);

    /// Records how far a video was watched.
    /// @param videoID     the video
    /// @param position    0 or more; fractions are cut
    /// @param isComplete  whether it was watched to the end; absent: the service is not told
    [[nodiscard]] Kept addHistoryVideo(std::string videoID, std::chrono::seconds position,
                                       std::optional<bool> isComplete = std::nullopt) const;
    /// Removes one video from the history.
    [[nodiscard]] Kept deleteVideoHistory(std::string videoID) const;
    /// Empties the history.
    [[nodiscard]] Kept clearHistory() const;
    /// Adds one favourite show.
    [[nodiscard]] Kept addFavoriteShow(std::string showID) const;
    /// Adds several favourite shows at once; the entries carry their content kind.
    [[nodiscard]] Kept addFavoriteShows(
        std::vector<KestrinProfile::UserProfileElement> shows) const;
    /// Removes one favourite show.
    [[nodiscard]] Kept deleteFavoriteShow(std::string showID) const;
    /// Removes all favourite shows.
    [[nodiscard]] Kept clearFavorites() const;
    /// Adds one video to the watch list.
    [[nodiscard]] Kept addWatchListVideo(std::string videoID) const;
    /// Removes one video from the watch list.
    [[nodiscard]] Kept deleteWatchListVideo(std::string videoID) const;
    /// Empties the watch list.
    [[nodiscard]] Kept clearWatchList() const;
    /// Records a search text.
    [[nodiscard]] Kept addSearchHistory(std::string search) const;
    /// Deletes the searches of the session's brand.
    [[nodiscard]] Kept deleteSearchHistory() const;

  private:
    [[nodiscard]] OutboxWrite write(KestrinProfile::ProfileOperation operation,
                                    std::string itemID = {}) const;

    std::shared_ptr<Outbox> outbox_;
    std::string profileID_;
    std::string brandID_;
};

}  // namespace KestrinHousehold
