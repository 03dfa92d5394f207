#pragma once

#include <chrono>
#include <optional>

#include <HalvardSling/http/Headers.hpp>
#include <KestrinHousehold/outbox/OutboxEntry.hpp>
#include <KestrinHousehold/time/Scheduler.hpp>

namespace KestrinHousehold::internal {

/// The service's clock, as far as the Date of its replies tells it, and the times of entries by it.
/// On one thread at a time.
class ServiceClock {
  public:
    /// Takes over what a reply says, if it does.
    /// @param now  by the device's clock
    void note(const HalvardSling::Headers& headers, Scheduler::WallTime now);

    /// How far it is ahead of the device's clock; absent before the first reply.
    [[nodiscard]] std::optional<std::chrono::milliseconds> difference() const noexcept {
        return difference_;
    }

    /// When an entry was accepted, or an own earlier write of the same item had ended.
    [[nodiscard]] Scheduler::WallTime timeOf(const OutboxEntry& entry) const;

    /// How long ago an entry was accepted.
    /// @param now  by the device's clock
    /// @return less than nothing if the device's clock was set back
    [[nodiscard]] std::chrono::nanoseconds ageOf(const OutboxEntry& entry,
                                                 Scheduler::WallTime now) const;

  private:
    std::optional<std::chrono::milliseconds> difference_;
};

}  // namespace KestrinHousehold::internal
