#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinHousehold/retry/RetryPolicy.hpp>
#include <KestrinHousehold/retry/internal/Budget.hpp>
#include <KestrinHousehold/time/Scheduler.hpp>

namespace KestrinHousehold::internal {

/// A request that has failed.
struct FailedAttempt {
    std::exception_ptr error;
    std::string_view method;
    int attempt = 1;                 ///< its number
    Scheduler::SteadyTime now;       ///< when it failed
    Scheduler::SteadyTime deadline;  ///< of the call
    Scheduler::WallTime wallTime;    ///< the device's clock
};

/// The repeats of a household. Any thread.
class Retries {
  public:
    /// @param random  as in `HouseholdOptions`
    Retries(RetryPolicy policy, std::function<double()> random);

    [[nodiscard]] const RetryPolicy& policy() const noexcept { return policy_; }

    /// Sent again, when this has passed.
    struct Repeat {
        std::chrono::nanoseconds delay;
        std::string reason;  ///< what was the matter
    };
    /// Left at that.
    struct Stands {
        std::string reason;  ///< empty: it is no error after which a request is repeated
    };
    using Decision = std::variant<Repeat, Stands>;

    /// What becomes of a request that has failed; takes from the budget.
    [[nodiscard]] Decision decide(const FailedAttempt& failed);

    /// A request has succeeded.
    void noteSuccess() noexcept { budget_.add(); }

  private:
    [[nodiscard]] bool isRepeatable(const HalvardSling::SlingError& error,
                                    std::string_view method) const;
    [[nodiscard]] std::chrono::nanoseconds delayOf(const HalvardSling::SlingError& error,
                                                   const FailedAttempt& failed) const;

    RetryPolicy policy_;
    Budget budget_;
    std::function<double()> random_;
};

}  // namespace KestrinHousehold::internal
