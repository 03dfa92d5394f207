// A million households through an outage of ten minutes: how many requests a second reach the
// service if nothing is repeated, if it is done in three ways that many applications use, and with
// the library's own policy, whose code decides here as it does there.
//
// Each household makes a call a minute, at random times.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinHousehold/retry/internal/Retries.hpp>

#include "Outage.hpp"

namespace {

using KestrinHousehold::RetryPolicy;
using KestrinHousehold::Scheduler;
using KestrinHousehold::internal::Retries;
using Outage::step;
using Outage::stepsPerSecond;
using std::chrono::nanoseconds;

constexpr std::uint32_t householdCount = 1'000'000;
constexpr double callsPerSecond = householdCount / 60.0;

struct Attempt {
    std::uint32_t household;
    std::uint32_t callBegan;  // step
    int number;
};

/// When a failed attempt is made again; absent: not at all.
using Wait = std::function<std::optional<nanoseconds>(const Attempt& attempt, std::size_t now)>;

struct Policy {
    const char* name;
    Wait wait;
    std::function<void(std::uint32_t household)> onSuccess;
};

std::optional<nanoseconds> never(const Attempt&, std::size_t) {
    return std::nullopt;
}

/// Three more attempts, each at once.
std::optional<nanoseconds> threeAtOnce(const Attempt& attempt, std::size_t) {
    return attempt.number <= 3 ? std::optional<nanoseconds>(0) : std::nullopt;
}

/// Every five seconds for a minute.
std::optional<nanoseconds> everyFiveSeconds(const Attempt& attempt, std::size_t) {
    return attempt.number <= 12 ? std::optional<nanoseconds>(std::chrono::seconds(5))
                                : std::nullopt;
}

/// 1, 2, 4 … 64 seconds, without chance.
std::optional<nanoseconds> doubling(const Attempt& attempt, std::size_t) {
    return attempt.number <= 7
               ? std::optional<nanoseconds>(std::chrono::seconds(1 << (attempt.number - 1)))
               : std::nullopt;
}

/// The library's: each household has its own budget.
class OwnPolicy {
  public:
    explicit OwnPolicy(std::mt19937_64& random) {
        const auto fraction = [&random] {
            return std::uniform_real_distribution<double>(0, 1)(random);
        };
        for (std::uint32_t i = 0; i < householdCount; ++i)
            households_.emplace_back(RetryPolicy(), fraction);
    }

    [[nodiscard]] std::optional<nanoseconds> wait(const Attempt& attempt, std::size_t now) {
        auto& retries = households_[attempt.household];
        const auto time = [](std::size_t steps) {
            return Scheduler::SteadyTime(step * static_cast<std::int64_t>(steps));
        };
        const auto decision = retries.decide({unavailable_, "GET", attempt.number, time(now),
                                              time(attempt.callBegan) + retries.policy().deadline,
                                              Scheduler::WallTime()});
        if (const auto* const repeat = std::get_if<Retries::Repeat>(&decision))
            return repeat->delay;
        return std::nullopt;
    }

    void onSuccess(std::uint32_t household) { households_[household].noteSuccess(); }

  private:
    std::deque<Retries> households_;
    const std::exception_ptr unavailable_ = std::make_exception_ptr(
        HalvardSling::SlingError::httpStatus(503, "https://api.example", {}));
};

/// @return the requests of each second
std::vector<std::uint32_t> simulate(const Policy& policy, std::mt19937_64& random) {
    std::vector<std::vector<Attempt>> due(Outage::end);
    std::vector<std::uint32_t> load(Outage::end / stepsPerSecond);
    std::poisson_distribution<int> calls(callsPerSecond / stepsPerSecond);
    std::uniform_int_distribution<std::uint32_t> anyHousehold(0, householdCount - 1);
    for (std::size_t now = 0; now < Outage::end; ++now) {
        auto attempts = std::exchange(due[now], {});
        for (int i = calls(random); i > 0; --i)
            attempts.push_back({anyHousehold(random), static_cast<std::uint32_t>(now), 1});
        std::ranges::shuffle(attempts, random);
        load[now / stepsPerSecond] += static_cast<std::uint32_t>(attempts.size());
        double room = Outage::room(now, callsPerSecond);
        for (auto& attempt : attempts) {
            if (room >= 1) {
                --room;
                policy.onSuccess(attempt.household);
                continue;
            }
            const auto wait = policy.wait(attempt, now);
            if (!wait) continue;
            // Not within the step: a request and its failure take a moment.
            const auto then = now + 1 + static_cast<std::size_t>(*wait / step);
            ++attempt.number;
            if (then < Outage::end) due[then].push_back(attempt);
        }
    }
    return load;
}

}  // namespace

int main() {
    std::mt19937_64 random(1);
    OwnPolicy own(random);
    const auto nothing = [](std::uint32_t) {};
    const Policy policies[] = {
        {"no repeats", &never, nothing},
        {"three more at once", &threeAtOnce, nothing},
        {"every 5 s for a minute", &everyFiveSeconds, nothing},
        {"doubling from 1 s, 7 times", &doubling, nothing},
        {"KestrinHousehold",
         [&own](const Attempt& attempt, std::size_t now) { return own.wait(attempt, now); },
         [&own](std::uint32_t household) { own.onSuccess(household); }},
    };
    for (const auto& policy : policies)
        Outage::print(policy.name, simulate(policy, random));
    return EXIT_SUCCESS;
}
