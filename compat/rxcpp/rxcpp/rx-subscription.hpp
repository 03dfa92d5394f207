#pragma once

/// @file
/// The handles that end a subscription.

#include <compare>
#include <cstdint>
#include <exception>
#include <type_traits>
#include <utility>

#include "detail/namespace.hpp"
#include "detail/reference.hpp"
#include "detail/subscription_state.hpp"

namespace rxcpp::inline bundled {

class composite_subscription;

/// A copyable handle of something that can be ended once.
///
/// Copies share their state. Dropping the last copy does not end the subscription. All members may
/// be called from any thread at any time. A handle that was moved from calls std::terminate.
class subscription {
  public:
    /// Names a subscription inside a composite_subscription without keeping it alive.
    class weak_state_type {
      public:
        /// Names nothing.
        weak_state_type() noexcept = default;

      private:
        friend class subscription;
        friend class composite_subscription;
        explicit weak_state_type(std::uint64_t id) noexcept : id_(id) {}

        std::uint64_t id_ = 0;
    };

    /// Makes a subscription that has ended already.
    subscription() : state_(state_reference::adopt(new detail::subscription_state(false))) {}

    /// Takes the shared state; for the library's own use.
    explicit subscription(detail::reference<detail::subscription_state> state) noexcept
        : state_(std::move(state)) {}

    /// @return whether the subscription has not ended yet.
    [[nodiscard]] bool is_subscribed() const { return state().is_subscribed(); }

    /// Ends the subscription: its action runs in this call, at most once whoever calls.
    ///
    /// @throws whatever the action throws.
    void unsubscribe() const {
        const state_reference kept = state_;  // the action may drop this very handle
        state().unsubscribe();
    }

    /// @return the name that composite_subscription::remove() knows this subscription by.
    [[nodiscard]] weak_state_type get_weak() const { return weak_state_type(state().id()); }

    /// @return whether both handles share one state.
    friend bool operator==(const subscription& left, const subscription& right) noexcept {
        return left.state_.get() == right.state_.get();
    }

    /// An arbitrary but constant order, so that handles can be kept in ordered containers.
    friend bool operator<(const subscription& left, const subscription& right) noexcept {
        return std::compare_three_way{}(left.state_.get(), right.state_.get()) < 0;
    }

  private:
    using state_reference = detail::reference<detail::subscription_state>;

    [[nodiscard]] detail::subscription_state& state() const {
        if (!state_) std::terminate();
        return *state_;
    }

    state_reference state_;
};

/// @return a subscription that has ended already.
inline subscription make_subscription() {
    return subscription();
}

/// Makes a subscription that calls a function when it ends.
///
/// @param action takes nothing and returns void; called at most once, by the thread that ends the
///        subscription.
/// @return the subscription, which has not ended.
template <detail::teardown_function F>
subscription make_subscription(F&& action) {
    using state = detail::function_subscription_state<std::decay_t<F>>;
    return subscription(
        detail::reference<detail::subscription_state>::adopt(new state(std::forward<F>(action))));
}

/// A copyable handle of a subscription that ends any number of others with it.
///
/// Copies share their state. Dropping the last copy runs nothing. All members may be called from
/// any thread at any time; they do not wait for actions that another thread is running. A handle
/// that was moved from calls std::terminate.
class composite_subscription {
  public:
    /// Names one registered action.
    using weak_subscription = subscription::weak_state_type;

    /// Makes a subscription that has not ended and has no actions.
    composite_subscription()
        : state_(detail::reference<detail::composite_state>::adopt(new detail::composite_state)) {}

    /// Takes the shared state; for the library's own use.
    explicit composite_subscription(detail::reference<detail::composite_state> state) noexcept
        : state_(std::move(state)) {}

    /// @return a subscription that has ended already; all calls return the same one.
    static composite_subscription empty() {
        static const composite_subscription ended(
            detail::reference<detail::composite_state>::adopt(new detail::composite_state(false)));
        return ended;
    }

    /// @return this subscription in the form that does not know about actions.
    operator subscription() const { return subscription(base_reference()); }

    /// @return whether the subscription has not ended yet.
    [[nodiscard]] bool is_subscribed() const { return state().is_subscribed(); }

    /// Ends the subscription and runs its actions in this call, each at most once whoever calls.
    ///
    /// Does not wait for an event that another thread is delivering.
    ///
    /// @throws whatever an action throws; the actions after that one are dropped.
    void unsubscribe() const {
        const auto kept = state_;  // an action may drop this very handle
        state().unsubscribe();
    }

    /// Ends `member` together with this subscription, at once if this one has ended.
    ///
    /// @param member any other subscription. Adding a subscription to itself calls std::terminate.
    /// @return the name to remove() it by.
    /// @throws whatever the action of `member` throws, if it runs at once.
    weak_subscription add(subscription member) const {
        if (member == static_cast<subscription>(*this)) std::terminate();
        const weak_subscription name = member.get_weak();
        if (member.is_subscribed()) {
            state().add(
                detail::teardown(name.id_, [held = std::move(member)] { held.unsubscribe(); }));
        }
        return name;
    }

    /// Runs an action when this subscription ends, at once if it has ended.
    ///
    /// @param action takes nothing and returns void. It must not throw when an event ends the
    ///        subscription, that calls std::terminate. The order of actions is not defined.
    /// @return the name to remove() it by.
    /// @throws whatever the action throws, if it runs at once.
    template <detail::teardown_function F>
    weak_subscription add(F&& action) const {
        const weak_subscription name(detail::next_subscription_id());
        state().add(detail::teardown(name.id_, std::decay_t<F>(std::forward<F>(action))));
        return name;
    }

    /// Forgets an action without running it; does nothing if it has run or is unknown.
    void remove(weak_subscription name) const { state().remove(name.id_); }

    /// Runs and forgets all actions without ending the subscription; does nothing if it has ended.
    ///
    /// @throws whatever an action throws; the actions after that one are dropped.
    void clear() const {
        const auto kept = state_;  // an action may drop this very handle
        state().clear();
    }

    /// @return the name by which another composite_subscription knows this one.
    [[nodiscard]] weak_subscription get_weak() const { return weak_subscription(state().id()); }

    /// @return whether both handles share one state.
    friend bool operator==(const composite_subscription& left,
                           const composite_subscription& right) noexcept {
        return left.state_.get() == right.state_.get();
    }

    /// An arbitrary but constant order, so that handles can be kept in ordered containers.
    friend bool operator<(const composite_subscription& left,
                          const composite_subscription& right) noexcept {
        return std::compare_three_way{}(left.state_.get(), right.state_.get()) < 0;
    }

  private:
    [[nodiscard]] detail::composite_state& state() const {
        if (!state_) std::terminate();
        return *state_;
    }

    [[nodiscard]] detail::reference<detail::subscription_state> base_reference() const {
        state().retain();
        return detail::reference<detail::subscription_state>::adopt(state_.get());
    }

    detail::reference<detail::composite_state> state_;
};

}  // namespace rxcpp::inline bundled
