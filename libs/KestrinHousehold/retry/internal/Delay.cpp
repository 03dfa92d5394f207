#include <algorithm>
#include <cmath>

#include <KestrinHousehold/retry/internal/Delay.hpp>

namespace KestrinHousehold::internal {

using std::chrono::nanoseconds;

namespace {

nanoseconds fromCount(double count) {
    constexpr double most = 4e18;  // nanoseconds that an integer holds, and some more
    return nanoseconds(std::llround(std::clamp(count, 0.0, most)));
}

}  // namespace

nanoseconds doubled(nanoseconds time, int times, nanoseconds longest) {
    const double count = std::ldexp(static_cast<double>(time.count()), std::max(times, 0));
    return fromCount(std::min(count, static_cast<double>(longest.count())));
}

nanoseconds part(nanoseconds time, double share) {
    return fromCount(static_cast<double>(time.count()) * share);
}

}  // namespace KestrinHousehold::internal
