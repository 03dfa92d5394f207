#pragma once

#include <atomic>
#include <cstdint>

#include <KestrinHousehold/retry/RetryPolicy.hpp>

namespace KestrinHousehold::internal {

/// What a `RetryBudget` says, counted. Any thread.
class Budget {
  public:
    explicit Budget(const RetryBudget& rules) noexcept;

    /// A request has succeeded.
    void add() noexcept;

    /// Takes a whole repeat.
    /// @return false if there is none
    [[nodiscard]] bool take() noexcept;

  private:
    // In millionths of a repeat, so that shares add up exactly.
    std::int64_t share_;
    std::int64_t most_;
    std::atomic<std::int64_t> left_;
};

}  // namespace KestrinHousehold::internal
