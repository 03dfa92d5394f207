#pragma once

/// @file
/// What concat and concat_map share: sources are subscribed to one after the other.

#include <deque>
#include <exception>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "../rx-coordination.hpp"
#include "../rx-lite.hpp"
#include "merging.hpp"
#include "namespace.hpp"
#include "operator_source.hpp"

namespace rxcpp::inline bundled::detail {

template <class T, class V, class Coordinator, class Select>
struct concat_state : std::enable_shared_from_this<concat_state<T, V, Coordinator, Select>> {
    concat_state(subscriber<T> to, Coordinator keeper, Select function)
        : out(std::move(to)), coordinator(std::move(keeper)), select(std::move(function)) {}

    template <class Value>
    void came(Value&& value) {
        if (inner.is_subscribed())
            waiting.push_back(std::forward<Value>(value));
        else if (waiting.empty())
            start(std::forward<Value>(value));
    }

    template <class Value>
    void start(Value&& value) {
        const auto self = this->shared_from_this();
        const auto selected = select_of(std::forward<Value>(value));
        if (!selected) return;
        inner = member_of(out, self);
        const auto end = make_subscriber<T>(
            inner, [self](auto&& each) { self->out.on_next(std::forward<decltype(each)>(each)); },
            [self](std::exception_ptr error) { self->out.on_error(error); },
            [self] { self->inner_completed(); });
        coordinator.in(*selected).subscribe(coordinator.out(end));
    }

    void inner_completed() {
        if (!waiting.empty()) {
            V next = std::move(waiting.front());
            waiting.pop_front();
            inner.unsubscribe();
            start(std::move(next));
        } else if (!lifetime.is_subscribed()) {
            out.on_completed();
        }
    }

    void completed() {
        if (!inner.is_subscribed() && waiting.empty()) out.on_completed();
    }

    template <class Value>
    auto select_of(Value&& value)
        -> std::optional<std::decay_t<std::invoke_result_t<Select&, Value>>> {
        try {
            return select(std::forward<Value>(value));
        } catch (...) {
            out.on_error(std::current_exception());
            return std::nullopt;
        }
    }

    subscriber<T> out;
    Coordinator coordinator;
    Select select;
    composite_subscription lifetime;  // of the subscription to the source
    composite_subscription inner = composite_subscription::empty();
    std::deque<V> waiting;
};

/// The operator of concat and concat_map.
template <class V, class Source, class Select, class Coordination>
auto concatenated(const observable<V, Source>& source, const Select& select,
                  const Coordination& coordination) {
    using inner = std::decay_t<std::invoke_result_t<Select&, V>>;
    using value = typename inner::value_type;
    return make_operator<value>([source, select, coordination](const subscriber<value>& out) {
        auto coordinator = coordination.create_coordinator(out.get_subscription());
        using state_type = concat_state<value, V, decltype(coordinator), Select>;
        const auto state = std::make_shared<state_type>(out, std::move(coordinator), select);
        out.add(state->lifetime);
        const auto end = make_subscriber<V>(
            state->lifetime,
            [state](auto&& each) { state->came(std::forward<decltype(each)>(each)); },
            [state](std::exception_ptr error) { state->out.on_error(error); },
            [state] { state->completed(); });
        state->coordinator.in(source).subscribe(state->coordinator.out(end));
    });
}

}  // namespace rxcpp::inline bundled::detail
