#pragma once

/// @file
/// The receiving end of a subscription.

#include <concepts>
#include <exception>
#include <type_traits>
#include <utility>

#include "detail/callbacks.hpp"
#include "detail/namespace.hpp"
#include "detail/observer_node.hpp"
#include "detail/reference.hpp"
#include "rx-subscription.hpp"

namespace rxcpp::inline bundled {

/// A copyable handle of an observer and the subscription that bounds its life.
///
/// Copies share both. Events must come one at a time, from any thread; is_subscribed(),
/// unsubscribe(), add(), remove() and clear() may be called from any thread at any time. A handle
/// that was moved from calls std::terminate.
///
/// @tparam T the type of the values.
template <class T>
class subscriber {
  public:
    /// The type of the values.
    using value_type = T;
    /// Names one registered action.
    using weak_subscription = composite_subscription::weak_subscription;

    /// Takes the shared observer; for the library's own use.
    explicit subscriber(detail::reference<detail::observer_node<T>> node) noexcept
        : node_(std::move(node)) {}

    /// Sends a value; dropped if the subscription has ended.
    ///
    /// If the observer throws, it gets the exception as its error and the subscription ends; this
    /// call returns normally then.
    ///
    /// @param value anything that converts to T; an rvalue of T is moved along, never copied.
    /// @throws whatever the error function throws about an exception of the value function.
    template <class V>
    void on_next(V&& value) const {
        const auto kept = node_;  // the observer may drop this very handle
        detail::send_next(node(), node().get_subscription(), std::forward<V>(value));
    }

    /// Sends an error and ends the subscription; dropped if it has ended.
    ///
    /// The subscription ends after the observer has seen the error.
    ///
    /// @param error the error, passed on as it is.
    /// @throws whatever the error function throws; the subscription ends all the same. An observer
    ///         without an error function calls std::terminate.
    // By value, because the emitter's own handle may go away on the way.
    // NOLINTNEXTLINE(performance-unnecessary-value-param)
    void on_error(std::exception_ptr error) const {
        const auto kept = node_;
        detail::send_error(node(), node().get_subscription(), error);
    }

    /// Sends the completion and ends the subscription; dropped if it has ended.
    ///
    /// The subscription ends after the observer has seen the completion.
    ///
    /// @throws whatever the completion function throws; the subscription ends all the same.
    void on_completed() const {
        const auto kept = node_;
        detail::send_completed(node(), node().get_subscription());
    }

    /// @return whether events still reach the observer.
    [[nodiscard]] bool is_subscribed() const { return get_subscription().is_subscribed(); }

    /// Ends the subscription, see composite_subscription::unsubscribe().
    void unsubscribe() const { get_subscription().unsubscribe(); }

    /// Ends `member` together with the subscription, see composite_subscription::add().
    weak_subscription add(subscription member) const {
        return get_subscription().add(std::move(member));
    }

    /// Runs an action when the subscription ends, see composite_subscription::add().
    template <detail::teardown_function F>
    weak_subscription add(F&& action) const {
        return get_subscription().add(std::forward<F>(action));
    }

    /// Forgets an action, see composite_subscription::remove().
    void remove(weak_subscription name) const { get_subscription().remove(name); }

    /// Runs and forgets all actions, see composite_subscription::clear().
    void clear() const { get_subscription().clear(); }

    /// @return the subscription; valid as long as this handle.
    [[nodiscard]] const composite_subscription& get_subscription() const {
        return node().get_subscription();
    }

    /// @return this handle, which hides the type of its observer already.
    [[nodiscard]] subscriber as_dynamic() const { return *this; }

    /// @return the observer without the rules of a subscription; for the library's own use.
    [[nodiscard]] const detail::reference<detail::observer_node<T>>& get_node() const noexcept {
        return node_;
    }

  private:
    [[nodiscard]] const detail::observer_node<T>& node() const {
        if (!node_) std::terminate();
        return *node_;
    }

    detail::reference<detail::observer_node<T>> node_;
};

namespace detail {

/// The receiving end of one operator in a chain: like a subscriber, but of a known type, so that
/// the operators of a chain call each other directly and live in one allocation.
template <class T, class Observer>
class stage {
  public:
    explicit stage(Observer observer) : observer_(std::move(observer)) {}

    template <class V>
    void on_next(V&& value) const {
        send_next(observer_, get_subscription(), std::forward<V>(value));
    }
    void on_error(const std::exception_ptr& error) const {
        send_error(observer_, get_subscription(), error);
    }
    void on_completed() const { send_completed(observer_, get_subscription()); }
    [[nodiscard]] const composite_subscription& get_subscription() const {
        return observer_.get_subscription();
    }

    subscriber<T> into_subscriber() && {
        composite_subscription lifetime = get_subscription();
        return subscriber<T>(reference<observer_node<T>>::adopt(
            new attached_node<T, Observer>(std::move(lifetime), std::move(observer_))));
    }

  private:
    Observer observer_;
};

template <class T>
subscriber<T> into_subscriber(subscriber<T> handle) noexcept {
    return handle;
}
template <class T, class Observer>
subscriber<T> into_subscriber(stage<T, Observer> end) {
    return std::move(end).into_subscriber();
}

/// Passes events to the observer of a subscriber, whose own lifetime does not count.
template <class T>
class shared_observer {
  public:
    explicit shared_observer(const subscriber<T>& origin) : node_(origin.get_node()) {}

    template <class V>
    void on_next(V&& value) const {
        node_->on_next(std::forward<V>(value));
    }
    void on_error(const std::exception_ptr& error) const { node_->on_error(error); }
    void on_completed() const { node_->on_completed(); }

  private:
    reference<observer_node<T>> node_;
};

template <class T, class Observer>
subscriber<T> attach(const composite_subscription& lifetime, Observer observer) {
    return subscriber<T>(reference<observer_node<T>>::adopt(
        new attached_node<T, Observer>(lifetime, std::move(observer))));
}

template <class T, class Observer>
subscriber<T> own(Observer observer) {
    return subscriber<T>(
        reference<observer_node<T>>::adopt(new owning_node<T, Observer>(std::move(observer))));
}

}  // namespace detail

/// @return the subscriber that was passed.
template <class T>
subscriber<T> make_subscriber(subscriber<T> handle) {
    return handle;
}

/// Makes a subscriber with a subscription of its own.
///
/// @tparam T the type of the values.
/// @param functions in this order, each optional except that the others need the first: a function
///        for values, one for the error (std::exception_ptr), one for the completion; all return
///        void. Without an error function an error calls std::terminate.
template <class T, class... F>
    requires detail::callback_functions<T, F...>
subscriber<T> make_subscriber(F&&... functions) {
    return detail::own<T>(
        detail::make_callbacks<T, detail::terminate_on_error>(std::forward<F>(functions)...));
}

/// Makes a subscriber that lives as long as a subscription that exists already.
///
/// @param lifetime the subscription; it ends with the first terminal event.
/// @param functions as above.
template <class T, class... F>
    requires detail::callback_functions<T, F...>
subscriber<T> make_subscriber(const composite_subscription& lifetime, F&&... functions) {
    return detail::attach<T>(lifetime, detail::make_callbacks<T, detail::terminate_on_error>(
                                           std::forward<F>(functions)...));
}

/// Makes a subscriber that shares the subscription of another one; the way to write an operator.
///
/// @param origin the subscriber whose subscription is shared; its observer gets nothing.
/// @param functions as above.
template <class T, class Origin, class... F>
    requires(sizeof...(F) > 0 && detail::callback_functions<T, F...>)
subscriber<T> make_subscriber(const subscriber<Origin>& origin, F&&... functions) {
    return make_subscriber<T>(origin.get_subscription(), std::forward<F>(functions)...);
}

/// Makes a subscriber with the observer of another one and a different subscription.
///
/// @param origin the subscriber whose observer is shared.
/// @param lifetime the subscription of the new subscriber.
template <class T>
subscriber<T> make_subscriber(const subscriber<T>& origin, const composite_subscription& lifetime) {
    return detail::attach<T>(lifetime, detail::shared_observer<T>(origin));
}

/// Does the same with the arguments the other way round.
template <class T>
subscriber<T> make_subscriber(const composite_subscription& lifetime, const subscriber<T>& origin) {
    return make_subscriber<T>(origin, lifetime);
}

}  // namespace rxcpp::inline bundled
