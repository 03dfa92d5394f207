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
    using Kept = HalvardSling::Observable<OutboxEntry>;

    /// @param session  whose profile and brand; of the brand, its option, else the one that is
    ///                 configured now, else none
    /// @param outbox   not null
    LaterSession(const ProfileSession& session, std::shared_ptr<Outbox> outbox);

    /// @param position  0 or more; fractions are cut
    /// @param isComplete  whether it was watched to the end; absent: the service is not told
    [[nodiscard]] Kept addHistoryVideo(std::string videoID, std::chrono::seconds position,
                                       std::optional<bool> isComplete = std::nullopt) const;
    [[nodiscard]] Kept deleteVideoHistory(std::string videoID) const;
    [[nodiscard]] Kept clearHistory() const;
    [[nodiscard]] Kept addFavoriteShow(std::string showID) const;
    [[nodiscard]] Kept addFavoriteShows(
        std::vector<KestrinProfile::UserProfileElement> shows) const;
    [[nodiscard]] Kept deleteFavoriteShow(std::string showID) const;
    [[nodiscard]] Kept clearFavorites() const;
    [[nodiscard]] Kept addWatchListVideo(std::string videoID) const;
    [[nodiscard]] Kept deleteWatchListVideo(std::string videoID) const;
    [[nodiscard]] Kept clearWatchList() const;
    [[nodiscard]] Kept addSearchHistory(std::string search) const;
    [[nodiscard]] Kept deleteSearchHistory() const;

  private:
    [[nodiscard]] OutboxWrite write(KestrinProfile::ProfileOperation operation,
                                    std::string itemID = {}) const;

    std::shared_ptr<Outbox> outbox_;
    std::string profileID_;
    std::string brandID_;
};

}  // namespace KestrinHousehold
