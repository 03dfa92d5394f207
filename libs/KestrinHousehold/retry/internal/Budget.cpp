#include <algorithm>
#include <cmath>

#include <KestrinHousehold/retry/internal/Budget.hpp>

namespace KestrinHousehold::internal {

namespace {

constexpr std::int64_t whole = 1'000'000;

std::int64_t millionths(double repeats) noexcept {
    constexpr double most = 1e9;
    return std::isnan(repeats) ? 0 : std::llround(std::clamp(repeats, 0.0, most) * double{whole});
}

}  // namespace

Budget::Budget(const RetryBudget& rules) noexcept
    : share_(millionths(rules.share)),
      most_(millionths(rules.atMost)),
      left_(millionths(rules.atStart)) {}

void Budget::add() noexcept {
    std::int64_t left = left_.load(std::memory_order_relaxed);
    while (left < most_ && !left_.compare_exchange_weak(left, std::min(left + share_, most_),
                                                        std::memory_order_relaxed)) {
    }
}

bool Budget::take() noexcept {
    std::int64_t left = left_.load(std::memory_order_relaxed);
    while (left >= whole)
        if (left_.compare_exchange_weak(left, left - whole, std::memory_order_relaxed)) return true;
    return false;
}

}  // namespace KestrinHousehold::internal
