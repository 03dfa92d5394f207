#pragma once

#include <exception>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <utility>

#include <HalvardSling/rx/Observable.hpp>

namespace HalvardSling {

/// Has functions called somewhere else: it takes one, and calls it once, now or later, on any
/// thread. An application writes one line for the queue of its UI thread, for example
/// `[&queue](std::function<void()> task) { queue.post(std::move(task)); }`.
using Executor = std::function<void(std::function<void()>)>;

namespace internal {

/// The events of one subscription on their way to an executor. Owned by the source and by the task
/// that the executor has, so that nothing keeps it once both are gone.
class Delivery : public std::enable_shared_from_this<Delivery> {
  public:
    using Event = std::function<void()>;

    /// @param subscription  ended if the executor fails
    Delivery(Executor executor, rxcpp::composite_subscription subscription)
        : executor_(std::move(executor)), subscription_(std::move(subscription)) {}

    /// Has the event called after those before it. Without the memory for that, or if the executor
    /// throws, the subscription ends. Any thread.
    template <class F>
    void add(F event) noexcept {
        try {
            {
                const std::scoped_lock lock(mutex_);
                if (ended_) return;
                waiting_.emplace_back(std::move(event));
                if (std::exchange(busy_, true)) return;
            }
            executor_([turn = std::make_shared<Turn>(shared_from_this())] { turn->run(); });
        } catch (...) {
            fail();
        }
    }

    /// Drops what waits, and all that comes.
    void end() {
        std::list<Event> dropped;  // destroyed without the lock, as their values are not ours
        const std::scoped_lock lock(mutex_);
        ended_ = true;
        dropped.swap(waiting_);
    }

  private:
    /// What the executor is given: one call of run(). Its end without one tells that the executor
    /// has dropped it.
    class Turn {
      public:
        explicit Turn(std::shared_ptr<Delivery> delivery) : delivery_(std::move(delivery)) {}
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        ~Turn() {
            if (delivery_) delivery_->fail();
        }

        void run() {
            if (const auto delivery = std::exchange(delivery_, nullptr)) delivery->callAll();
        }

      private:
        std::shared_ptr<Delivery> delivery_;
    };

    void fail() {
        end();
        subscription_.unsubscribe();
    }

    void callAll() {
        try {
            while (const Event event = next())
                event();
        } catch (...) {
            fail();
            throw;
        }
    }

    Event next() {
        const std::scoped_lock lock(mutex_);
        if (waiting_.empty()) {
            busy_ = false;
            return {};
        }
        Event first = std::move(waiting_.front());
        waiting_.pop_front();
        return first;
    }

    const Executor executor_;
    const rxcpp::composite_subscription subscription_;
    std::mutex mutex_;
    std::list<Event> waiting_;
    bool busy_ = false;  // the executor has a task that has not ended
    bool ended_ = false;
};

template <class T>
void deliver(const Observable<T>& source, const Executor& executor,
             const rxcpp::subscriber<T>& subscriber) {
    const auto delivery = std::make_shared<Delivery>(executor, subscriber.get_subscription());
    // The source's own lifetime: its end must not keep its last events from being delivered.
    const rxcpp::composite_subscription lifetime;
    subscriber.add(lifetime);
    subscriber.add([weak = std::weak_ptr(delivery)] {
        if (const auto alive = weak.lock()) alive->end();
    });
    source.subscribe(
        lifetime,
        [delivery, subscriber](T value) {
            delivery->add([subscriber, value = std::move(value)] { subscriber.on_next(value); });
        },
        [delivery, subscriber](const std::exception_ptr& error) {
            delivery->add([subscriber, error] { subscriber.on_error(error); });
        },
        [delivery, subscriber] { delivery->add([subscriber] { subscriber.on_completed(); }); });
}

class DeliverOn {
  public:
    explicit DeliverOn(Executor executor) : executor_(std::move(executor)) {}

    template <class T, class Source>
    [[nodiscard]] Observable<T> operator()(const rxcpp::observable<T, Source>& source) const {
        return rxcpp::observable<>::create<T>(
            [source = source.as_dynamic(), executor = executor_](
                const rxcpp::subscriber<T>& subscriber) { deliver(source, executor, subscriber); });
    }

  private:
    Executor executor_;
};

}  // namespace internal

/// Makes the operator that moves all events to an executor: `observable | deliverOn(executor)`.
///
/// The events arrive in their order and one at a time, also if the executor has several threads.
/// The executor has at most one function of a subscription at a time; that one delivers all that
/// has come by then. The source is subscribed to, and its teardown runs, where it would without
/// this.
///
/// After `unsubscribe` no event begins, though the executor still has the function; that then does
/// nothing. An `unsubscribe` on another thread does not wait for an event that is running.
///
/// An executor that throws, or destroys the function without calling it, is one that was shut down,
/// and a lack of memory for handing an event over counts as that:
/// the subscription ends as if it had been unsubscribed, so the request is cancelled, and the
/// subscriber hears nothing more, for there is no thread left on which it may. What a subscriber's
/// function for errors or the completion throws reaches the executor.
///
/// @param executor  not empty; called by the thread that delivers, and kept as long as the
/// observable
[[nodiscard]] inline internal::DeliverOn deliverOn(Executor executor) {
    return internal::DeliverOn(std::move(executor));
}

}  // namespace HalvardSling
