#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include <KestrinHousehold/outbox/OutboxEntry.hpp>

namespace KestrinHousehold {

/// What happened to an entry of an outbox, or to the outbox.
struct OutboxEvent {
    /// The events.
    enum class Kind {
        /// The service has it; or it had that state already.
        sent,
        /// It was dropped, because a later entry makes it needless. `by` has that one's number.
        superseded,
        /// It was dropped, because the service has something newer.
        droppedAsStale,
        /// The service refuses it for good. It stays in the list of refused entries.
        refused,
        /// A refused entry was dropped, the oldest one, because the list is full.
        forgotten,
        /// It was dropped, because it is older than `OutboxOptions::maxAge`.
        expired,
        /// It was dropped by the application.
        dropped,
        /// A write was not accepted, because the outbox is full. `entry` holds it, without number.
        overflow,
        /// The profile's entries wait until `Outbox::bindIsNew`. `entry` is the first of them.
        waitsForBind,
        /// The profile's entries wait, because the service could not be reached or was busy.
        /// `entry` is the first of them, `delay` says how long.
        delayed,
        /// The store was damaged, or did not keep that entries had been sent; the text says what
        /// happened. Those are sent once more after a restart, in the same order.
        storeFailed,
    };

    Kind kind = Kind::sent;             ///< which it is
    OutboxEntry entry{};                ///< empty with `storeFailed`
    std::string text{};                 ///< what happened, for people; no secrets
    std::optional<std::int64_t> by{};   ///< see `superseded`
    std::chrono::nanoseconds delay{0};  ///< see `delayed`
};

}  // namespace KestrinHousehold
