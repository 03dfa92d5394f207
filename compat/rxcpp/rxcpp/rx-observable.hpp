#pragma once

/// @file
/// The observable itself.

#include <concepts>
#include <exception>
#include <memory>
#include <type_traits>
#include <utility>

#include "detail/namespace.hpp"
#include "rx-subscriber.hpp"
#include "rx-subscription.hpp"

namespace rxcpp::inline bundled {

namespace detail {

/// What observes a source of type T: a subscriber or a stage.
template <class Source, class T>
concept source_of =
    std::same_as<typename Source::value_type, T> &&
    requires(const Source& source, subscriber<T> end) { source.on_subscribe(std::move(end)); };

/// Gives observable its operator members. Each operator header specialises it for its own tag.
template <class Tag, class... Arguments>
struct member_operator {
    static_assert(sizeof(Tag) == 0, "include the header of this operator: <rxcpp/operators/...>");
};
struct map_tag;
struct tap_tag;
struct filter_tag;
struct take_tag;
struct finally_tag;
struct on_error_resume_next_tag;
struct switch_on_error_tag;
struct retry_tag;
struct flat_map_tag;
struct concat_map_tag;
struct merge_tag;
struct concat_tag;
struct zip_tag;
struct observe_on_tag;
struct timeout_tag;

}  // namespace detail

/// A source that hides its type; copies share it.
///
/// @tparam T the type of the values.
template <class T>
class dynamic_observable {
  public:
    /// The type of the values.
    using value_type = T;

    /// Has no source. Subscribing to it calls std::terminate.
    dynamic_observable() noexcept = default;

    /// Hides a source.
    template <detail::source_of<T> Source>
        requires(!std::same_as<Source, dynamic_observable>)
    explicit dynamic_observable(Source source)
        : source_(std::make_shared<const hidden<Source>>(std::move(source))) {}

    /// Starts the source for one subscriber; used by observable::subscribe().
    template <class End>
    void on_subscribe(End end) const {
        const auto kept = source_;  // an event may replace the observable that emits it
        if (kept == nullptr) std::terminate();
        kept->on_subscribe(detail::into_subscriber(std::move(end)));
    }

    /// @return whether both share one source.
    friend bool operator==(const dynamic_observable& left,
                           const dynamic_observable& right) noexcept {
        return left.source_ == right.source_;
    }

  private:
    class any_source {
      public:
        any_source() = default;
        any_source(const any_source&) = delete;
        any_source& operator=(const any_source&) = delete;
        virtual void on_subscribe(subscriber<T> end) const = 0;

      protected:
        ~any_source() = default;
    };

    template <class Source>
    class hidden final : public any_source {
      public:
        explicit hidden(Source source) : source_(std::move(source)) {}
        void on_subscribe(subscriber<T> end) const override {
            source_.on_subscribe(std::move(end));
        }

      private:
        Source source_;
    };

    std::shared_ptr<const any_source> source_;
};

template <class T = void,
          class Source = std::conditional_t<std::is_void_v<T>, void, dynamic_observable<T>>>
class observable;

/// A cold sequence of values that ends with at most one error or completion.
///
/// Nothing happens before subscribe(), and each subscribe() runs the source anew. An observable is
/// copyable; `observable<T>`, which every other observable of T converts to, is one pointer to a
/// shared source. It has no state that changes, so different threads may subscribe to one
/// observable at the same time if its source can be run by them at the same time.
///
/// @tparam T the type of the values.
/// @tparam Source the type of the source; user code names only its default.
template <class T, class Source>
class observable {
  public:
    static_assert(std::same_as<T, std::decay_t<T>>, "values have no reference or const type");

    /// The type of the values.
    using value_type = T;

    /// Has no source. Subscribing to it calls std::terminate.
    observable() = default;

    /// Takes the source; for the library's own use.
    explicit observable(Source source) : source_(std::move(source)) {}

    /// Hides the type of another observable of the same values.
    template <class Other>
        requires(!std::same_as<Other, Source> && std::constructible_from<Source, const Other&>)
    observable(const observable<T, Other>& other) : source_(other.get_source()) {}

    /// Hides the type of another observable of the same values, whose source moves.
    template <class Other>
        requires(!std::same_as<Other, Source> && std::constructible_from<Source, Other>)
    observable(observable<T, Other>&& other) : source_(std::move(other).get_source()) {}

    /// Runs the source for one observer, in the calling thread unless the source does otherwise.
    ///
    /// Dropping the result does not end the subscription.
    ///
    /// @param arguments what make_subscriber() takes: optionally a composite_subscription, then up
    ///        to three functions for values, the error and the completion; or a subscriber.
    /// @return the subscription. If it had ended before the call the source does not run.
    /// @throws whatever a function for the error or the completion throws while the source runs in
    ///         this call. An exception of the source itself goes to the error function.
    template <class... Arguments>
    composite_subscription subscribe(Arguments&&... arguments) const {
        return start(make_subscriber<T>(std::forward<Arguments>(arguments)...));
    }

    /// @return this observable with the type of its source hidden.
    [[nodiscard]] observable<T> as_dynamic() const { return *this; }

    // Each of these does what the operator of its name does, and needs that one's header.
    template <class... Arguments>
    auto map(Arguments&&... arguments) const {
        return apply<detail::map_tag>(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    auto tap(Arguments&&... arguments) const {
        return apply<detail::tap_tag>(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    auto filter(Arguments&&... arguments) const {
        return apply<detail::filter_tag>(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    auto take(Arguments&&... arguments) const {
        return apply<detail::take_tag>(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    auto finally(Arguments&&... arguments) const {
        return apply<detail::finally_tag>(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    auto on_error_resume_next(Arguments&&... arguments) const {
        return apply<detail::on_error_resume_next_tag>(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    auto switch_on_error(Arguments&&... arguments) const {
        return apply<detail::switch_on_error_tag>(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    auto retry(Arguments&&... arguments) const {
        return apply<detail::retry_tag>(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    auto flat_map(Arguments&&... arguments) const {
        return apply<detail::flat_map_tag>(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    auto concat_map(Arguments&&... arguments) const {
        return apply<detail::concat_map_tag>(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    auto merge(Arguments&&... arguments) const {
        return apply<detail::merge_tag>(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    auto concat(Arguments&&... arguments) const {
        return apply<detail::concat_tag>(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    auto zip(Arguments&&... arguments) const {
        return apply<detail::zip_tag>(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    auto observe_on(Arguments&&... arguments) const {
        return apply<detail::observe_on_tag>(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    auto timeout(Arguments&&... arguments) const {
        return apply<detail::timeout_tag>(std::forward<Arguments>(arguments)...);
    }

    /// @return the source; for the library's own use.
    [[nodiscard]] const Source& get_source() const& noexcept { return source_; }
    [[nodiscard]] Source&& get_source() && noexcept { return std::move(source_); }

    /// @return whether both share one source.
    friend bool operator==(const observable& left, const observable& right)
        requires std::equality_comparable<Source>
    {
        return left.source_ == right.source_;
    }

  private:
    template <class Tag, class... Arguments>
    auto apply(Arguments&&... arguments) const {
        return detail::member_operator<Tag, std::decay_t<Arguments>...>::apply(
            *this, std::forward<Arguments>(arguments)...);
    }

    composite_subscription start(const subscriber<T>& end) const {
        composite_subscription lifetime = end.get_subscription();
        if (!lifetime.is_subscribed()) return lifetime;
        try {
            source_.on_subscribe(end);
        } catch (...) {
            if (!lifetime.is_subscribed()) throw;
            end.on_error(std::current_exception());
        }
        return lifetime;
    }

    Source source_;
};

/// Applies an operator: `source | rxcpp::operators::map(f)`.
///
/// @param source the observable.
/// @param operation anything callable with an observable.
/// @return what `operation` returns.
template <class T, class Source, class Operation>
// By value, for operators that keep the source move it.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
auto operator|(observable<T, Source> source, Operation&& operation)
    -> decltype(std::forward<Operation>(operation)(std::move(source))) {
    return std::forward<Operation>(operation)(std::move(source));
}

namespace detail {

/// The source of an operator: hands the source before it a stage that leads to the subscriber.
template <class Source, class Operator>
class lifted {
  public:
    using value_type = typename Operator::value_type;

    lifted(Source source, Operator operation)
        : source_(std::move(source)), operation_(std::move(operation)) {}

    template <class End>
    void on_subscribe(End end) const {
        source_.on_subscribe(operation_.stage_before(std::move(end)));
    }

  private:
    Source source_;
    Operator operation_;
};

template <class T, class Source, class Operator>
auto lift(observable<T, Source> source, Operator operation) {
    using result = lifted<Source, Operator>;
    return observable<typename result::value_type, result>(
        result(std::move(source).get_source(), std::move(operation)));
}

}  // namespace detail

}  // namespace rxcpp::inline bundled
