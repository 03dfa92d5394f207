#pragma once

/// @file
/// The actions that a subscription runs when it ends.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "namespace.hpp"

namespace rxcpp::inline bundled::detail {

/// A callable that may be stored to run at the end of a subscription: takes nothing, returns void.
template <class F>
concept teardown_function =
    requires { requires std::is_void_v<decltype(std::declval<std::decay_t<F>>()())>; };

/// One action with the number it was registered under.
///
/// Small callables are kept in place, because nearly every subscription has exactly one short
/// action; larger ones, and ones whose move may throw, are boxed.
class teardown {
  public:
    /// Holds nothing.
    teardown() noexcept = default;

    /// @param id the number that remove() knows the action by.
    /// @param action the callable.
    template <class F>
    teardown(std::uint64_t id, F action) : id_(id) {
        if constexpr (fits_in_place<F>)
            emplace(std::move(action));
        else
            emplace([boxed = std::make_unique<const F>(std::move(action))] { (*boxed)(); });
    }

    teardown(teardown&& other) noexcept { take(other); }
    teardown& operator=(teardown&& other) noexcept {
        if (this != &other) {
            reset();
            take(other);
        }
        return *this;
    }
    ~teardown() { reset(); }

    explicit operator bool() const noexcept { return type_ != nullptr; }
    [[nodiscard]] std::uint64_t id() const noexcept { return id_; }

    /// Calls the action, which is not empty. What it throws goes to the caller.
    void run() { type_->run(storage_); }

    /// Destroys the action without calling it.
    void reset() noexcept {
        if (const auto* type = std::exchange(type_, nullptr)) type->destroy(storage_);
    }

  private:
    static constexpr std::size_t capacity = 4 * sizeof(void*);

    struct action_type {
        void (*run)(void* action);
        void (*relocate)(void* from, void* to) noexcept;
        void (*destroy)(void* action) noexcept;
    };

    template <class F>
    static constexpr bool fits_in_place =
        sizeof(F) <= capacity && alignof(F) <= alignof(std::max_align_t) &&
        std::is_nothrow_move_constructible_v<F>;

    template <class F>
    static F* stored(void* action) noexcept {
        return std::launder(static_cast<F*>(action));
    }

    template <class F>
    static void run_stored(void* action) {
        std::as_const (*stored<F>(action))();
    }

    template <class F>
    static void relocate_stored(void* from, void* to) noexcept {
        F* old = stored<F>(from);
        ::new (to) F(std::move(*old));
        std::destroy_at(old);
    }

    template <class F>
    static void destroy_stored(void* action) noexcept {
        std::destroy_at(stored<F>(action));
    }

    template <class F>
    static constexpr action_type type_of{run_stored<F>, relocate_stored<F>, destroy_stored<F>};

    template <class F>
    void emplace(F action) {
        static_assert(fits_in_place<F>);
        ::new (static_cast<void*>(storage_)) F(std::move(action));
        type_ = &type_of<F>;
    }

    void take(teardown& other) noexcept {
        id_ = other.id_;
        type_ = std::exchange(other.type_, nullptr);
        if (type_ != nullptr) type_->relocate(other.storage_, storage_);
    }

    std::uint64_t id_ = 0;
    const action_type* type_ = nullptr;
    alignas(std::max_align_t) std::byte storage_[capacity];
};

}  // namespace rxcpp::inline bundled::detail
