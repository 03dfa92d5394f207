#pragma once

#include <chrono>
#include <optional>

#include <HalvardSling/http/Headers.hpp>

namespace KestrinHousehold::internal {

/// How long a reply asks to wait in its Retry-After (RFC 9110, section 10.2.3); never negative.
/// A date is counted from the reply's own Date, as the device's clock may be wrong.
/// @param now  what a date is counted from if the reply has no Date
/// @return absent: the reply does not say, or not so that it can be read
[[nodiscard]] std::optional<std::chrono::seconds> retryAfter(
    const HalvardSling::Headers& headers, std::chrono::system_clock::time_point now);

}  // namespace KestrinHousehold::internal
