#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include <KestrinHousehold/outbox/OutboxWrite.hpp>
#include <KestrinHousehold/time/Scheduler.hpp>

namespace KestrinHousehold {

/// Why the service takes a write for good as it is not: what it said.
struct OutboxRefusal {
    Scheduler::WallTime at;  ///< when it was refused, by the device's clock
    int status = 0;          ///< the reply's status; 0: the request could not be made
    std::string title;       ///< the kind of problem, for people; cut to 200 bytes
    std::string detail;      ///< what is wrong, for people; cut to 1,000 bytes

    friend bool operator==(const OutboxRefusal&, const OutboxRefusal&) = default;
};

/// A write in an outbox.
struct OutboxEntry {
    std::int64_t number = 0;           ///< its place: what was accepted later has a higher one
    OutboxWrite write;                 ///< what is to be sent
    Scheduler::WallTime acceptedAt{};  ///< by the device's clock, to the millisecond
    /// The service's clock minus the device's when the write was accepted; absent: no reply had
    /// told the service's time.
    std::optional<std::chrono::milliseconds> clockDifference{};
    /// Until then, by the device's clock, a change of the same item by the service may be the work
    /// of this device's own earlier write. Absent: none was under way.
    std::optional<Scheduler::WallTime> ownUntil{};
    std::optional<OutboxRefusal> refusal{};  ///< absent while it waits

    friend bool operator==(const OutboxEntry&, const OutboxEntry&) = default;
};

}  // namespace KestrinHousehold
