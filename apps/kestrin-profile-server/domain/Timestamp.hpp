#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace KestrinProfileServer {

/// Milliseconds since 1970-01-01T00:00:00Z.
using Milliseconds = std::int64_t;

/// Where the service reads the time; tests put their own in.
using Clock = std::function<Milliseconds()>;

/// The computer's clock.
[[nodiscard]] Milliseconds systemTime();

/// A time in UTC with three digits of fraction: 2017-03-09T18:25:43.511Z.
[[nodiscard]] std::string timestampText(Milliseconds time);

}  // namespace KestrinProfileServer
