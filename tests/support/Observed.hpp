#pragma once

#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include <HalvardSling/rx/Observable.hpp>
#include <HalvardSling/transport/Transport.hpp>

#include "support/Waiting.hpp"

namespace TestSupport {

/// Everything that a subscription to an observable received.
template <class T>
class Observed {
  public:
    /// Subscribes at once.
    explicit Observed(const rxcpp::observable<T>& source) : state_(std::make_shared<State>()) {
        source.subscribe(
            subscription_,
            [state = state_](T value) {
                const std::scoped_lock lock(state->mutex);
                state->values.push_back(std::move(value));
            },
            [state = state_](const std::exception_ptr& error) {
                state->end([&] { state->error = error; });
            },
            [state = state_] { state->end([&] { ++state->completions; }); });
    }

    /// Waits until the sequence has ended; false if it does not.
    /// @throws std::logic_error on a transport's thread, where the end could never come
    [[nodiscard]] bool ended() const {
        if (HalvardSling::isTransportThread() && !endedAtOnce())
            throw std::logic_error("a handler on the network thread must not wait for a request");
        std::unique_lock lock(state_->mutex);
        return state_->changed.wait_for(lock, patience, [&] { return state_->ends > 0; });
    }

    /// Whether it has ended by now.
    [[nodiscard]] bool endedAtOnce() const {
        const std::scoped_lock lock(state_->mutex);
        return state_->ends > 0;
    }

    /// The values, once the sequence has ended.
    [[nodiscard]] std::vector<T> values() const {
        static_cast<void>(ended());
        const std::scoped_lock lock(state_->mutex);
        return state_->values;
    }

    [[nodiscard]] bool completed() const {
        static_cast<void>(ended());
        const std::scoped_lock lock(state_->mutex);
        return state_->completions == 1 && !state_->error;
    }

    /// The error where its dynamic type is exactly this one.
    template <class Error>
    [[nodiscard]] std::optional<Error> error() const {
        static_cast<void>(ended());
        const std::scoped_lock lock(state_->mutex);
        if (!state_->error) return std::nullopt;
        try {
            std::rethrow_exception(state_->error);
        } catch (const Error& known) {
            return known;
        } catch (...) {
            return std::nullopt;
        }
    }

    void unsubscribe() { subscription_.unsubscribe(); }

  private:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<T> values;
        std::exception_ptr error;
        int completions = 0;
        int ends = 0;

        template <class Change>
        void end(Change change) {
            const std::scoped_lock lock(mutex);
            change();
            ++ends;
            changed.notify_all();
        }
    };

    std::shared_ptr<State> state_;
    rxcpp::composite_subscription subscription_;
};

}  // namespace TestSupport
