#pragma once

#include <atomic>
#include <coroutine>
#include <memory>
#include <thread>
#include <utility>

#include <HalvardSling/rx/Executor.hpp>
#include <HalvardSling/rx/Observable.hpp>
#include <HalvardSling/rx/SingleValue.hpp>

namespace HalvardSling {

namespace internal {

/// One wait of a coroutine. Shared by the awaiter, which is part of the coroutine, and by those who
/// end the wait: they touch the coroutine only to resume it, and that never once it was destroyed.
template <class T>
class Wait : public std::enable_shared_from_this<Wait<T>> {
  public:
    explicit Wait(Executor executor) : executor_(std::move(executor)) {}

    /// Subscribes. False where the outcome is there already, on the right thread: then the
    /// coroutine just goes on, so a loop over such observables does not grow the stack.
    bool start(std::coroutine_handle<> coroutine, const Observable<T>& source) {
        coroutine_ = coroutine;
        SingleValue<T>::of(source, lifetime_,
                           [self = this->shared_from_this()](SingleValue<T> outcome) {
                               self->outcome_ = std::move(outcome);
                               self->ended();
                           });
        auto expected = Phase::starting;
        if (phase_.compare_exchange_strong(expected, Phase::suspended)) return true;
        if (expected == Phase::left) return true;  // the source has destroyed the coroutine
        return executor_ && !resumedWithin();
    }

    T take() { return std::move(outcome_).take(); }

    /// The coroutine is destroyed, or goes on.
    void leave() {
        if (phase_.exchange(Phase::left) != Phase::ended) lifetime_.unsubscribe();
    }

  private:
    enum class Phase { starting, suspended, ended, left };

    void ended() {
        auto expected = Phase::starting;
        if (phase_.compare_exchange_strong(expected, Phase::ended)) return;  // start() goes on
        expected = Phase::suspended;
        if (!phase_.compare_exchange_strong(expected, Phase::ended)) return;
        if (!executor_) return coroutine_.resume();
        try {
            executor_([self = this->shared_from_this()] { self->resumeOnce(); });
        } catch (...) {
            return;  // shut down: nobody is left who may resume it, so it stays suspended
        }
    }

    /// Has the executor resume the coroutine, from within start(). True where it wants to do so
    /// before it returns: start() then lets the coroutine go on without resuming it.
    bool resumedWithin() {
        const auto self = this->shared_from_this();  // it may be over before this is
        handingOn_ = std::this_thread::get_id();
        executor_([self] {
            if (self->handingOn_ == std::this_thread::get_id())
                self->calledWithin_ = true;
            else
                self->resumeOnce();
        });
        self->handingOn_ = std::thread::id();
        return self->calledWithin_;
    }

    void resumeOnce() {
        if (phase_ == Phase::ended && !std::exchange(resumed_, true)) coroutine_.resume();
    }

    const Executor executor_;
    const rxcpp::composite_subscription lifetime_;
    std::coroutine_handle<> coroutine_;
    SingleValue<T> outcome_;
    std::atomic<Phase> phase_ = Phase::starting;
    std::atomic<std::thread::id> handingOn_;
    bool calledWithin_ = false;  // of the thread that hands on
    bool resumed_ = false;       // of the executor's thread
};

/// What `co_await` makes of an observable.
template <class T>
class [[nodiscard]] ObservableAwaiter {
  public:
    ObservableAwaiter(Observable<T> source, Executor executor)
        : source_(std::move(source)), wait_(std::make_shared<Wait<T>>(std::move(executor))) {}
    ObservableAwaiter(const ObservableAwaiter&) = delete;
    ObservableAwaiter& operator=(const ObservableAwaiter&) = delete;
    ~ObservableAwaiter() { wait_->leave(); }

    [[nodiscard]] bool await_ready() const noexcept { return false; }

    // Copies, because the coroutine, and this with it, may be over before start() is. Not inlined:
    // some compilers keep the variables of an inlined one in the coroutine.
    [[gnu::noinline]] bool await_suspend(std::coroutine_handle<> coroutine) {
        const auto wait = wait_;
        const auto source = source_;
        return wait->start(coroutine, source);
    }

    T await_resume() { return wait_->take(); }

  private:
    Observable<T> source_;
    std::shared_ptr<Wait<T>> wait_;
};

}  // namespace internal

/// As `co_await observable`, but the coroutine goes on where the executor calls functions:
/// `co_await resumeOn(session.history(), userInterface)`.
///
/// If the executor throws while `co_await` begins, that is thrown there. One that throws later, or
/// drops its function, is one that was shut down, and a lack of memory then counts as that: the
/// coroutine stays suspended, until its owner destroys it.
///
/// @param source    what is awaited; subscribed to once `co_await` begins
/// @param executor  not empty
template <class T, class Source>
[[nodiscard]] internal::ObservableAwaiter<T> resumeOn(const rxcpp::observable<T, Source>& source,
                                                      Executor executor) {
    return {source.as_dynamic(), std::move(executor)};
}

}  // namespace HalvardSling

namespace rxcpp {

/// Awaits the one value of an observable: `const auto list = co_await profile.history(…);` in any
/// C++20 coroutine.
///
/// Gives the value once the observable has completed. An error is thrown there, as the exception
/// that it is; `std::logic_error` where there was no value, or at a second one, which ends the
/// subscription.
///
/// The coroutine goes on within the event, on the thread that delivers it: a transport's, where it
/// must not block. If the event comes before `subscribe` has returned, it goes on at once and the
/// stack does not grow. `HalvardSling::resumeOn` has it go on elsewhere.
///
/// A coroutine that is destroyed while it waits here is unsubscribed: the request is cancelled, and
/// nothing touches the coroutine any more. As everywhere, whoever destroys a coroutine must know
/// that it is suspended and stays so. Without an executor that is known on the thread that
/// delivers, or where nothing can be delivered any more; on another thread the event may be
/// resuming it at that moment. With `resumeOn` and an executor that calls one function at a time,
/// it is known within that executor's functions, whatever another thread delivers meanwhile.
///
/// It stands in this namespace because `Observable` is only another name for a class of this one:
/// `co_await` looks here, and nowhere in `HalvardSling`.
template <class T, class Source>
[[nodiscard]] HalvardSling::internal::ObservableAwaiter<T> operator co_await(
    const observable<T, Source>& source) {
    return {source.as_dynamic(), {}};
}

}  // namespace rxcpp
