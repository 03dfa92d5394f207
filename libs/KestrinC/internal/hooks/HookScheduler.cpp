#include <algorithm>
#include <atomic>
#include <new>
#include <utility>

#include <KestrinC/internal/hooks/HookScheduler.hpp>

namespace KestrinC::internal {

namespace {

/// Of the process, so that an application that has several clocks may keep their tasks together.
KestrinHousehold::Scheduler::TaskID nextTaskID() noexcept {
    static std::atomic<KestrinHousehold::Scheduler::TaskID> last{0};
    return ++last;
}

}  // namespace

/// What an application's timer runs: the task of this number, unless it was taken back.
class HookScheduler::Body final : public TaskBody {
  public:
    Body(std::shared_ptr<Shared> waiting, TaskID id) : waiting_(std::move(waiting)), id_(id) {}
    ~Body() override { drop(); }

    void run() noexcept override {
        auto node = waiting_->lock()->extract(id_);
        if (!node.empty()) node.mapped()();
    }

    void drop() noexcept final {
        const auto node = waiting_->lock()->extract(id_);  // ends without the lock
    }

  private:
    const std::shared_ptr<Shared> waiting_;
    const TaskID id_;
};

HookScheduler::HookScheduler(Hooks<kestrin_clock> hooks)
    : hooks_(std::move(hooks)), waiting_(std::make_shared<Shared>()) {}

HookScheduler::SteadyTime HookScheduler::steadyTime() const {
    return SteadyTime(std::chrono::duration_cast<SteadyTime::duration>(
        std::chrono::nanoseconds(hooks_.functions.steady_ns(hooks_.context()))));
}

HookScheduler::WallTime HookScheduler::wallTime() const {
    return WallTime(std::chrono::milliseconds(hooks_.functions.wall_ms(hooks_.context())));
}

HookScheduler::TaskID HookScheduler::after(std::chrono::nanoseconds delay, Task task) {
    const TaskID id = nextTaskID();
    waiting_->lock()->emplace(id, std::move(task));
    const auto takeBack = [&] { const auto node = waiting_->lock()->extract(id); };
    try {
        const auto body = std::make_shared<Body>(waiting_, id);
        kestrin_task* const handle = made<kestrin_task>(kestrin_task{body});
        const auto wait = std::max(delay, std::chrono::nanoseconds(0)).count();
        if (!hooks_.functions.after(hooks_.context(), id, wait, handle)) {
            retired(handle, "kestrin_clock.after");
            throw std::bad_alloc();
        }
    } catch (...) {
        takeBack();
        throw;
    }
    return id;
}

void HookScheduler::cancel(TaskID task) noexcept {
    auto node = waiting_->lock()->extract(task);
    if (!node.empty() && hooks_.functions.cancel != nullptr)
        hooks_.functions.cancel(hooks_.context(), task);
}

}  // namespace KestrinC::internal
