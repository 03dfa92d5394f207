#pragma once

/// @file
/// The operator that makes an observable of each value and passes on one after the other.

#include <utility>

#include "../detail/concatenating.hpp"
#include "../detail/namespace.hpp"
#include "../rx-lite.hpp"

namespace rxcpp::inline bundled {

namespace operators {

/// Makes the operator that subscribes to the observable that a function returns for each value, one
/// after the other: to the next when the one before has completed.
///
/// Values that come meanwhile wait; the function is called for each when its turn has come. It
/// completes when the source and all of them have. The first error ends everything; so does what
/// the function throws.
///
/// @param select takes a value and returns an observable; copied for each subscription.
/// @return what `|` applies to an observable.
template <class F>
auto concat_map(F select) {
    return
        [select = std::move(select)]<class T, class Source>(const observable<T, Source>& source) {
            return rxcpp::detail::concatenated(source, select, rxcpp::detail::uncoordinated());
        };
}

/// Does the same for sources that emit on several threads.
///
/// @param select as above.
/// @param coordination keeps the events apart, see flat_map().
template <class F, rxcpp::detail::coordination Coordination>
auto concat_map(F select, Coordination coordination) {
    return
        [select = std::move(select), coordination = std::move(coordination)]<class T, class Source>(
            const observable<T, Source>& source) {
            return rxcpp::detail::concatenated(source, select, coordination);
        };
}

}  // namespace operators

namespace rxo = operators;

namespace detail {

template <class... F>
struct member_operator<concat_map_tag, F...> {
    template <class Observable, class... Arguments>
    static auto apply(const Observable& source, Arguments&&... arguments) {
        return operators::concat_map(std::forward<Arguments>(arguments)...)(source);
    }
};

}  // namespace detail

}  // namespace rxcpp::inline bundled
