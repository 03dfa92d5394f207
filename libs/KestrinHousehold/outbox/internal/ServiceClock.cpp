#include <algorithm>

#include <KestrinHousehold/outbox/internal/ServiceClock.hpp>
#include <internal/HTTPDate.hpp>

namespace KestrinHousehold::internal {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

void ServiceClock::note(const HalvardSling::Headers& headers, Scheduler::WallTime now) {
    const auto text = headers.value("Date");
    const auto date = text ? KestrinInternal::parseHTTPDate(*text, now) : std::nullopt;
    if (!date) return;
    constexpr milliseconds middleOfSecond(500);
    difference_ = std::chrono::floor<milliseconds>(*date + middleOfSecond - now);
}

Scheduler::WallTime ServiceClock::timeOf(const OutboxEntry& entry) const {
    const auto difference = entry.clockDifference ? entry.clockDifference : difference_;
    return std::max(entry.acceptedAt, entry.ownUntil.value_or(entry.acceptedAt)) +
           difference.value_or(milliseconds(0));
}

nanoseconds ServiceClock::ageOf(const OutboxEntry& entry, Scheduler::WallTime now) const {
    const nanoseconds age = now - entry.acceptedAt;
    // Both times by the service's clock where it is known: then it does not matter if the device's
    // was set between.
    if (!entry.clockDifference || !difference_) return age;
    return age + *difference_ - *entry.clockDifference;
}

}  // namespace KestrinHousehold::internal
