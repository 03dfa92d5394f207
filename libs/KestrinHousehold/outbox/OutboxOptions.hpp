#pragma once

#include <chrono>
#include <cstddef>
#include <functional>

#include <KestrinHousehold/outbox/OutboxEvent.hpp>

namespace KestrinHousehold {

/// The bounds and times of an outbox, and its log; what is not set is the default.
struct OutboxOptions {
    /// How many entries may wait, for all profiles together. One more is not accepted.
    std::size_t maxEntries = 10'000;
    /// An entry that is older when its turn comes is dropped.
    std::chrono::seconds maxAge = std::chrono::hours(30 * 24);
    /// How many refused entries are kept; the oldest ones go.
    std::size_t maxRefused = 100;
    /// An entry that is older when its turn comes is compared with what the service has.
    std::chrono::seconds compareAfter = std::chrono::minutes(1);
    /// The first wait after the service could not be reached. It doubles with each failure; a
    /// random part of up to a half is taken off, so that devices do not come back together. If the
    /// service says how long to wait (Retry-After), that comes first.
    std::chrono::nanoseconds firstDelay = std::chrono::seconds(1);
    /// The longest wait.
    std::chrono::nanoseconds longestDelay = std::chrono::minutes(5);
    /// That entries were sent is stored for several at once, this long after the first of them, or
    /// when none waits any more.
    std::chrono::nanoseconds removalDelay = std::chrono::milliseconds(200);
    /// How long a request may be on its way, at the most.
    std::chrono::seconds longestRequest = std::chrono::minutes(2);
    /// Told every event, those included that come before anybody can subscribe to
    /// `Outbox::events`; may be empty. It must neither block nor throw.
    std::function<void(const OutboxEvent&)> log{};
};

}  // namespace KestrinHousehold
