#pragma once

/// @file
/// What the handles of a subscription share.

#include <atomic>
#include <cstdint>
#include <mutex>
#include <type_traits>
#include <utility>
#include <vector>

#include "namespace.hpp"
#include "teardown.hpp"

namespace rxcpp::inline bundled::detail {

/// @return a number that no other caller in this process gets; never 0.
inline std::uint64_t next_subscription_id() noexcept {
    static std::atomic<std::uint64_t> last{0};
    return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

/// Counts its references and ends at most once. May be used from any thread.
class subscription_state {
  public:
    explicit subscription_state(bool subscribed) noexcept : subscribed_(subscribed) {}
    subscription_state(const subscription_state&) = delete;
    subscription_state& operator=(const subscription_state&) = delete;
    virtual ~subscription_state() = default;

    void retain() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }

    [[nodiscard]] bool is_subscribed() const noexcept {
        return subscribed_.load(std::memory_order_acquire);
    }

    /// Ends the subscription; all calls after the first do nothing. The caller holds a reference.
    void unsubscribe() {
        if (subscribed_.exchange(false, std::memory_order_acq_rel)) on_unsubscribe();
    }

    /// @return the number of this state. Drawn on first use, most subscriptions never need one.
    [[nodiscard]] std::uint64_t id() noexcept {
        std::uint64_t known = id_.load(std::memory_order_relaxed);
        if (known != 0) return known;
        const std::uint64_t drawn = next_subscription_id();
        return id_.compare_exchange_strong(known, drawn, std::memory_order_relaxed) ? drawn : known;
    }

  private:
    virtual void on_unsubscribe() {}

    std::atomic<std::uint32_t> references_{1};
    std::atomic<bool> subscribed_;
    std::atomic<std::uint64_t> id_{0};
};

/// A subscription that calls one function when it ends.
template <class F>
class function_subscription_state final : public subscription_state {
  public:
    explicit function_subscription_state(F action)
        : subscription_state(true), action_(std::move(action)) {}

  private:
    void on_unsubscribe() override { std::as_const(action_)(); }

    F action_;
};

/// A subscription that runs any number of registered actions when it ends.
///
/// Actions never run with the lock held, so that they may use the subscription themselves.
class composite_state : public subscription_state {
  public:
    explicit composite_state(bool subscribed = true) noexcept : subscription_state(subscribed) {}

    /// Keeps the action until the end; runs it before returning if that end is over.
    void add(teardown action) {
        if (!keep(action)) action.run();
    }

    /// Drops the actions that are registered under `id`, without running them.
    void remove(std::uint64_t id) {
        actions dropped;  // destroyed after the lock is released
        const std::lock_guard lock(mutex_);
        if (actions_.first && actions_.first.id() == id) dropped.first = std::move(actions_.first);
        auto& more = actions_.more;
        for (auto action = more.begin(); action != more.end();) {
            if (action->id() == id) {
                dropped.more.push_back(std::move(*action));
                action = more.erase(action);
            } else {
                ++action;
            }
        }
    }

    /// Runs and drops all actions without ending the subscription.
    void clear() {
        if (is_subscribed()) run_all();
    }

  private:
    struct actions {
        teardown first;  // in place, because most subscriptions have one action at most
        std::vector<teardown> more;
    };

    void on_unsubscribe() override { run_all(); }

    // The flag falls before the actions are taken, both seen under the lock: an action is either
    // kept in time to be taken or refused here.
    [[nodiscard]] bool keep(teardown& action) {
        const std::lock_guard lock(mutex_);
        if (!is_subscribed()) return false;
        if (actions_.first || !actions_.more.empty())
            actions_.more.push_back(std::move(action));
        else
            actions_.first = std::move(action);
        return true;
    }

    void run_all() {
        actions taken = take_all();
        if (taken.first) {
            taken.first.run();
            taken.first.reset();
        }
        for (teardown& action : taken.more) {
            action.run();
            action.reset();
        }
    }

    [[nodiscard]] actions take_all() {
        const std::lock_guard lock(mutex_);
        return std::exchange(actions_, actions{});
    }

    std::mutex mutex_;
    actions actions_;
};

}  // namespace rxcpp::inline bundled::detail
