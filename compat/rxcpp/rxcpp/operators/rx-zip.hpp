#pragma once

/// @file
/// The operator that combines the values of several sources one by one.

#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

#include "../detail/merging.hpp"
#include "../detail/namespace.hpp"
#include "../detail/operator_source.hpp"
#include "../rx-lite.hpp"

namespace rxcpp::inline bundled {

namespace operators {

namespace detail {

template <class T>
struct zip_queue {
    std::deque<T> values;
    bool completed = false;
};

template <class T, class Coordinator, class Select, class... V>
struct zip_state {
    subscriber<T> out;
    Coordinator coordinator;
    Select select;
    std::tuple<zip_queue<V>...> queues;
    std::size_t pending = sizeof...(V);  // sources that have not completed

    void combine() {
        const bool all =
            std::apply([](const auto&... queue) { return (!queue.values.empty() && ...); }, queues);
        if (all)
            out.on_next(std::apply(
                [this](auto&... queue) { return this->select(front_of(queue)...); }, queues));
        const bool done = std::apply(
            [](const auto&... queue) { return ((queue.completed && queue.values.empty()) || ...); },
            queues);
        if (done) out.on_completed();
    }

  private:
    template <class Value>
    static Value front_of(zip_queue<Value>& queue) {
        Value first = std::move(queue.values.front());
        queue.values.pop_front();
        return first;
    }
};

template <std::size_t Index, class State, class V, class Source>
void zip_one(const std::shared_ptr<State>& state, const observable<V, Source>& source) {
    const composite_subscription lifetime;
    state->out.add(lifetime);
    const auto end = make_subscriber<V>(
        lifetime,
        [state](auto&& value) {
            std::get<Index>(state->queues).values.push_back(std::forward<decltype(value)>(value));
            state->combine();
        },
        [state](std::exception_ptr error) { state->out.on_error(std::move(error)); },
        [state] {
            std::get<Index>(state->queues).completed = true;
            if (--state->pending == 0) state->out.on_completed();
        });
    state->coordinator.in(source).subscribe(state->coordinator.out(end));
}

/// Makes a tuple.
struct pack {
    template <class... V>
    auto operator()(V&&... values) const {
        return std::make_tuple(std::forward<V>(values)...);
    }
};

template <class Coordination, class Select, class... Others>
auto zip_with(const Coordination& coordination, const Select& select, const Others&... others) {
    return [coordination, select,
            others...]<class V, class Source>(const observable<V, Source>& source) {
        using value =
            std::decay_t<std::invoke_result_t<Select&, V, typename Others::value_type...>>;
        return rxcpp::detail::make_operator<value>([coordination, select, source,
                                                    others...](const subscriber<value>& out) {
            auto coordinator = coordination.create_coordinator(out.get_subscription());
            using state_type =
                zip_state<value, decltype(coordinator), Select, V, typename Others::value_type...>;
            const auto state =
                std::make_shared<state_type>(state_type{out, std::move(coordinator), select, {}});
            [&]<std::size_t... Index>(std::index_sequence<Index...>) {
                zip_one<0>(state, source);
                (zip_one<Index + 1>(state, others), ...);
            }(std::index_sequence_for<Others...>());
        });
    };
}

}  // namespace detail

/// Makes the operator that waits until each of several sources has emitted, combines the values,
/// and begins anew.
///
/// It completes when all sources have, or when no more values can come of one that has completed;
/// the latter is noticed with the next value. The first error ends everything.
///
/// @param others observables; the values are combined to a std::tuple. No two sources may emit at
///        the same time.
/// @return what `|` applies to an observable.
template <rxcpp::detail::any_observable... Others>
auto zip(const Others&... others) {
    return detail::zip_with(rxcpp::detail::uncoordinated(), detail::pack(), others...);
}

/// Does the same for sources that emit on several threads.
///
/// @param coordination keeps the events apart, see flat_map().
/// @param others as above.
template <rxcpp::detail::coordination Coordination, rxcpp::detail::any_observable... Others>
auto zip(const Coordination& coordination, const Others&... others) {
    return detail::zip_with(coordination, detail::pack(), others...);
}

/// Does the same and combines the values with a function.
///
/// @param select takes a value of each source, in this order; copied for each subscription. What it
///        throws becomes the error.
/// @param others as above.
template <class Select, rxcpp::detail::any_observable... Others>
    requires(!rxcpp::detail::any_observable<Select> && !rxcpp::detail::coordination<Select>)
auto zip(const Select& select, const Others&... others) {
    return detail::zip_with(rxcpp::detail::uncoordinated(), select, others...);
}

/// Does both.
template <rxcpp::detail::coordination Coordination, class Select,
          rxcpp::detail::any_observable... Others>
    requires(!rxcpp::detail::any_observable<Select>)
auto zip(const Coordination& coordination, const Select& select, const Others&... others) {
    return detail::zip_with(coordination, select, others...);
}

}  // namespace operators

namespace rxo = operators;

namespace detail {

template <class... F>
struct member_operator<zip_tag, F...> {
    template <class Observable, class... Arguments>
    static auto apply(const Observable& source, Arguments&&... arguments) {
        return operators::zip(std::forward<Arguments>(arguments)...)(source);
    }
};

}  // namespace detail

}  // namespace rxcpp::inline bundled
