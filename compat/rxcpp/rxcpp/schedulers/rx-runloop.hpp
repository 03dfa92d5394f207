#pragma once

/// @file
/// The scheduler of a thread that has a loop of its own, such as that of a user interface.

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <queue>
#include <utility>
#include <vector>

#include "../detail/namespace.hpp"
#include "../rx-scheduler.hpp"

namespace rxcpp::inline bundled {

namespace schedulers {

namespace detail {

/// An action and when it is due.
struct run_loop_item {
    scheduler_base::clock_type::time_point when;
    schedulable what;
    std::uint64_t ordinal;

    /// For a queue whose top is the earliest, and of those for the same time the first.
    friend bool operator<(const run_loop_item& left, const run_loop_item& right) noexcept {
        return left.when != right.when ? left.when > right.when : left.ordinal > right.ordinal;
    }
};

struct run_loop_state {
    using time_point = scheduler_base::clock_type::time_point;

    composite_subscription lifetime;
    std::mutex mutex;
    std::priority_queue<run_loop_item> queue;
    std::uint64_t last = 0;
    recursion alone;
    std::function<void(time_point)> notify_earlier_wakeup;

    void add(time_point when, const schedulable& what) {
        if (!what.is_subscribed()) return;
        const std::lock_guard lock(mutex);
        const bool earlier = queue.empty() || when < queue.top().when;
        queue.push({when, what, ++last});
        alone.reset(false);
        if (earlier && notify_earlier_wakeup) notify_earlier_wakeup(when);
    }
};

class run_loop_worker final : public worker_interface {
  public:
    explicit run_loop_worker(std::weak_ptr<run_loop_state> state) : state_(std::move(state)) {}

    [[nodiscard]] clock_type::time_point now() const override { return clock_type::now(); }
    void schedule(const schedulable& what) const override { schedule(now(), what); }
    void schedule(clock_type::time_point when, const schedulable& what) const override {
        if (const auto state = state_.lock()) state->add(when, what);
    }

  private:
    std::weak_ptr<run_loop_state> state_;
};

class run_loop_scheduler final : public scheduler_interface {
  public:
    explicit run_loop_scheduler(std::weak_ptr<run_loop_state> state) : state_(std::move(state)) {}

    [[nodiscard]] clock_type::time_point now() const override { return clock_type::now(); }
    [[nodiscard]] worker create_worker(composite_subscription lifetime) const override {
        const auto state = state_.lock();
        if (state == nullptr) {
            lifetime.unsubscribe();
        } else {
            const auto loop = state->lifetime;
            const auto name = loop.add(lifetime);
            lifetime.add([loop, name] { loop.remove(name); });
        }
        return {lifetime, std::make_shared<run_loop_worker>(state_)};
    }

  private:
    std::weak_ptr<run_loop_state> state_;
};

}  // namespace detail

/// Actions wait in it until its owner calls dispatch(), on the thread where they are to run. May be
/// scheduled to from any thread. Its end drops what waits and ends the workers.
class run_loop {
  public:
    using clock_type = scheduler_base::clock_type;

    run_loop() = default;
    run_loop(const run_loop&) = delete;
    run_loop& operator=(const run_loop&) = delete;
    ~run_loop() {
        state_->lifetime.unsubscribe();
        std::priority_queue<detail::run_loop_item> dropped;  // destroyed without the lock
        const std::lock_guard lock(state_->mutex);
        dropped.swap(state_->queue);
    }

    [[nodiscard]] clock_type::time_point now() const { return clock_type::now(); }
    [[nodiscard]] composite_subscription get_subscription() const { return state_->lifetime; }

    /// @return whether nothing waits.
    [[nodiscard]] bool empty() const {
        const std::lock_guard lock(state_->mutex);
        return state_->queue.empty();
    }

    /// @return what is due next, as `.when` and `.what`; there must be something.
    [[nodiscard]] detail::run_loop_item peek() const {
        const std::lock_guard lock(state_->mutex);
        return state_->queue.top();
    }

    /// Runs the first action if it is due; drops it if it has been unsubscribed.
    void dispatch() const {
        std::unique_lock lock(state_->mutex);
        if (state_->queue.empty()) return;
        const auto first = state_->queue.top();
        if (first.what.is_subscribed() && clock_type::now() < first.when) return;
        state_->queue.pop();
        // What a dropped action holds goes without the lock.
        if (!first.what.is_subscribed()) return lock.unlock();
        state_->alone.reset(state_->queue.empty());
        lock.unlock();
        first.what(state_->alone.get_recurse());
    }

    [[nodiscard]] scheduler get_scheduler() const {
        return make_scheduler<detail::run_loop_scheduler>(state_);
    }

    /// @param notify called with the time of an action that is due before all others, on the thread
    ///        that schedules it and with a lock held: it must only wake the owner.
    void set_notify_earlier_wakeup(
        const std::function<void(clock_type::time_point)>& notify) const {
        const std::lock_guard lock(state_->mutex);
        state_->notify_earlier_wakeup = notify;
    }

  private:
    std::shared_ptr<detail::run_loop_state> state_ = std::make_shared<detail::run_loop_state>();
};

/// @return the scheduler whose actions `loop` runs.
inline scheduler make_run_loop(const run_loop& loop) {
    return loop.get_scheduler();
}

}  // namespace schedulers

}  // namespace rxcpp::inline bundled
