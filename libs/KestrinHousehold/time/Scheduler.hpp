#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include <KestrinHousehold/Export.hpp>

namespace KestrinHousehold {

/// The time, and who waits for it: everything here that happens later (a repeated request, the next
/// report of a position, an entry of the outbox) is a task of a scheduler. An application may bring
/// its own, made of its platform's timers; tests have a `FakeScheduler`.
///
/// All members may be called from any thread, also from inside a task, and run no task themselves.
class KESTRIN_HOUSEHOLD_EXPORT Scheduler {
  public:
    /// Names a task that waits; never 0.
    using TaskID = std::uint64_t;
    /// What is run, once.
    using Task = std::function<void()>;
    /// A time that never goes back.
    using SteadyTime = std::chrono::steady_clock::time_point;
    /// A time of the device's clock.
    using WallTime = std::chrono::system_clock::time_point;

    Scheduler() = default;
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;
    virtual ~Scheduler();

    /// A time that never goes back, for measuring how long something takes.
    [[nodiscard]] virtual SteadyTime steadyTime() const = 0;

    /// The device's clock, for what outlives the process or another device reads. It may jump.
    [[nodiscard]] virtual WallTime wallTime() const = 0;

    /// Runs a task once, when the delay has passed. Tasks that are due run one after the other, in
    /// the order of their times; those of one time in the order in which they came.
    /// @param delay  0 or less: as soon as possible
    /// @param task   must not block; what it throws ends the process
    /// @throws std::bad_alloc or std::system_error if the task cannot be kept; it then never runs
    virtual TaskID after(std::chrono::nanoseconds delay, Task task) = 0;

    /// Takes a task back that has not begun; nothing of it is left when this returns. Does nothing
    /// if it has begun, or the identifier is 0.
    virtual void cancel(TaskID task) noexcept = 0;
};

}  // namespace KestrinHousehold
