#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

/// The outage that the simulations have in common: it lasts for ten minutes, after forty in which
/// all budgets fill. The service answers up to twice its usual load; what is more, and everything
/// during the outage, it answers with 503.
namespace Outage {

/// Time passes in steps of this.
constexpr std::chrono::milliseconds step{100};
constexpr std::size_t stepsPerSecond = 10;
constexpr std::size_t begins = 2400 * stepsPerSecond;
constexpr std::size_t ends = 3000 * stepsPerSecond;
constexpr std::size_t end = 3900 * stepsPerSecond;

/// How many requests the service answers in a step.
/// @param usual  the requests of a second when nothing is the matter
constexpr double room(std::size_t now, double usual) {
    return now >= begins && now < ends ? 0 : 2 * usual / stepsPerSecond;
}

/// Prints a policy's rows of a table of tab separated values: its name, each second, and the
/// requests that came in it.
inline void print(const char* policy, const std::vector<std::uint32_t>& load) {
    for (std::size_t second = 0; second < load.size(); ++second)
        std::printf("%s\t%zu\t%u\n", policy, second, load[second]);
}

}  // namespace Outage
