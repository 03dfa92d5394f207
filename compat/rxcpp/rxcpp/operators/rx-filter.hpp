#pragma once

/// @file
/// The operator that drops values.

#include <exception>
#include <type_traits>
#include <utility>

#include "../detail/namespace.hpp"
#include "../rx-lite.hpp"

namespace rxcpp::inline bundled {

namespace operators {

namespace detail {

template <class F, class End>
class filter_observer {
  public:
    filter_observer(F test, End end) : test_(std::move(test)), end_(std::move(end)) {}

    template <class V>
    void on_next(V&& value) const {
        bool passes = false;
        try {
            passes = test_(std::as_const(value));
        } catch (...) {
            return end_.on_error(std::current_exception());
        }
        if (passes) end_.on_next(std::forward<V>(value));
    }
    void on_error(const std::exception_ptr& error) const { end_.on_error(error); }
    void on_completed() const { end_.on_completed(); }
    [[nodiscard]] const composite_subscription& get_subscription() const {
        return end_.get_subscription();
    }

  private:
    mutable F test_;  // each subscription has its own copy, which may change
    End end_;
};

template <class T, class F>
class filter_operator {
  public:
    using value_type = T;

    explicit filter_operator(F test) : test_(std::move(test)) {}

    template <class End>
    auto stage_before(End end) const {
        using observer = filter_observer<F, End>;
        return rxcpp::detail::stage<T, observer>(observer(test_, std::move(end)));
    }

  private:
    F test_;
};

}  // namespace detail

/// Makes the operator that passes on only the values for which a function returns true.
///
/// Errors and the completion pass unchanged. What the function throws becomes the error.
///
/// @param test takes a value as const T& and returns what converts to bool; copied for each
///        subscription and called by the thread that emits.
/// @return what `|` applies to an observable.
template <class F>
auto filter(F test) {
    return [test = std::move(test)]<class T, class Source>(observable<T, Source> source) {
        return rxcpp::detail::lift(std::move(source), detail::filter_operator<T, F>(test));
    };
}

}  // namespace operators

namespace rxo = operators;

namespace detail {

template <class... F>
struct member_operator<filter_tag, F...> {
    template <class Observable, class... Arguments>
    static auto apply(const Observable& source, Arguments&&... arguments) {
        return operators::filter(std::forward<Arguments>(arguments)...)(source);
    }
};

}  // namespace detail

}  // namespace rxcpp::inline bundled
