#pragma once

/// @file
/// The operator that tells of the end of a subscription.

#include <exception>
#include <utility>

#include "../detail/namespace.hpp"
#include "../rx-lite.hpp"

namespace rxcpp::inline bundled {

namespace operators {

namespace detail {

template <class End>
class finally_observer {
  public:
    finally_observer(composite_subscription lifetime, End end)
        : lifetime_(std::move(lifetime)), end_(std::move(end)) {}

    template <class V>
    void on_next(V&& value) const {
        end_.on_next(std::forward<V>(value));
    }
    void on_error(const std::exception_ptr& error) const { end_.on_error(error); }
    void on_completed() const { end_.on_completed(); }
    [[nodiscard]] const composite_subscription& get_subscription() const { return lifetime_; }

  private:
    composite_subscription lifetime_;
    End end_;
};

template <class T, class F>
class finally_operator {
  public:
    using value_type = T;

    explicit finally_operator(F action) : action_(std::move(action)) {}

    template <class End>
    auto stage_before(End end) const {
        const composite_subscription outer = end.get_subscription();
        const composite_subscription lifetime;
        outer.add(lifetime);
        lifetime.add([outer, action = action_] {
            outer.unsubscribe();
            action();
        });
        using observer = finally_observer<End>;
        return rxcpp::detail::stage<T, observer>(observer(lifetime, std::move(end)));
    }

  private:
    F action_;
};

}  // namespace detail

/// Makes the operator that calls a function once the subscription has ended: after the terminal
/// event was delivered, or when it is unsubscribed.
///
/// @param action takes nothing, returns void, and must not throw; copied for each subscription and
///        called once by the thread that ends it.
/// @return what `|` applies to an observable.
template <class F>
auto finally(F action) {
    return [action = std::move(action)]<class T, class Source>(observable<T, Source> source) {
        return rxcpp::detail::lift(std::move(source), detail::finally_operator<T, F>(action));
    };
}

}  // namespace operators

namespace rxo = operators;

namespace detail {

template <class... F>
struct member_operator<finally_tag, F...> {
    template <class Observable, class... Arguments>
    static auto apply(const Observable& source, Arguments&&... arguments) {
        return operators::finally(std::forward<Arguments>(arguments)...)(source);
    }
};

}  // namespace detail

}  // namespace rxcpp::inline bundled
