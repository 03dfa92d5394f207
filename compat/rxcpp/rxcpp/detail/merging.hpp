#pragma once

/// @file
/// What merge and flat_map share: events of several sources go to one subscriber.

#include <exception>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "../rx-coordination.hpp"
#include "../rx-lite.hpp"
#include "namespace.hpp"
#include "operator_source.hpp"

namespace rxcpp::inline bundled::detail {

/// The coordination of an operator that was given none.
struct uncoordinated {
    struct coordinator_type {
        template <class Observable>
        Observable in(Observable source) const {
            return source;
        }
        template <class Subscriber>
        Subscriber out(Subscriber end) const {
            return end;
        }
    };
    coordinator_type create_coordinator(const composite_subscription&) const { return {}; }
};

/// A subscription whose end frees its place in another one.
template <class T, class State>
composite_subscription member_of(const subscriber<T>& out, const std::shared_ptr<State>& state) {
    composite_subscription lifetime;
    const auto name = out.add(lifetime);
    lifetime.add([state, name] { state->out.remove(name); });
    return lifetime;
}

template <class T, class Coordinator, class Select>
struct merge_state {
    subscriber<T> out;
    Coordinator coordinator;
    Select select;
    int pending = 1;  // sources that have not completed; the outer one is there from the start

    void completed() {
        if (--pending == 0) out.on_completed();
    }
};

template <class T, class State, class Inner>
void merge_inner(const std::shared_ptr<State>& state, const composite_subscription& lifetime,
                 const Inner& inner) {
    ++state->pending;
    const auto end = make_subscriber<T>(
        lifetime,
        [state](auto&& value) { state->out.on_next(std::forward<decltype(value)>(value)); },
        [state](std::exception_ptr error) { state->out.on_error(std::move(error)); },
        [state] { state->completed(); });
    state->coordinator.in(inner).subscribe(state->coordinator.out(end));
}

/// Subscribes to a source, and to the observable that `select` makes of each of its values.
template <class T, class V, class Source, class Select, class Coordination>
void merge_into(const subscriber<T>& out, const observable<V, Source>& source, const Select& select,
                const Coordination& coordination) {
    auto coordinator = coordination.create_coordinator(out.get_subscription());
    using state_type = merge_state<T, decltype(coordinator), Select>;
    const auto state =
        std::make_shared<state_type>(state_type{out, std::move(coordinator), select});
    const composite_subscription lifetime;
    out.add(lifetime);
    const auto end = make_subscriber<V>(
        lifetime,
        [state](auto&& value) {
            const auto inner = member_of(state->out, state);
            merge_inner<T>(state, inner, state->select(std::forward<decltype(value)>(value)));
        },
        [state](std::exception_ptr error) { state->out.on_error(std::move(error)); },
        [state] { state->completed(); });
    state->coordinator.in(source).subscribe(state->coordinator.out(end));
}

/// The operator of merge and flat_map.
template <class V, class Source, class Select, class Coordination>
auto merged(const observable<V, Source>& source, const Select& select,
            const Coordination& coordination) {
    using inner = std::decay_t<std::invoke_result_t<Select&, V>>;
    using value = typename inner::value_type;
    return make_operator<value>([source, select, coordination](const subscriber<value>& out) {
        merge_into<value>(out, source, select, coordination);
    });
}

/// An observable of observables.
template <class T>
auto each_of(std::vector<observable<T>> sources) {
    return make_operator<observable<T>>(
        [sources = std::move(sources)](const subscriber<observable<T>>& out) {
            for (const auto& source : sources) {
                if (!out.is_subscribed()) return;
                out.on_next(source);
            }
            out.on_completed();
        });
}

/// Selects what is there.
struct itself {
    template <class T>
    std::decay_t<T> operator()(T&& value) const {
        return std::forward<T>(value);
    }
};

}  // namespace rxcpp::inline bundled::detail
