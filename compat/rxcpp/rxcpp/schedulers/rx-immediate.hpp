#pragma once

/// @file
/// The scheduler that runs an action before it returns.

#include <memory>
#include <thread>
#include <utility>

#include "../detail/namespace.hpp"
#include "../rx-scheduler.hpp"

namespace rxcpp::inline bundled {

namespace schedulers {

namespace detail {

class immediate_worker final : public worker_interface {
  public:
    [[nodiscard]] clock_type::time_point now() const override { return clock_type::now(); }
    void schedule(const schedulable& what) const override {
        const recursion allowed(true);
        if (what.is_subscribed()) what(allowed.get_recurse());
    }
    void schedule(clock_type::time_point when, const schedulable& what) const override {
        std::this_thread::sleep_until(when);
        schedule(what);
    }
};

}  // namespace detail

/// Runs each action on the thread that schedules it, before that call returns; for a later time the
/// thread sleeps.
class immediate final : public scheduler_interface {
  public:
    [[nodiscard]] clock_type::time_point now() const override { return clock_type::now(); }
    [[nodiscard]] worker create_worker(composite_subscription lifetime) const override {
        return {std::move(lifetime), worker_};
    }

  private:
    std::shared_ptr<const worker_interface> worker_ = std::make_shared<detail::immediate_worker>();
};

/// @return the scheduler `immediate`.
inline const scheduler& make_immediate() {
    static const scheduler instance = make_scheduler<immediate>();
    return instance;
}

}  // namespace schedulers

}  // namespace rxcpp::inline bundled
