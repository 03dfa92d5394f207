#pragma once

/// @file
/// A counted pointer to an object that counts its own references.

#include <utility>

#include "namespace.hpp"

namespace rxcpp::inline bundled::detail {

/// Owns one reference to an object that has retain() and release().
///
/// As with std::shared_ptr, different references to one object may be used from different threads
/// at the same time, one reference may not.
template <class T>
class reference {
  public:
    reference() noexcept = default;
    reference(const reference& other) noexcept : object_(other.object_) {
        if (object_ != nullptr) object_->retain();
    }
    reference(reference&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    reference& operator=(reference other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~reference() {
        if (object_ != nullptr) object_->release();
    }

    /// Takes over the reference that a new object is born with.
    [[nodiscard]] static reference adopt(T* object) noexcept {
        reference result;
        result.object_ = object;
        return result;
    }

    [[nodiscard]] T* get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

  private:
    T* object_ = nullptr;
};

}  // namespace rxcpp::inline bundled::detail
