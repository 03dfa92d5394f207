#pragma once

/// @file
/// How operators with several sources, or with a worker, keep their events apart.

#include <concepts>
#include <exception>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

#include "detail/namespace.hpp"
#include "rx-scheduler.hpp"
#include "rx-subscriber.hpp"

namespace rxcpp::inline bundled {

namespace detail {

/// What an operator gets from a coordination for each subscription.
template <class C>
concept coordination = requires(const C& c) {
    typename C::coordinator_type;
    { c.create_coordinator() } -> std::same_as<typename C::coordinator_type>;
};

template <class C>
concept any_coordination = coordination<std::decay_t<C>>;

/// Leaves everything as it is.
class identity_coordinator {
  public:
    explicit identity_coordinator(schedulers::worker worker) : worker_(std::move(worker)) {}

    [[nodiscard]] const schedulers::worker& get_worker() const { return worker_; }
    template <class Observable>
    [[nodiscard]] Observable in(Observable source) const {
        return source;
    }
    template <class Subscriber>
    [[nodiscard]] Subscriber out(Subscriber end) const {
        return end;
    }
    template <class F>
    [[nodiscard]] F act(F action) const {
        return action;
    }

  private:
    schedulers::worker worker_;
};

/// Recursive, for a source may emit while the subscription to it is made inside another event.
using serial_mutex = std::shared_ptr<std::recursive_mutex>;

/// Lets one event at a time through.
template <class T>
class serialized_observer {
  public:
    serialized_observer(const subscriber<T>& origin, serial_mutex mutex)
        : node_(origin.get_node()), mutex_(std::move(mutex)) {}

    template <class V>
    void on_next(V&& value) const {
        const std::lock_guard lock(*mutex_);
        node_->on_next(std::forward<V>(value));
    }
    void on_error(const std::exception_ptr& error) const {
        const std::lock_guard lock(*mutex_);
        node_->on_error(error);
    }
    void on_completed() const {
        const std::lock_guard lock(*mutex_);
        node_->on_completed();
    }

  private:
    reference<observer_node<T>> node_;
    serial_mutex mutex_;
};

class serialize_coordinator : public identity_coordinator {
  public:
    using identity_coordinator::identity_coordinator;

    template <class T>
    [[nodiscard]] subscriber<T> out(const subscriber<T>& end) const {
        return attach<T>(end.get_subscription(), serialized_observer<T>(end, mutex_));
    }
    template <class F>
    [[nodiscard]] auto act(F action) const {
        return [action = std::move(action), mutex = mutex_](const schedulers::schedulable& self) {
            const std::lock_guard lock(*mutex);
            action(self);
        };
    }

  private:
    serial_mutex mutex_ = std::make_shared<std::recursive_mutex>();
};

/// A coordination whose coordinators have a worker of one scheduler.
template <class Coordinator>
class one_worker {
  public:
    using coordinator_type = Coordinator;

    explicit one_worker(schedulers::scheduler factory) : factory_(std::move(factory)) {}

    [[nodiscard]] schedulers::scheduler::clock_type::time_point now() const {
        return factory_.now();
    }
    [[nodiscard]] coordinator_type create_coordinator(
        composite_subscription lifetime = composite_subscription()) const {
        return coordinator_type(factory_.create_worker(std::move(lifetime)));
    }

  private:
    schedulers::scheduler factory_;
};

}  // namespace detail

/// For sources that emit on one thread, or never at the same time.
class identity_one_worker : public detail::one_worker<detail::identity_coordinator> {
    using one_worker::one_worker;
};

/// For sources that emit on several threads: a lock lets one event at a time through.
class serialize_one_worker : public detail::one_worker<detail::serialize_coordinator> {
    using one_worker::one_worker;
};

/// @return the coordination for sources that emit on one thread; operators without a coordination
///         behave as with this one.
inline identity_one_worker identity_immediate() {
    return identity_one_worker(schedulers::make_immediate());
}

}  // namespace rxcpp::inline bundled
