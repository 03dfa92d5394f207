#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include <KestrinHousehold/time/Scheduler.hpp>

namespace KestrinHousehold {

/// A scheduler for tests: its time stands still until `advance`, which runs what is due on the
/// calling thread. All members may be called from any thread.
class FakeScheduler final : public Scheduler {
  public:
    /// A scheduler whose time stands still.
    /// @param wallTime  what the device's clock says at the start
    explicit FakeScheduler(WallTime wallTime = WallTime(std::chrono::seconds(1'700'000'000)));

    [[nodiscard]] SteadyTime steadyTime() const override;
    [[nodiscard]] WallTime wallTime() const override;
    TaskID after(std::chrono::nanoseconds delay, Task task) override;
    void cancel(TaskID task) noexcept override;

    /// Lets time pass, and runs the tasks that are due in it, those included that such a task adds.
    /// Each task sees the time at which it is due. With 0 only what is due now runs.
    void advance(std::chrono::nanoseconds duration);

    /// Sets the device's clock, as a user or the network does. Delays stay as they are.
    void setWallTime(WallTime time);

    /// How many tasks wait.
    [[nodiscard]] std::size_t waiting() const;

    /// How long the next task waits; absent if none does.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> nextDelay() const;

  private:
    using Key = std::pair<SteadyTime, TaskID>;

    mutable std::mutex mutex_;
    SteadyTime now_{};
    WallTime wallTime_;
    TaskID last_ = 0;
    std::map<Key, Task> tasks_;
};

}  // namespace KestrinHousehold
