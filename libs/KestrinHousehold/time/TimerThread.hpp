#pragma once

#include <memory>

#include <KestrinHousehold/Export.hpp>
#include <KestrinHousehold/time/Scheduler.hpp>

namespace KestrinHousehold {

/// The scheduler that is used unless an application brings its own: it runs tasks on a thread,
/// which exists only while a task waits. Without tasks there is neither a thread nor a wake-up.
class KESTRIN_HOUSEHOLD_EXPORT TimerThread final : public Scheduler {
  public:
    /// No thread yet.
    TimerThread();

    /// Drops the tasks that wait, and waits for the one that runs, unless it is called from inside
    /// that one.
    ~TimerThread() override;

    [[nodiscard]] SteadyTime steadyTime() const override;
    [[nodiscard]] WallTime wallTime() const override;
    TaskID after(std::chrono::nanoseconds delay, Task task) override;
    void cancel(TaskID task) noexcept override;

  private:
    class State;
    std::shared_ptr<State> state_;
};

}  // namespace KestrinHousehold
