#pragma once

/// @file
/// The operator that turns each value into another one.

#include <exception>
#include <type_traits>
#include <utility>

#include "../detail/namespace.hpp"
#include "../rx-lite.hpp"

namespace rxcpp::inline bundled {

namespace operators {

namespace detail {

template <class F, class End>
class map_observer {
  public:
    map_observer(F function, End end) : function_(std::move(function)), end_(std::move(end)) {}

    template <class V>
    void on_next(V&& value) const {
        try {
            end_.on_next(function_(std::forward<V>(value)));
        } catch (...) {
            end_.on_error(std::current_exception());
        }
    }
    void on_error(const std::exception_ptr& error) const { end_.on_error(error); }
    void on_completed() const { end_.on_completed(); }
    [[nodiscard]] const composite_subscription& get_subscription() const {
        return end_.get_subscription();
    }

  private:
    mutable F function_;  // each subscription has its own copy, which may change
    End end_;
};

template <class T, class F>
class map_operator {
  public:
    using value_type = std::decay_t<std::invoke_result_t<F&, T>>;

    explicit map_operator(F function) : function_(std::move(function)) {}

    template <class End>
    auto stage_before(End end) const {
        using observer = map_observer<F, End>;
        return rxcpp::detail::stage<T, observer>(observer(function_, std::move(end)));
    }

  private:
    F function_;
};

template <class F>
class map_factory {
  public:
    explicit map_factory(F function) : function_(std::move(function)) {}

    template <class T, class Source>
    auto operator()(observable<T, Source> source) const& {
        return rxcpp::detail::lift(std::move(source), map_operator<T, F>(function_));
    }
    template <class T, class Source>
    auto operator()(observable<T, Source> source) && {
        return rxcpp::detail::lift(std::move(source), map_operator<T, F>(std::move(function_)));
    }

  private:
    F function_;
};

}  // namespace detail

/// Makes the operator that emits what a function returns for each value.
///
/// Errors and the completion pass unchanged. If the function throws, the exception becomes the
/// error and the subscription ends, so that the source learns of it through its teardown. An
/// rvalue that the source emits reaches the function as an rvalue.
///
/// @param function takes a value as const T& and as T&&; copied for each subscription and called
///        by the thread that emits.
/// @return what `|` applies to an observable.
template <class F>
auto map(F&& function) {
    return detail::map_factory<std::decay_t<F>>(std::forward<F>(function));
}

}  // namespace operators

namespace rxo = operators;

namespace detail {

template <class F>
struct member_operator<map_tag, F> {
    template <class Observable, class Argument>
    static auto apply(const Observable& source, Argument&& function) {
        return operators::map(std::forward<Argument>(function))(source);
    }
};

}  // namespace detail

}  // namespace rxcpp::inline bundled
