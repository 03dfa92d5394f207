#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <KestrinHousehold/Export.hpp>
#include <KestrinHousehold/outbox/Outbox.hpp>
#include <KestrinHousehold/outbox/OutboxDelivery.hpp>
#include <KestrinHousehold/outbox/OutboxWrite.hpp>
#include <KestrinHousehold/time/Scheduler.hpp>

namespace KestrinHousehold {

/// What is being watched, and by whom.
struct PlaybackVideo {
    std::string profileID;  ///< who watches
    std::string brandID;    ///< may be empty
    std::string videoID;    ///< what
};

/// Where the writes of a `PlaybackReporter` go. It is called with no lock held, by one thread at a
/// time, must not block, and calls one of the two functions once: when the write was taken, or when
/// it was not.
using PlaybackSink =
    std::function<void(const OutboxWrite& write, std::function<void()> taken,
                       std::function<void(const std::exception_ptr& error)> failed)>;

/// Writes are kept in an outbox, and taken once they are on the disk.
[[nodiscard]] KESTRIN_HOUSEHOLD_EXPORT PlaybackSink keepIn(std::shared_ptr<Outbox> outbox);

/// Writes are sent, and taken once the service has them.
[[nodiscard]] KESTRIN_HOUSEHOLD_EXPORT PlaybackSink
sendWith(std::shared_ptr<OutboxDelivery> delivery);

/// What is different for some players.
struct PlaybackOptions {
    /// Between two writes at the least, but for those that are made at once.
    std::chrono::nanoseconds interval = std::chrono::seconds(10);
    /// Told why a write was not taken; may be empty. The position is written again with the next.
    std::function<void(const std::exception_ptr& error)> failed{};
};

/// Reports how far one video was watched, one reporter for each time that somebody watches. It is
/// told positions as often as the player likes, and makes at most one write in each interval; at
/// once when the video is paused or finished, or the application goes to the background. What was
/// written already is not written again. There is no timer: a position is written with the one
/// that comes after the interval, or at once with the events above.
///
/// One write is on its way at a time; of those that come meanwhile only the latest is made. All
/// members may be called from any thread. Positions that are late, from before a call of
/// `finished`, change nothing.
class KESTRIN_HOUSEHOLD_EXPORT PlaybackReporter {
  public:
    /// A reporter that knows no position yet, and writes nothing before it does.
    /// @param video      what is being watched, and by whom
    /// @param sink       where the writes go; not empty
    /// @param scheduler  the time; not null
    /// @param options    what is not set is the default
    PlaybackReporter(PlaybackVideo video, PlaybackSink sink, std::shared_ptr<Scheduler> scheduler,
                     PlaybackOptions options = {});
    PlaybackReporter(const PlaybackReporter&) = delete;
    PlaybackReporter& operator=(const PlaybackReporter&) = delete;

    /// Writes what is known and was not written, as `inBackground` does.
    ~PlaybackReporter();

    /// The player is at a position.
    /// @param position  absent or below 0: unknown, and nothing changes; fractions are cut
    void positionIs(std::optional<std::chrono::nanoseconds> position);

    /// Somebody has moved the player; after `finished` this begins anew. It is written like any
    /// other position.
    /// @param position  as above; absent: until a position is told, none is known
    void movedTo(std::optional<std::chrono::nanoseconds> position);

    /// The video was paused. Writes the position at once. The interval begins anew with the first
    /// other position that comes then.
    void paused();

    /// The application goes to the background. Writes the position at once.
    void inBackground();

    /// The video was watched to its end. Writes that at once with the position, or, if none is
    /// known, with the next one that is. Later positions are taken for late ones, until `movedTo`;
    /// nothing here ever writes that a video was not watched to its end.
    void finished();

  private:
    class Core;
    std::shared_ptr<Core> core_;
};

}  // namespace KestrinHousehold
