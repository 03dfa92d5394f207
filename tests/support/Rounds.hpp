#pragma once

#include <cstddef>
#include <cstdlib>

namespace TestSupport {

/// How many rounds a test runs that shows by repetition that something never happens.
/// @param usual  enough to find a fault that is there each time, in a moment
/// @return that many; times KESTRIN_TEST_FACTOR, if the environment has it
[[nodiscard]] inline std::size_t roundsOf(std::size_t usual) {
    const char* const factor = std::getenv("KESTRIN_TEST_FACTOR");
    const unsigned long long times = factor == nullptr ? 1 : std::strtoull(factor, nullptr, 10);
    return usual * (times == 0 ? 1 : static_cast<std::size_t>(times));
}

}  // namespace TestSupport
