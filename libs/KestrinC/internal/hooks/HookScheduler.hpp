#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include <KestrinC/internal/hooks/Hooks.hpp>
#include <KestrinC/internal/requests/Task.hpp>
#include <KestrinHousehold/time/Scheduler.hpp>
#include <internal/Guarded.hpp>

namespace KestrinC::internal {

/// A scheduler made of an application's clock. What it takes back never runs, whatever the
/// application does with the task then.
class HookScheduler final : public KestrinHousehold::Scheduler {
  public:
    explicit HookScheduler(Hooks<kestrin_clock> hooks);

    [[nodiscard]] SteadyTime steadyTime() const override;
    [[nodiscard]] WallTime wallTime() const override;
    TaskID after(std::chrono::nanoseconds delay, Task task) override;
    void cancel(TaskID task) noexcept override;

  private:
    using Shared = KestrinInternal::Guarded<std::map<TaskID, Task>>;
    class Body;

    const Hooks<kestrin_clock> hooks_;
    const std::shared_ptr<Shared> waiting_;
};

}  // namespace KestrinC::internal
