#pragma once

/// @file
/// The operator that moves events to a worker.

#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "../detail/namespace.hpp"
#include "../rx-coordination.hpp"
#include "../rx-lite.hpp"
#include "../rx-scheduler.hpp"

namespace rxcpp::inline bundled {

namespace operators {

namespace detail {

/// The events between a source and a worker. One action of the worker delivers one event, or, when
/// the source has ended, all that are left.
template <class T, class Coordinator>
class observe_on_state : public std::enable_shared_from_this<observe_on_state<T, Coordinator>> {
  public:
    using event = std::function<void(const subscriber<T>&)>;

    observe_on_state(subscriber<T> out, Coordinator coordinator, composite_subscription lifetime)
        : out_(std::move(out)),
          coordinator_(std::move(coordinator)),
          lifetime_(std::move(lifetime)) {}

    void add(event what) {
        std::unique_lock lock(mutex_);
        if (ended_) return;
        waiting_.push_back(std::move(what));
        wake(lock);
    }

    /// The subscription to the source has ended.
    void source_ended() {
        std::unique_lock lock(mutex_);
        if (!ended_) wake(lock);
    }

  private:
    using unique_lock = std::unique_lock<std::mutex>;

    void wake(unique_lock& lock) {
        if (std::exchange(busy_, true)) return;
        lock.unlock();
        const auto self = this->shared_from_this();
        coordinator_.get_worker().schedule(coordinator_.act(
            [self](const schedulers::schedulable& action) { self->deliver(action); }));
    }

    void deliver(const schedulers::schedulable& action) {
        try {
            while (deliver_one()) {
                action();
                if (lifetime_.is_subscribed()) return;
            }
        } catch (...) {
            finish();
        }
    }

    bool deliver_one() {
        unique_lock lock(mutex_);
        if (!out_.is_subscribed() || (waiting_.empty() && !lifetime_.is_subscribed())) {
            lock.unlock();
            finish();
            return false;
        }
        if (waiting_.empty()) {
            busy_ = false;
            return false;
        }
        const event first = std::move(waiting_.front());
        waiting_.pop_front();
        lock.unlock();
        first(out_);
        return true;
    }

    void finish() {
        std::deque<event> dropped;  // destroyed without the lock
        {
            const std::lock_guard lock(mutex_);
            if (std::exchange(ended_, true)) return;
            dropped.swap(waiting_);
        }
        lifetime_.unsubscribe();
        out_.unsubscribe();
    }

    const subscriber<T> out_;
    const Coordinator coordinator_;
    const composite_subscription lifetime_;
    std::mutex mutex_;
    std::deque<event> waiting_;
    bool busy_ = false;  // the worker has an action
    bool ended_ = false;
};

template <class T, class Coordinator>
class observe_on_observer {
  public:
    observe_on_observer(std::shared_ptr<observe_on_state<T, Coordinator>> state,
                        composite_subscription lifetime)
        : state_(std::move(state)), lifetime_(std::move(lifetime)) {}

    template <class V>
    void on_next(V&& value) const {
        state_->add(
            [kept = T(std::forward<V>(value))](const subscriber<T>& out) { out.on_next(kept); });
    }
    void on_error(const std::exception_ptr& error) const {
        state_->add([error](const subscriber<T>& out) { out.on_error(error); });
    }
    void on_completed() const {
        state_->add([](const subscriber<T>& out) { out.on_completed(); });
    }
    [[nodiscard]] const composite_subscription& get_subscription() const { return lifetime_; }

  private:
    std::shared_ptr<observe_on_state<T, Coordinator>> state_;
    composite_subscription lifetime_;
};

template <class T, class Coordination>
class observe_on_operator {
  public:
    using value_type = T;

    explicit observe_on_operator(Coordination coordination)
        : coordination_(std::move(coordination)) {}

    template <class End>
    auto stage_before(End end) const {
        using coordinator = typename Coordination::coordinator_type;
        const subscriber<T> out = rxcpp::detail::into_subscriber(std::move(end));
        const composite_subscription lifetime;
        const auto state = std::make_shared<observe_on_state<T, coordinator>>(
            out, coordination_.create_coordinator(out.get_subscription()), lifetime);
        out.add(lifetime);
        lifetime.add([state] { state->source_ended(); });
        using observer = observe_on_observer<T, coordinator>;
        return rxcpp::detail::stage<T, observer>(observer(state, lifetime));
    }

  private:
    Coordination coordination_;
};

}  // namespace detail

/// Makes the operator that has all events delivered by the worker of a coordination, in their order
/// and one at a time.
///
/// What a function of the subscriber for the error or the completion throws is dropped.
///
/// @param coordination with the scheduler whose worker delivers.
/// @return what `|` applies to an observable.
template <rxcpp::detail::coordination Coordination>
auto observe_on(Coordination coordination) {
    return [coordination =
                std::move(coordination)]<class T, class Source>(observable<T, Source> source) {
        return rxcpp::detail::lift(std::move(source),
                                   detail::observe_on_operator<T, Coordination>(coordination));
    };
}

}  // namespace operators

namespace rxo = operators;

namespace detail {

template <class... F>
struct member_operator<observe_on_tag, F...> {
    template <class Observable, class... Arguments>
    static auto apply(const Observable& source, Arguments&&... arguments) {
        return operators::observe_on(std::forward<Arguments>(arguments)...)(source);
    }
};

}  // namespace detail

namespace detail {

/// Moves the events of each source to the worker before they reach the operator.
class observe_on_coordinator : public identity_coordinator {
  public:
    explicit observe_on_coordinator(const schedulers::worker& runner)
        : identity_coordinator(runner),
          coordination_(schedulers::make_scheduler<same_worker>(runner)) {}

    template <class T, class Source>
    [[nodiscard]] auto in(observable<T, Source> source) const {
        return operators::observe_on(coordination_)(std::move(source));
    }

  private:
    /// Makes workers of their own lifetimes that run their actions where another one does.
    class same_worker final : public schedulers::scheduler_interface {
      public:
        explicit same_worker(schedulers::worker runner) : runner_(std::move(runner)) {}

        [[nodiscard]] clock_type::time_point now() const override { return runner_.now(); }
        [[nodiscard]] schedulers::worker create_worker(
            composite_subscription lifetime) const override {
            const auto outer = runner_.get_subscription();
            const auto name = outer.add(lifetime);
            lifetime.add([outer, name] { outer.remove(name); });
            return {lifetime, runner_};
        }

      private:
        schedulers::worker runner_;
    };

    identity_one_worker coordination_;
};

}  // namespace detail

/// For sources that emit on several threads: the worker delivers their events, one at a time.
class observe_on_one_worker : public detail::one_worker<detail::observe_on_coordinator> {
    using one_worker::one_worker;
};

/// @return the coordination whose worker is `loop`.
inline observe_on_one_worker observe_on_run_loop(const schedulers::run_loop& loop) {
    return observe_on_one_worker(schedulers::make_run_loop(loop));
}

}  // namespace rxcpp::inline bundled
