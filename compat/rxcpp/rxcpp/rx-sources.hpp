#pragma once

/// @file
/// The functions that make an observable from nothing, and `observable<>`, which collects them.

#include <concepts>
#include <exception>
#include <type_traits>
#include <utility>

#include "detail/namespace.hpp"
#include "rx-observable.hpp"
#include "rx-subscriber.hpp"
#include "rx-util.hpp"

namespace rxcpp::inline bundled {

namespace sources {

namespace detail {

template <class T, class OnSubscribe>
class create_source {
  public:
    using value_type = T;

    explicit create_source(OnSubscribe run) : run_(std::move(run)) {}

    template <class End>
    void on_subscribe(End end) const {
        const subscriber<T> target = rxcpp::detail::into_subscriber(std::move(end));
        try {
            run_(target);
        } catch (...) {
            target.on_error(std::current_exception());
        }
    }

  private:
    OnSubscribe run_;
};

template <class T>
class just_source {
  public:
    using value_type = T;

    explicit just_source(T value) : value_(std::move(value)) {}

    template <class End>
    void on_subscribe(const End& end) const {
        end.on_next(value_);
        end.on_completed();
    }

  private:
    T value_;
};

template <class T>
class error_source {
  public:
    using value_type = T;

    explicit error_source(const util::error_ptr& error) noexcept : error_(error) {}

    template <class End>
    void on_subscribe(const End& end) const {
        end.on_error(error_);
    }

  private:
    util::error_ptr error_;
};

template <class T>
class empty_source {
  public:
    using value_type = T;

    template <class End>
    void on_subscribe(const End& end) const {
        end.on_completed();
    }
};

template <class T>
class never_source {
  public:
    using value_type = T;

    template <class End>
    void on_subscribe(const End&) const noexcept {}
};

}  // namespace detail

/// Makes an observable that runs a function for each subscriber.
///
/// @tparam T the type of the values.
/// @param run called as a const object with the subscriber<T>, in the thread that subscribes. It
///        may keep the subscriber and send events later from any thread, one at a time. What it
///        throws becomes the error, unless the subscription has ended by then; it is dropped then.
/// @return the observable; copies of it copy `run`, unless converted to observable<T> before.
template <class T, class OnSubscribe>
    requires std::invocable<const OnSubscribe&, subscriber<T>>
auto create(OnSubscribe run) {
    using source = detail::create_source<T, OnSubscribe>;
    return observable<T, source>(source(std::move(run)));
}

/// Makes an observable that emits one value and completes, in the thread that subscribes.
///
/// @param value kept in the observable; each subscriber gets it as a const reference.
template <class Value>
auto just(Value&& value) {
    using source = detail::just_source<std::decay_t<Value>>;
    return observable<std::decay_t<Value>, source>(source(std::forward<Value>(value)));
}

/// Makes an observable that emits one error, in the thread that subscribes.
///
/// @tparam T the type of the values that it never emits.
/// @param error an exception object, or a std::exception_ptr, which is passed on as it is. All
///        subscribers get the same exception.
template <class T, class Error>
auto error(Error&& error) {
    using source = detail::error_source<T>;
    return observable<T, source>(source(util::make_error_ptr(std::forward<Error>(error))));
}

/// Makes an observable that completes without a value, in the thread that subscribes.
///
/// @tparam T the type of the values that it never emits.
template <class T>
auto empty() {
    using source = detail::empty_source<T>;
    return observable<T, source>(source());
}

/// Makes an observable that emits nothing at all.
///
/// @tparam T the type of the values that it never emits.
template <class T>
auto never() {
    using source = detail::never_source<T>;
    return observable<T, source>(source());
}

}  // namespace sources

namespace rxs = sources;

/// The sources as static members, written `observable<>::just(1)`. Has no objects.
template <>
class observable<void, void> {
  public:
    observable() = delete;

    /// See rxcpp::sources::create().
    template <class T, class OnSubscribe>
    static auto create(OnSubscribe run) {
        return sources::create<T>(std::move(run));
    }

    /// See rxcpp::sources::just().
    template <class Value>
    static auto just(Value&& value) {
        return sources::just(std::forward<Value>(value));
    }

    /// See rxcpp::sources::error().
    template <class T, class Error>
    static auto error(Error&& error) {
        return sources::error<T>(std::forward<Error>(error));
    }

    /// See rxcpp::sources::empty().
    template <class T>
    static auto empty() {
        return sources::empty<T>();
    }

    /// See rxcpp::sources::never().
    template <class T>
    static auto never() {
        return sources::never<T>();
    }
};

}  // namespace rxcpp::inline bundled
