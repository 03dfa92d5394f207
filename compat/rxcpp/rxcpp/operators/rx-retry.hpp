#pragma once

/// @file
/// The operator that subscribes again after an error.

#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "../detail/namespace.hpp"
#include "../detail/operator_source.hpp"
#include "../rx-lite.hpp"

namespace rxcpp::inline bundled {

namespace operators {

namespace detail {

template <class T, class Source, class Count>
struct retry_state : std::enable_shared_from_this<retry_state<T, Source, Count>> {
    retry_state(observable<T, Source> from, subscriber<T> to, std::optional<Count> attempts)
        : source(std::move(from)), out(std::move(to)), left(attempts) {}

    void start() {
        const auto self = this->shared_from_this();
        out.remove(name);
        lifetime.unsubscribe();
        lifetime = composite_subscription();
        name = out.add(lifetime);
        source.subscribe(
            lifetime,
            [self](auto&& value) { self->out.on_next(std::forward<decltype(value)>(value)); },
            [self](std::exception_ptr error) { self->failed(error); },
            [self] { self->out.on_completed(); });
    }

    void failed(const std::exception_ptr& error) {
        if (left && --*left <= 0) return out.on_error(error);
        start();
    }

    observable<T, Source> source;
    subscriber<T> out;
    std::optional<Count> left;
    composite_subscription lifetime = composite_subscription::empty();
    composite_subscription::weak_subscription name;
};

template <class T, class Source, class Count>
auto retried(const observable<T, Source>& source, std::optional<Count> attempts) {
    return rxcpp::detail::make_operator<T>([source, attempts](const subscriber<T>& out) {
        if (attempts && *attempts <= 0) return out.on_completed();
        std::make_shared<retry_state<T, Source, Count>>(source, out, attempts)->start();
    });
}

}  // namespace detail

/// Makes the operator that subscribes again whenever the source fails, without an end.
///
/// The values of all attempts are passed on. The teardown of a failed attempt runs before the next
/// one begins. Attempts that fail before subscribe() has returned are nested in each other.
///
/// @return what `|` applies to an observable.
inline auto retry() {
    return []<class T, class Source>(const observable<T, Source>& source) {
        return detail::retried<T, Source, int>(source, std::nullopt);
    };
}

/// Makes the operator that does the same a number of times.
///
/// @param count how many attempts there are, the first one included; the error of the last is
///        passed on. 0 completes at once.
/// @return what `|` applies to an observable.
template <class Count>
auto retry(Count count) {
    return [count]<class T, class Source>(const observable<T, Source>& source) {
        return detail::retried<T, Source, Count>(source, count);
    };
}

}  // namespace operators

namespace rxo = operators;

namespace detail {

template <class... F>
struct member_operator<retry_tag, F...> {
    template <class Observable, class... Arguments>
    static auto apply(const Observable& source, Arguments&&... arguments) {
        return operators::retry(std::forward<Arguments>(arguments)...)(source);
    }
};

}  // namespace detail

}  // namespace rxcpp::inline bundled
