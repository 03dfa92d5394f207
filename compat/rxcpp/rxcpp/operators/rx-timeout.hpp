#pragma once

/// @file
/// The operator that fails when no value comes in time.

#include <chrono>
#include <cstddef>
#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

#include "../detail/namespace.hpp"
#include "../rx-coordination.hpp"
#include "../rx-lite.hpp"
#include "../rx-scheduler.hpp"

namespace rxcpp::inline bundled {

/// What timeout() fails with.
class timeout_error : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

namespace operators {

namespace detail {

template <class>
inline constexpr bool is_duration = false;
template <class Number, class Period>
inline constexpr bool is_duration<std::chrono::duration<Number, Period>> = true;

template <class D>
concept duration = is_duration<D>;

/// The events on their way through the worker, and the time that runs.
template <class T, class Duration, class Coordinator>
class timeout_state : public std::enable_shared_from_this<timeout_state<T, Duration, Coordinator>> {
  public:
    timeout_state(subscriber<T> out, composite_subscription source, Coordinator coordinator,
                  Duration period)
        : out_(std::move(out)),
          source_(std::move(source)),
          coordinator_(std::move(coordinator)),
          period_(period) {}

    void start() {
        const auto self = this->shared_from_this();
        const auto release = [self] { self->run([self] { self->end(); }); };
        out_.add(release);
        source_.add(release);
        run([self] { self->wait(self->worker().now() + self->period_); });
    }

    template <class V>
    void on_next(V&& value) {
        const auto self = this->shared_from_this();
        run([self, kept = T(std::forward<V>(value))] {
            const auto until = self->worker().now() + self->period_;
            ++self->index_;
            self->out_.on_next(kept);
            self->wait(until);
        });
    }
    void on_error(const std::exception_ptr& error) {
        run([self = this->shared_from_this(), error] { self->out_.on_error(error); });
    }
    void on_completed() {
        run([self = this->shared_from_this()] { self->out_.on_completed(); });
    }

  private:
    [[nodiscard]] const schedulers::worker& worker() const { return coordinator_.get_worker(); }

    template <class F>
    auto action(F function) const {
        return coordinator_.act(
            [function = std::move(function)](const schedulers::schedulable&) { function(); });
    }

    template <class F>
    void run(F function) const {
        worker().schedule(action(std::move(function)));
    }

    /// Fails at this time unless a value has come by then.
    void wait(schedulers::scheduler_base::clock_type::time_point until) {
        worker().schedule(until, action([self = this->shared_from_this(), index = index_] {
                              if (index == self->index_) self->fail();
                          }));
    }

    void fail() { out_.on_error(std::make_exception_ptr(timeout_error("timeout has occurred"))); }

    void end() {
        source_.unsubscribe();
        out_.unsubscribe();
        worker().unsubscribe();
    }

    const subscriber<T> out_;
    const composite_subscription source_;
    const Coordinator coordinator_;
    const Duration period_;
    std::size_t index_ = 0;
};

template <class T, class State>
class timeout_observer {
  public:
    timeout_observer(std::shared_ptr<State> state, composite_subscription lifetime)
        : state_(std::move(state)), lifetime_(std::move(lifetime)) {}

    template <class V>
    void on_next(V&& value) const {
        state_->on_next(std::forward<V>(value));
    }
    void on_error(const std::exception_ptr& error) const { state_->on_error(error); }
    void on_completed() const { state_->on_completed(); }
    [[nodiscard]] const composite_subscription& get_subscription() const { return lifetime_; }

  private:
    std::shared_ptr<State> state_;
    composite_subscription lifetime_;
};

template <class T, class Duration, class Coordination>
class timeout_operator {
  public:
    using value_type = T;

    timeout_operator(Duration period, Coordination coordination)
        : period_(period), coordination_(std::move(coordination)) {}

    template <class End>
    auto stage_before(End end) const {
        using state_type = timeout_state<T, Duration, typename Coordination::coordinator_type>;
        const composite_subscription lifetime;
        const auto state =
            std::make_shared<state_type>(rxcpp::detail::into_subscriber(std::move(end)), lifetime,
                                         coordination_.create_coordinator(), period_);
        state->start();
        using observer = timeout_observer<T, state_type>;
        return rxcpp::detail::stage<T, observer>(observer(state, lifetime));
    }

  private:
    Duration period_;
    Coordination coordination_;
};

}  // namespace detail

/// Makes the operator that fails with timeout_error when no value has come for a time: since the
/// subscription, or since the last value.
///
/// The worker of the coordination keeps the time and delivers all events. It also ends the
/// subscription to the source, so that happens once it gets to it.
///
/// @param period the time.
/// @param coordination with the scheduler whose worker does this; the two may change places.
/// @return what `|` applies to an observable.
template <detail::duration Duration, rxcpp::detail::coordination Coordination>
auto timeout(Duration period, Coordination coordination) {
    return [period, coordination = std::move(coordination)]<class T, class Source>(
               observable<T, Source> source) {
        return rxcpp::detail::lift(
            std::move(source),
            detail::timeout_operator<T, Duration, Coordination>(period, coordination));
    };
}
template <rxcpp::detail::coordination Coordination, detail::duration Duration>
auto timeout(Coordination coordination, Duration period) {
    return timeout(period, std::move(coordination));
}

}  // namespace operators

namespace rxo = operators;

namespace detail {

template <class... F>
struct member_operator<timeout_tag, F...> {
    template <class Observable, class... Arguments>
    static auto apply(const Observable& source, Arguments&&... arguments) {
        return operators::timeout(std::forward<Arguments>(arguments)...)(source);
    }
};

}  // namespace detail

}  // namespace rxcpp::inline bundled
