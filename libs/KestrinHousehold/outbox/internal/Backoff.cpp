#include <algorithm>

#include <KestrinHousehold/outbox/internal/Backoff.hpp>
#include <KestrinHousehold/retry/internal/Delay.hpp>

namespace KestrinHousehold::internal {

using std::chrono::nanoseconds;

nanoseconds backoff(const OutboxOptions& options, int failures,
                    std::optional<std::chrono::seconds> asked, double random) {
    constexpr nanoseconds longestAsked = std::chrono::hours(24);
    const auto own = doubled(options.firstDelay, failures - 1, options.longestDelay);
    if (!asked) return part(own, 1 - random / 2);
    const auto service = std::clamp<nanoseconds>(*asked, nanoseconds(0), longestAsked);
    return service + part(std::max(own, service / 2), random);
}

}  // namespace KestrinHousehold::internal
