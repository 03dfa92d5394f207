#pragma once

/// @file
/// Where the observer behind a subscriber lives, and the rules for sending events to it.

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <utility>

#include "../rx-subscription.hpp"
#include "namespace.hpp"
#include "reference.hpp"

namespace rxcpp::inline bundled::detail {

/// Ends a lifetime on scope exit. An action that throws here calls std::terminate, since the event
/// that ends the subscription may be on its way out by exception itself.
class end_on_exit {
  public:
    explicit end_on_exit(const composite_subscription& lifetime) noexcept : lifetime_(lifetime) {}
    end_on_exit(const end_on_exit&) = delete;
    end_on_exit& operator=(const end_on_exit&) = delete;
    ~end_on_exit() { lifetime_.unsubscribe(); }

  private:
    const composite_subscription& lifetime_;
};

/// Sends a value unless the lifetime has ended. What the observer throws becomes its own error.
template <class Observer, class V>
void send_next(const Observer& observer, const composite_subscription& lifetime, V&& value) {
    if (!lifetime.is_subscribed()) return;
    try {
        observer.on_next(std::forward<V>(value));
    } catch (...) {
        const end_on_exit end(lifetime);
        observer.on_error(std::current_exception());
    }
}

/// Sends the error unless the lifetime has ended, then ends it.
template <class Observer>
void send_error(const Observer& observer, const composite_subscription& lifetime,
                const std::exception_ptr& error) {
    if (lifetime.is_subscribed()) {
        const end_on_exit end(lifetime);
        observer.on_error(error);
    }
}

/// Sends the completion unless the lifetime has ended, then ends it.
template <class Observer>
void send_completed(const Observer& observer, const composite_subscription& lifetime) {
    if (lifetime.is_subscribed()) {
        const end_on_exit end(lifetime);
        observer.on_completed();
    }
}

/// An observer of unknown type with its lifetime. The observer is destroyed with the last
/// subscriber that refers to the node, even if handles of the lifetime are still around.
template <class T>
class observer_node {
  public:
    observer_node(const observer_node&) = delete;
    observer_node& operator=(const observer_node&) = delete;

    void retain() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) dispose();
    }

    [[nodiscard]] const composite_subscription& get_subscription() const noexcept {
        return lifetime_;
    }

    virtual void on_next(const T& value) const = 0;
    virtual void on_next(T&& value) const = 0;
    virtual void on_error(const std::exception_ptr& error) const = 0;
    virtual void on_completed() const = 0;

  protected:
    explicit observer_node(composite_subscription lifetime) noexcept
        : lifetime_(std::move(lifetime)) {}
    ~observer_node() = default;

    composite_subscription lifetime_;

  private:
    virtual void dispose() noexcept = 0;

    std::atomic<std::uint32_t> references_{1};
};

/// An observer whose lifetime was made elsewhere.
template <class T, class Observer>
class attached_node final : public observer_node<T> {
  public:
    attached_node(composite_subscription lifetime, Observer observer)
        : observer_node<T>(std::move(lifetime)), observer_(std::move(observer)) {}

    void on_next(const T& value) const override { observer_.on_next(value); }
    void on_next(T&& value) const override { observer_.on_next(std::move(value)); }
    void on_error(const std::exception_ptr& error) const override { observer_.on_error(error); }
    void on_completed() const override { observer_.on_completed(); }

  private:
    void dispose() noexcept override { delete this; }

    Observer observer_;
};

/// An observer that shares one allocation with its lifetime. All subscribers together hold one
/// reference to the lifetime, so that the memory stays until the last handle of that is dropped.
template <class T, class Observer>
class owning_node final : public composite_state, public observer_node<T> {
  public:
    explicit owning_node(Observer observer)
        : observer_node<T>(composite_subscription(reference<composite_state>())),
          observer_(std::move(observer)) {
        // Not earlier: a handle must not outlive a constructor that throws.
        this->lifetime_ = composite_subscription(reference<composite_state>::adopt(this));
    }
    ~owning_node() override {}  // dispose() has destroyed the observer

    void on_next(const T& value) const override { observer_.on_next(value); }
    void on_next(T&& value) const override { observer_.on_next(std::move(value)); }
    void on_error(const std::exception_ptr& error) const override { observer_.on_error(error); }
    void on_completed() const override { observer_.on_completed(); }

  private:
    void dispose() noexcept override {
        std::destroy_at(&observer_);
        // The release at the end of this scope may delete the node.
        const composite_subscription last = std::move(this->lifetime_);
    }

    union {
        Observer observer_;
    };
};

}  // namespace rxcpp::inline bundled::detail
