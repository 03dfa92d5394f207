#pragma once

/// @file
/// How an operator that does more than pass events on becomes an observable.

#include <utility>

#include "../rx-observable.hpp"
#include "../rx-subscriber.hpp"
#include "namespace.hpp"

namespace rxcpp::inline bundled::detail {

/// Runs a function for each subscriber. What it throws goes to observable::subscribe(), which knows
/// whether the subscription has ended.
template <class T, class Run>
class operator_source {
  public:
    using value_type = T;

    explicit operator_source(Run run) : run_(std::move(run)) {}

    template <class End>
    void on_subscribe(End end) const {
        run_(detail::into_subscriber(std::move(end)));
    }

  private:
    Run run_;
};

template <class T, class Run>
auto make_operator(Run run) {
    using source = operator_source<T, Run>;
    return observable<T, source>(source(std::move(run)));
}

/// Tells observables from the other arguments of an operator.
template <class T>
inline constexpr bool is_observable = false;
template <class T, class Source>
inline constexpr bool is_observable<observable<T, Source>> = true;

template <class O>
concept any_observable = is_observable<std::decay_t<O>>;

}  // namespace rxcpp::inline bundled::detail
