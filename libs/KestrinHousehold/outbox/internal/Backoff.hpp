#pragma once

#include <chrono>
#include <optional>

#include <KestrinHousehold/outbox/OutboxOptions.hpp>

namespace KestrinHousehold::internal {

/// How long an outbox waits before it tries again: a time that doubles with each failure, less a
/// random part of up to a half. What the service asks for comes before a random time of up to that,
/// or up to half of what it asks for: it tells all devices the same, and they must not come back
/// together.
/// @param failures  how many times in a row it has failed, at least once
/// @param asked     what the service asks for; absent: nothing
/// @param random    from 0 to 1
[[nodiscard]] std::chrono::nanoseconds backoff(const OutboxOptions& options, int failures,
                                               std::optional<std::chrono::seconds> asked,
                                               double random);

}  // namespace KestrinHousehold::internal
