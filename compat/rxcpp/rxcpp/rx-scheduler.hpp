#pragma once

/// @file
/// Where and when operators do their work: the interfaces for a scheduler of one's own, and those
/// that are there.

#include <atomic>
#include <chrono>
#include <concepts>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "detail/namespace.hpp"
#include "rx-subscription.hpp"

namespace rxcpp::inline bundled {

namespace schedulers {

class schedulable;

/// What all schedulers share.
struct scheduler_base {
    using clock_type = std::chrono::steady_clock;
};

/// Tells an action whether it may be run again at once when it asks for that.
class recurse {
  public:
    explicit recurse(std::atomic<bool>& allowed) noexcept : allowed_(allowed) {}
    [[nodiscard]] bool is_allowed() const noexcept { return allowed_; }

  private:
    std::atomic<bool>& allowed_;
};

/// What a scheduler keeps to make a `recurse` of: whether nothing else waits.
class recursion {
  public:
    explicit recursion(bool allowed = true) noexcept : allowed_(allowed), recurse_(allowed_) {}
    recursion(const recursion&) = delete;
    recursion& operator=(const recursion&) = delete;
    ~recursion() = default;

    void reset(bool allowed = true) const noexcept { allowed_ = allowed; }
    [[nodiscard]] const recurse& get_recurse() const noexcept { return recurse_; }

  private:
    mutable std::atomic<bool> allowed_;
    recurse recurse_;
};

/// Runs the actions of a worker one at a time, those for the same time in the order in which they
/// came. An action `what` that is still subscribed is run with `what(recursion.get_recurse())`.
class worker_interface : public std::enable_shared_from_this<worker_interface> {
  public:
    using clock_type = scheduler_base::clock_type;

    worker_interface() = default;
    worker_interface(const worker_interface&) = delete;
    worker_interface& operator=(const worker_interface&) = delete;
    virtual ~worker_interface() = default;

    [[nodiscard]] virtual clock_type::time_point now() const = 0;
    /// Runs an action as soon as possible. Any thread.
    virtual void schedule(const schedulable& what) const = 0;
    /// Runs an action at a time. Any thread.
    virtual void schedule(clock_type::time_point when, const schedulable& what) const = 0;
};

template <class F>
concept action_function = !std::same_as<std::decay_t<F>, schedulable> &&
                          requires(std::decay_t<F>& action, const schedulable& self) {
                              requires std::is_void_v<decltype(action(self))>;
                          };

/// A copyable handle of a worker_interface, with a lifetime: once it has ended no action begins.
class worker {
  public:
    using clock_type = scheduler_base::clock_type;
    using weak_subscription = composite_subscription::weak_subscription;

    worker() = default;
    worker(composite_subscription lifetime, std::shared_ptr<const worker_interface> inner) noexcept
        : inner_(std::move(inner)), lifetime_(std::move(lifetime)) {}
    worker(composite_subscription lifetime, const worker& other) noexcept
        : inner_(other.inner_), lifetime_(std::move(lifetime)) {}

    [[nodiscard]] const composite_subscription& get_subscription() const noexcept {
        return lifetime_;
    }
    [[nodiscard]] bool is_subscribed() const { return lifetime_.is_subscribed(); }
    void unsubscribe() const { lifetime_.unsubscribe(); }
    weak_subscription add(subscription member) const { return lifetime_.add(std::move(member)); }
    void remove(weak_subscription name) const { lifetime_.remove(name); }

    [[nodiscard]] clock_type::time_point now() const { return inner_->now(); }

    /// Has an action run as soon as possible, at a time, or after a time.
    void schedule(const schedulable& what) const;
    void schedule(clock_type::time_point when, const schedulable& what) const;
    void schedule(clock_type::duration delay, const schedulable& what) const {
        schedule(now() + delay, what);
    }
    /// Does the same with a function void(const schedulable&), which lives as long as the worker.
    template <action_function F>
    void schedule(F action) const;
    template <action_function F>
    void schedule(clock_type::time_point when, F action) const;
    template <action_function F>
    void schedule(clock_type::duration delay, F action) const {
        schedule(now() + delay, std::move(action));
    }

  private:
    friend class schedulable;

    std::shared_ptr<const worker_interface> inner_;
    composite_subscription lifetime_;
};

/// An action, its lifetime and the worker that runs it. Does not keep the worker.
class schedulable {
  public:
    using clock_type = scheduler_base::clock_type;

    template <action_function F>
    schedulable(const worker& runner, F action)
        : schedulable(
              runner.lifetime_, runner,
              std::make_shared<std::function<void(const schedulable&)>>(std::move(action))) {}

    /// The same action with another worker.
    schedulable(const schedulable& other, const worker& runner)
        : schedulable(other.lifetime_, runner, other.action_) {}

    [[nodiscard]] const composite_subscription& get_subscription() const noexcept {
        return lifetime_;
    }
    [[nodiscard]] bool is_subscribed() const { return lifetime_.is_subscribed(); }
    void unsubscribe() const { lifetime_.unsubscribe(); }
    [[nodiscard]] worker get_worker() const { return {lifetime_, inner_.lock()}; }
    [[nodiscard]] clock_type::time_point now() const { return get_worker().now(); }

    /// Has the action run again, as soon as possible, at a time, or after a time.
    void schedule() const {
        if (is_subscribed()) get_worker().schedule(*this);
    }
    void schedule(clock_type::time_point when) const {
        if (is_subscribed()) get_worker().schedule(when, *this);
    }
    void schedule(clock_type::duration delay) const {
        if (is_subscribed()) get_worker().schedule(delay, *this);
    }

    /// Called by the action: asks to be run again when it has returned.
    void operator()() const noexcept { requested_ = true; }

    /// Called by the worker: runs the action. One that throws is not run again.
    void operator()(const recurse& again) const {
        try {
            while (is_subscribed()) {
                requested_ = false;
                (*action_)(*this);
                if (!requested_) return;
                if (!again.is_allowed()) return schedule();
            }
        } catch (...) {
            unsubscribe();
            throw;
        }
    }

  private:
    using action_pointer = std::shared_ptr<std::function<void(const schedulable&)>>;

    schedulable(composite_subscription lifetime, const worker& runner, action_pointer what)
        : lifetime_(std::move(lifetime)), inner_(runner.inner_), action_(std::move(what)) {}

    composite_subscription lifetime_;
    std::weak_ptr<const worker_interface> inner_;
    action_pointer action_;
    mutable bool requested_ = false;
};

inline void worker::schedule(const schedulable& what) const {
    inner_->schedule(schedulable(what, *this));
}
inline void worker::schedule(clock_type::time_point when, const schedulable& what) const {
    inner_->schedule(when, schedulable(what, *this));
}
template <action_function F>
void worker::schedule(F action) const {
    inner_->schedule(schedulable(*this, std::move(action)));
}
template <action_function F>
void worker::schedule(clock_type::time_point when, F action) const {
    inner_->schedule(when, schedulable(*this, std::move(action)));
}

/// Makes workers.
class scheduler_interface : public std::enable_shared_from_this<scheduler_interface> {
  public:
    using clock_type = scheduler_base::clock_type;

    scheduler_interface() = default;
    scheduler_interface(const scheduler_interface&) = delete;
    scheduler_interface& operator=(const scheduler_interface&) = delete;
    virtual ~scheduler_interface() = default;

    [[nodiscard]] virtual clock_type::time_point now() const = 0;
    /// @param lifetime the worker's.
    [[nodiscard]] virtual worker create_worker(composite_subscription lifetime) const = 0;
};

/// A copyable handle of a scheduler_interface.
class scheduler : public scheduler_base {
  public:
    scheduler() = default;
    explicit scheduler(std::shared_ptr<const scheduler_interface> inner) noexcept
        : inner_(std::move(inner)) {}

    [[nodiscard]] clock_type::time_point now() const { return inner_->now(); }
    [[nodiscard]] worker create_worker(
        composite_subscription lifetime = composite_subscription()) const {
        return inner_->create_worker(std::move(lifetime));
    }

  private:
    std::shared_ptr<const scheduler_interface> inner_;
};

/// Makes a scheduler of a class of one's own.
template <class Scheduler, class... Arguments>
scheduler make_scheduler(Arguments&&... arguments) {
    return scheduler(std::make_shared<Scheduler>(std::forward<Arguments>(arguments)...));
}

}  // namespace schedulers

namespace rxsc = schedulers;

}  // namespace rxcpp::inline bundled

#include "schedulers/rx-immediate.hpp"  // IWYU pragma: export
#include "schedulers/rx-runloop.hpp"    // IWYU pragma: export
