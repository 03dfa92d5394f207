#pragma once

/// @file
/// The operator that goes on with another source after an error.

#include <exception>
#include <optional>
#include <utility>

#include "../detail/namespace.hpp"
#include "../rx-lite.hpp"

namespace rxcpp::inline bundled {

namespace operators {

namespace detail {

template <class T, class F>
class resume_observer {
  public:
    resume_observer(F select, composite_subscription lifetime, subscriber<T> end)
        : select_(std::move(select)), lifetime_(std::move(lifetime)), end_(std::move(end)) {}

    template <class V>
    void on_next(V&& value) const {
        end_.on_next(std::forward<V>(value));
    }
    void on_error(const std::exception_ptr& error) const {
        if (const auto fallback = selected(error)) fallback->subscribe(end_);
    }
    void on_completed() const { end_.on_completed(); }
    [[nodiscard]] const composite_subscription& get_subscription() const { return lifetime_; }

  private:
    std::optional<observable<T>> selected(const std::exception_ptr& error) const {
        try {
            return select_(error);
        } catch (...) {
            end_.on_error(std::current_exception());
            return std::nullopt;
        }
    }

    F select_;
    composite_subscription lifetime_;
    subscriber<T> end_;
};

template <class T, class F>
class resume_operator {
  public:
    using value_type = T;

    explicit resume_operator(F select) : select_(std::move(select)) {}

    template <class End>
    auto stage_before(End end) const {
        const composite_subscription lifetime;
        subscriber<T> out = rxcpp::detail::into_subscriber(std::move(end));
        out.add(lifetime);
        using observer = resume_observer<T, F>;
        return rxcpp::detail::stage<T, observer>(observer(select_, lifetime, std::move(out)));
    }

  private:
    F select_;
};

}  // namespace detail

/// Makes the operator that, in the place of an error, goes on with the observable that a function
/// returns for it.
///
/// The teardown of the source runs once that observable has been subscribed to. What the function
/// throws becomes the error; an error of the other observable is passed on.
///
/// @param select takes the error (std::exception_ptr) and returns an observable of the same values;
///        copied for each subscription, and called as a const object by the thread that emits.
/// @return what `|` applies to an observable.
template <class F>
auto on_error_resume_next(F select) {
    return [select = std::move(select)]<class T, class Source>(observable<T, Source> source) {
        return rxcpp::detail::lift(std::move(source), detail::resume_operator<T, F>(select));
    };
}

/// Another name of on_error_resume_next().
template <class F>
auto switch_on_error(F select) {
    return on_error_resume_next(std::move(select));
}

}  // namespace operators

namespace rxo = operators;

namespace detail {

template <class... F>
struct member_operator<on_error_resume_next_tag, F...> {
    template <class Observable, class... Arguments>
    static auto apply(const Observable& source, Arguments&&... arguments) {
        return operators::on_error_resume_next(std::forward<Arguments>(arguments)...)(source);
    }
};

template <class... F>
struct member_operator<switch_on_error_tag, F...> {
    template <class Observable, class... Arguments>
    static auto apply(const Observable& source, Arguments&&... arguments) {
        return operators::switch_on_error(std::forward<Arguments>(arguments)...)(source);
    }
};

}  // namespace detail

}  // namespace rxcpp::inline bundled
