#pragma once

/// @file
/// The operator that makes an observable of each value and merges their events.

#include <utility>

#include "../detail/merging.hpp"
#include "../detail/namespace.hpp"
#include "../rx-lite.hpp"

namespace rxcpp::inline bundled {

namespace operators {

/// Makes the operator that subscribes to the observable that a function returns for each value, and
/// passes on the values of all of these as they come.
///
/// It completes when the source and all of them have. The first error ends everything; so does what
/// the function throws.
///
/// @param select takes a value and returns an observable; copied for each subscription and called
///        by the thread that emits.
/// @return what `|` applies to an observable.
template <class F>
auto flat_map(F select) {
    return
        [select = std::move(select)]<class T, class Source>(const observable<T, Source>& source) {
            return rxcpp::detail::merged(source, select, rxcpp::detail::uncoordinated());
        };
}

/// Does the same for sources that emit on several threads.
///
/// @param select as above.
/// @param coordination keeps the events apart: serialize_one_worker for sources that emit on
/// several
///        threads. Without one no two of them may emit at the same time.
template <class F, rxcpp::detail::coordination Coordination>
auto flat_map(F select, Coordination coordination) {
    return
        [select = std::move(select), coordination = std::move(coordination)]<class T, class Source>(
            const observable<T, Source>& source) {
            return rxcpp::detail::merged(source, select, coordination);
        };
}

}  // namespace operators

namespace rxo = operators;

namespace detail {

template <class... F>
struct member_operator<flat_map_tag, F...> {
    template <class Observable, class... Arguments>
    static auto apply(const Observable& source, Arguments&&... arguments) {
        return operators::flat_map(std::forward<Arguments>(arguments)...)(source);
    }
};

}  // namespace detail

}  // namespace rxcpp::inline bundled
