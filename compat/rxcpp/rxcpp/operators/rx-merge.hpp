#pragma once

/// @file
/// The operator that passes on the events of several sources as they come.

#include <type_traits>
#include <utility>
#include <vector>

#include "../detail/merging.hpp"
#include "../detail/namespace.hpp"
#include "../rx-lite.hpp"

namespace rxcpp::inline bundled {

namespace operators {

namespace detail {

template <class Coordination, class... Others>
auto merge_with(const Coordination& coordination, const Others&... others) {
    return [coordination, others...]<class T, class Source>(const observable<T, Source>& source) {
        if constexpr (sizeof...(Others) == 0) {
            return rxcpp::detail::merged(source, rxcpp::detail::itself(), coordination);
        } else {
            const std::vector<observable<T>> all{source.as_dynamic(), others.as_dynamic()...};
            return rxcpp::detail::merged(rxcpp::detail::each_of(all), rxcpp::detail::itself(),
                                         coordination);
        }
    };
}

}  // namespace detail

/// Makes the operator that subscribes to a source and to others, in this order, and passes on all
/// their values as they come.
///
/// It completes when all have. The first error ends everything.
///
/// @param others observables of the same values. Without any, the source is an observable of
///        observables, each of which is subscribed to when it comes. No two may emit at the same
///        time.
/// @return what `|` applies to an observable.
template <rxcpp::detail::any_observable... Others>
auto merge(const Others&... others) {
    return detail::merge_with(rxcpp::detail::uncoordinated(), others...);
}

/// Does the same for sources that emit on several threads.
///
/// @param coordination keeps the events apart, see flat_map().
/// @param others as above.
template <rxcpp::detail::coordination Coordination, rxcpp::detail::any_observable... Others>
auto merge(const Coordination& coordination, const Others&... others) {
    return detail::merge_with(coordination, others...);
}

}  // namespace operators

namespace rxo = operators;

namespace detail {

template <class... F>
struct member_operator<merge_tag, F...> {
    template <class Observable, class... Arguments>
    static auto apply(const Observable& source, Arguments&&... arguments) {
        return operators::merge(std::forward<Arguments>(arguments)...)(source);
    }
};

}  // namespace detail

}  // namespace rxcpp::inline bundled
