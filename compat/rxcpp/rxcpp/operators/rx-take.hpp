#pragma once

/// @file
/// The operator that ends after some values.

#include <exception>
#include <memory>
#include <utility>

#include "../detail/namespace.hpp"
#include "../detail/operator_source.hpp"
#include "../rx-lite.hpp"

namespace rxcpp::inline bundled {

namespace operators {

namespace detail {

template <class T, class Count>
struct take_state {
    subscriber<T> out;
    Count left;
    bool ended = false;
};

}  // namespace detail

/// Makes the operator that passes on the first values and then completes.
///
/// With the last value the subscription to the source ends, before the completion is sent. Errors,
/// and a completion that comes before, pass unchanged.
///
/// @param count how many values, 1 or more; 0 passes one on, or practically all if it is unsigned.
/// @return what `|` applies to an observable.
template <class Count>
auto take(Count count) {
    return [count]<class T, class Source>(const observable<T, Source>& source) {
        return rxcpp::detail::make_operator<T>([source, count](const subscriber<T>& out) {
            const auto state = std::make_shared<detail::take_state<T, Count>>(
                detail::take_state<T, Count>{out, count});
            const composite_subscription lifetime;
            out.add(lifetime);
            source.subscribe(
                lifetime,
                [state, lifetime](auto&& value) {
                    if (state->ended) return;
                    state->ended = --state->left <= 0;
                    const bool last = state->ended;
                    state->out.on_next(std::forward<decltype(value)>(value));
                    if (!last) return;
                    lifetime.unsubscribe();
                    state->out.on_completed();
                },
                [state](std::exception_ptr error) {
                    state->ended = true;
                    state->out.on_error(error);
                },
                [state] {
                    state->ended = true;
                    state->out.on_completed();
                });
        });
    };
}

}  // namespace operators

namespace rxo = operators;

namespace detail {

template <class... F>
struct member_operator<take_tag, F...> {
    template <class Observable, class... Arguments>
    static auto apply(const Observable& source, Arguments&&... arguments) {
        return operators::take(std::forward<Arguments>(arguments)...)(source);
    }
};

}  // namespace detail

}  // namespace rxcpp::inline bundled
