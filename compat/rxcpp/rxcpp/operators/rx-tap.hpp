#pragma once

/// @file
/// The operator that looks at events on their way.

#include <cstddef>
#include <exception>
#include <tuple>
#include <type_traits>
#include <utility>

#include "../detail/callbacks.hpp"
#include "../detail/namespace.hpp"
#include "../rx-lite.hpp"

namespace rxcpp::inline bundled {

namespace operators {

namespace detail {

template <class T, class Watcher, class End>
class tap_observer {
  public:
    tap_observer(Watcher watcher, End end) : watcher_(std::move(watcher)), end_(std::move(end)) {}

    template <class V>
    void on_next(V&& value) const {
        watcher_.on_next(std::as_const(value));
        end_.on_next(std::forward<V>(value));
    }
    void on_error(const std::exception_ptr& error) const {
        watcher_.on_error(error);
        end_.on_error(error);
    }
    void on_completed() const {
        watcher_.on_completed();
        end_.on_completed();
    }
    [[nodiscard]] const composite_subscription& get_subscription() const {
        return end_.get_subscription();
    }

  private:
    Watcher watcher_;
    End end_;
};

template <class T, class Watcher>
class tap_operator {
  public:
    using value_type = T;

    explicit tap_operator(Watcher watcher) : watcher_(std::move(watcher)) {}

    template <class End>
    auto stage_before(End end) const {
        using observer = tap_observer<T, Watcher, End>;
        return rxcpp::detail::stage<T, observer>(observer(watcher_, std::move(end)));
    }

  private:
    Watcher watcher_;
};

/// Accepts what make_callbacks() does and, different from a subscriber, a sole error function.
template <class T, class... F>
auto make_watcher(F&&... functions) {
    using rxcpp::detail::ignore_event;
    if constexpr (rxcpp::detail::callback_functions<T, F...>) {
        return rxcpp::detail::make_callbacks<T, ignore_event>(std::forward<F>(functions)...);
    } else {
        return rxcpp::detail::make_callbacks<T, ignore_event>(ignore_event{},
                                                              std::forward<F>(functions)...);
    }
}

template <class... F>
class tap_factory {
  public:
    explicit tap_factory(std::tuple<F...> functions) : functions_(std::move(functions)) {}

    template <class T, class Source>
    auto operator()(observable<T, Source> source) const& {
        return tap_factory(*this)(std::move(source));
    }
    template <class T, class Source>
    auto operator()(observable<T, Source> source) && {
        auto watcher = std::apply(
            [](F&... functions) { return make_watcher<T>(std::move(functions)...); }, functions_);
        return rxcpp::detail::lift(std::move(source),
                                   tap_operator<T, decltype(watcher)>(std::move(watcher)));
    }

  private:
    std::tuple<F...> functions_;
};

}  // namespace detail

/// Makes the operator that shows each event to some functions before it passes the event on.
///
/// Values, errors and the completion pass unchanged. If the function for values throws, the
/// exception becomes the error, which the error function sees as well. What the functions for the
/// error or the completion throw goes to the caller that emits; the event is not passed on then,
/// but the subscription ends.
///
/// @param functions up to three functions for values (const T&), the error (std::exception_ptr)
///        and the completion, in this order; (values), (error), (values, error), (values,
///        completion) and all three are possible. They return void, are copied for each
///        subscription, and are called as const objects by the thread that emits. Those not given
///        do nothing.
/// @return what `|` applies to an observable.
template <class... F>
auto tap(F&&... functions) {
    return detail::tap_factory<std::decay_t<F>...>(
        std::tuple<std::decay_t<F>...>(std::forward<F>(functions)...));
}

}  // namespace operators

namespace rxo = operators;

namespace detail {

template <class... F>
struct member_operator<tap_tag, F...> {
    template <class Observable, class... Arguments>
    static auto apply(const Observable& source, Arguments&&... functions) {
        return operators::tap(std::forward<Arguments>(functions)...)(source);
    }
};

}  // namespace detail

}  // namespace rxcpp::inline bundled
