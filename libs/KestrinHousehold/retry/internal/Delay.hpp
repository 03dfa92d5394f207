#pragma once

#include <chrono>

namespace KestrinHousehold::internal {

/// A time, doubled.
/// @param times    how often; less than 0: not at all
/// @param longest  what comes of it at the most
[[nodiscard]] std::chrono::nanoseconds doubled(std::chrono::nanoseconds time, int times,
                                               std::chrono::nanoseconds longest);

/// A part of a time, and of 4e18 nanoseconds at the most.
/// @param share  from 0 to 1
[[nodiscard]] std::chrono::nanoseconds part(std::chrono::nanoseconds time, double share);

}  // namespace KestrinHousehold::internal
