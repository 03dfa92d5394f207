#pragma once

/// @file
/// The operator that passes on the events of several sources one after the other.

#include <type_traits>
#include <utility>
#include <vector>

#include "../detail/concatenating.hpp"
#include "../detail/namespace.hpp"
#include "../rx-lite.hpp"

namespace rxcpp::inline bundled {

namespace operators {

namespace detail {

template <class Coordination, class... Others>
auto concat_with(const Coordination& coordination, const Others&... others) {
    return [coordination, others...]<class T, class Source>(const observable<T, Source>& source) {
        if constexpr (sizeof...(Others) == 0) {
            return rxcpp::detail::concatenated(source, rxcpp::detail::itself(), coordination);
        } else {
            const std::vector<observable<T>> all{source.as_dynamic(), others.as_dynamic()...};
            return rxcpp::detail::concatenated(rxcpp::detail::each_of(all), rxcpp::detail::itself(),
                                               coordination);
        }
    };
}

}  // namespace detail

/// Makes the operator that subscribes to a source and then to others, to each when the one before
/// has completed.
///
/// It completes with the last one. The first error ends everything.
///
/// @param others observables of the same values. Without any, the source is an observable of
///        observables.
/// @return what `|` applies to an observable.
template <rxcpp::detail::any_observable... Others>
auto concat(const Others&... others) {
    return detail::concat_with(rxcpp::detail::uncoordinated(), others...);
}

/// Does the same for sources that emit on several threads.
///
/// @param coordination keeps the events apart, see flat_map().
/// @param others as above.
template <rxcpp::detail::coordination Coordination, rxcpp::detail::any_observable... Others>
auto concat(const Coordination& coordination, const Others&... others) {
    return detail::concat_with(coordination, others...);
}

}  // namespace operators

namespace rxo = operators;

namespace detail {

template <class... F>
struct member_operator<concat_tag, F...> {
    template <class Observable, class... Arguments>
    static auto apply(const Observable& source, Arguments&&... arguments) {
        return operators::concat(std::forward<Arguments>(arguments)...)(source);
    }
};

}  // namespace detail

}  // namespace rxcpp::inline bundled
