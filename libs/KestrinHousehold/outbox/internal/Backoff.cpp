#include <algorithm>
#include <cmath>

#include <KestrinHousehold/outbox/internal/Backoff.hpp>

namespace KestrinHousehold::internal {

using std::chrono::nanoseconds;

namespace {

nanoseconds part(nanoseconds time, double share) {
    return nanoseconds(static_cast<nanoseconds::rep>(static_cast<double>(time.count()) * share));
}

nanoseconds doubled(const OutboxOptions& options, int failures) {
    constexpr double longest = 4e18;  // nanoseconds that an integer holds, and some more
    constexpr int mostDoublings = 30;
    const auto delay = std::ldexp(static_cast<double>(options.firstDelay.count()),
                                  std::clamp(failures - 1, 0, mostDoublings));
    const auto most = std::min(static_cast<double>(options.longestDelay.count()), longest);
    return nanoseconds(static_cast<nanoseconds::rep>(std::min(delay, most)));
}

}  // namespace

nanoseconds backoff(const OutboxOptions& options, int failures,
                    std::optional<std::chrono::seconds> asked, double random) {
    constexpr nanoseconds longestAsked = std::chrono::hours(24);
    const auto own = doubled(options, failures);
    if (!asked) return part(own, 1 - random / 2);
    const auto service = std::clamp<nanoseconds>(*asked, nanoseconds(0), longestAsked);
    return service + part(std::max(own, service / 2), random);
}

}  // namespace KestrinHousehold::internal
