#include <algorithm>
#include <cstdint>

#include <KestrinHousehold/retry/internal/RetryAfter.hpp>
#include <internal/HTTPDate.hpp>
#include <internal/Number.hpp>

namespace KestrinHousehold::internal {

using KestrinInternal::parseHTTPDate;
using std::chrono::seconds;
using std::chrono::system_clock;

std::optional<seconds> retryAfter(const HalvardSling::Headers& headers,
                                  system_clock::time_point now) {
    const auto text = headers.value("Retry-After");
    if (!text) return std::nullopt;
    // Longer than anybody waits, and short enough to be counted in nanoseconds.
    constexpr seconds longest(std::int64_t{1} << 32);
    if (const auto number = KestrinInternal::decimalNumber(*text))
        return std::min(seconds(*number), longest);
    const auto until = parseHTTPDate(*text, now);
    if (!until) return std::nullopt;
    const auto date = headers.value("Date");
    const auto from = date ? parseHTTPDate(*date, now) : std::nullopt;
    const auto wait = *until - from.value_or(std::chrono::floor<seconds>(now));
    return std::clamp(wait, seconds(0), longest);
}

}  // namespace KestrinHousehold::internal
