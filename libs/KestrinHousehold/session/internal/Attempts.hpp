#pragma once

#include <atomic>
#include <chrono>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>

#include <rxcpp/rx-lite.hpp>

#include <KestrinHousehold/session/internal/HouseholdState.hpp>
#include <KestrinHousehold/time/Scheduler.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>

namespace KestrinHousehold::internal {

/// A request that is sent until its result stands: once, or more often as the household's policy
/// says. It has one end, which is claimed by whoever comes first: the result, the deadline, who
/// cancels. Events of one attempt come one after the other; cancelling may come at any time.
class Attempts : public std::enable_shared_from_this<Attempts> {
  public:
    Attempts(const Attempts&) = delete;
    Attempts& operator=(const Attempts&) = delete;
    virtual ~Attempts() = default;

    /// Ends without a word; does nothing after the end.
    void cancel() noexcept;

    /// Ends with an error, unless it has ended.
    void abort(const std::exception_ptr& error);

  protected:
    /// @param deadline  of all attempts together; absent: the policy's
    Attempts(HouseholdState& household, KestrinProfile::ProfileOperation operation, bool repeats,
             std::optional<std::chrono::nanoseconds> deadline);

    [[nodiscard]] KestrinProfile::ProfileOperation operation() const noexcept { return operation_; }

    /// Begins to count the time.
    void start();

    /// Sends the request.
    void attempt();

    [[nodiscard]] bool hasEnded() const;

    /// The request has failed: sends it again, or ends with this error.
    void failed(const std::exception_ptr& error);

    /// Claims the end for a request that has succeeded.
    /// @param wasSent  false: there was nothing to send, so that it earns no repeat
    /// @return whether the result may be delivered
    [[nodiscard]] bool succeeded(bool wasSent = true) noexcept;

    /// Sends the request once.
    virtual void send(const rxcpp::composite_subscription& attempt) = 0;

    /// Delivers the error with which all ends.
    virtual void fail(const std::exception_ptr& error) = 0;

    /// After the end, whatever it was; with no lock held.
    virtual void ended() noexcept {}

  private:
    /// What the end leaves to be let go of, without the lock.
    struct Rest {
        std::optional<rxcpp::composite_subscription> attempt;
        Scheduler::TaskID repeat = 0;
        Scheduler::TaskID deadline = 0;
    };

    [[nodiscard]] bool claimEnd(bool unsubscribes) noexcept;
    void repeatLater(const Retries::Repeat& repeat, const std::exception_ptr& error);
    [[nodiscard]] Scheduler::TaskID schedule(std::chrono::nanoseconds delay,
                                             void (Attempts::*task)());
    /// Keeps a task for its end; takes it back if that has come.
    void keep(Scheduler::TaskID Rest::* place, Scheduler::TaskID task);
    void limitTime();
    void timeIsUp();

    HouseholdState& household_;
    const KestrinProfile::ProfileOperation operation_;
    const bool repeats_;
    const std::optional<std::chrono::nanoseconds> limit_;
    Scheduler::SteadyTime started_;
    std::atomic<int> attempt_ = 1;  // the deadline reads it, on a thread of its own

    mutable std::mutex mutex_;
    bool hasEnded_ = false;
    Rest rest_;
};

}  // namespace KestrinHousehold::internal
