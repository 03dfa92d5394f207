#pragma once

#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>
#include <variant>

#include <HalvardSling/rx/Observable.hpp>

namespace HalvardSling::internal {

/// What an observable of one value comes to: the value, or the error. Empty until then.
template <class T>
class SingleValue {
  public:
    /// Subscribes, and calls `done` once with the outcome: at the completion, at the error, or at a
    /// second value, which ends the subscription. After the lifetime's end it is not called.
    template <class Done>
    static void of(const Observable<T>& source, const rxcpp::composite_subscription& lifetime,
                   const Done& done) {
        const auto state = std::make_shared<SingleValue>();
        source.subscribe(
            lifetime,
            [state, lifetime, done](T value) {
                if (!state->isThere()) {
                    state->outcome_.template emplace<1>(std::move(value));
                    return;
                }
                state->fail(several());
                lifetime.unsubscribe();
                done(std::move(*state));
            },
            [state, done](std::exception_ptr error) {
                state->fail(std::move(error));
                done(std::move(*state));
            },
            [state, done] {
                if (!state->isThere()) state->fail(none());
                done(std::move(*state));
            });
    }

    /// The error, or null.
    [[nodiscard]] std::exception_ptr error() const {
        const auto* const error = std::get_if<2>(&outcome_);
        return error != nullptr ? *error : nullptr;
    }

    /// The value. @throws the error
    [[nodiscard]] T take() && {
        if (const auto cause = error()) std::rethrow_exception(cause);
        return std::get<1>(std::move(outcome_));
    }

  private:
    [[nodiscard]] bool isThere() const { return outcome_.index() != 0; }
    void fail(std::exception_ptr error) { outcome_.template emplace<2>(std::move(error)); }

    static std::exception_ptr several() {
        return std::make_exception_ptr(std::logic_error(
            "the observable emitted a second value; reduce it to one, by take(1) for example"));
    }
    static std::exception_ptr none() {
        return std::make_exception_ptr(std::logic_error(
            "the observable completed without a value; await only one that emits"));
    }

    std::variant<std::monostate, T, std::exception_ptr> outcome_;
};

}  // namespace HalvardSling::internal
