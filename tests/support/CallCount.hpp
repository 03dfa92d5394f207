#pragma once

#include <cstdint>
#include <functional>

namespace TestSupport {

/// How many functions are called while this runs, of those compiled with -finstrument-functions:
/// how much work it is, whatever the machine and its load.
[[nodiscard]] std::uint64_t callsIn(const std::function<void()>& work);

/// How many times more calls the work with four times as much is. It is 4 if the work grows with
/// its amount, a little more if it sorts, and 16 if everything meets everything.
/// @param amount  enough for what does not grow to play no part
[[nodiscard]] double growthOfCalls(const std::function<void(int amount)>& work, int amount);

}  // namespace TestSupport
