#pragma once

/// @file
/// How the functions that a user passes become an observer.

#include <exception>
#include <type_traits>
#include <utility>

#include "namespace.hpp"

namespace rxcpp::inline bundled::detail {

template <class F, class T>
concept on_next_function = requires {
    requires std::is_void_v<decltype(std::declval<std::decay_t<F>>()(std::declval<T>()))>;
};

template <class F>
concept on_error_function = requires {
    requires std::is_void_v<decltype(std::declval<std::decay_t<F>>()(
        std::declval<std::exception_ptr>()))>;
};

template <class F>
concept on_completed_function =
    requires { requires std::is_void_v<decltype(std::declval<std::decay_t<F>>()())>; };

/// Stands in for a function that was not given.
struct ignore_event {
    template <class... Event>
    void operator()(Event&&...) const noexcept {}
};

/// Stands in for the error function of a subscriber: nobody would ever learn of the error. The
/// program ends with the error as its active exception, whose text is shown.
struct terminate_on_error {
    void operator()(const std::exception_ptr& error) const noexcept {
        std::rethrow_exception(error);
    }
};

/// The observer that calls one function for each kind of event.
template <class T, class OnNext, class OnError, class OnCompleted>
struct callbacks {
    [[no_unique_address]] OnNext next;
    [[no_unique_address]] OnError error;
    [[no_unique_address]] OnCompleted completed;

    void on_next(const T& value) const { next(value); }
    void on_next(T&& value) const { next(std::move(value)); }
    void on_error(const std::exception_ptr& cause) const { error(cause); }
    void on_completed() const { completed(); }
};

template <class T, class OnNext, class OnError, class OnCompleted>
auto bind_callbacks(OnNext&& next, OnError&& error, OnCompleted&& completed) {
    return callbacks<T, std::decay_t<OnNext>, std::decay_t<OnError>, std::decay_t<OnCompleted>>{
        std::forward<OnNext>(next), std::forward<OnError>(error),
        std::forward<OnCompleted>(completed)};
}

/// Sorts the functions of a user by what they accept; those not given do nothing, except for the
/// error function, which is `NoError`.
template <class T, class NoError>
auto make_callbacks() {
    return bind_callbacks<T>(ignore_event{}, NoError{}, ignore_event{});
}
template <class T, class NoError, on_next_function<T> OnNext>
auto make_callbacks(OnNext&& next) {
    return bind_callbacks<T>(std::forward<OnNext>(next), NoError{}, ignore_event{});
}
template <class T, class NoError, on_next_function<T> OnNext, on_error_function OnError>
auto make_callbacks(OnNext&& next, OnError&& error) {
    return bind_callbacks<T>(std::forward<OnNext>(next), std::forward<OnError>(error),
                             ignore_event{});
}
template <class T, class NoError, on_next_function<T> OnNext, on_completed_function OnCompleted>
auto make_callbacks(OnNext&& next, OnCompleted&& completed) {
    return bind_callbacks<T>(std::forward<OnNext>(next), NoError{},
                             std::forward<OnCompleted>(completed));
}
template <class T, class NoError, on_next_function<T> OnNext, on_error_function OnError,
          on_completed_function OnCompleted>
auto make_callbacks(OnNext&& next, OnError&& error, OnCompleted&& completed) {
    return bind_callbacks<T>(std::forward<OnNext>(next), std::forward<OnError>(error),
                             std::forward<OnCompleted>(completed));
}

/// The functions that make_callbacks() accepts for values of type T.
template <class T, class... F>
concept callback_functions =
    requires { make_callbacks<T, terminate_on_error>(std::declval<F>()...); };

}  // namespace rxcpp::inline bundled::detail
