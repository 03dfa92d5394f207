#pragma once

#include <utility>

namespace KestrinC::internal {

/// An application's context, which is released once, when its last owner ends.
class Owned {
  public:
    using Release = void (*)(void* context);

    Owned() = default;
    Owned(void* context, Release release) noexcept : context_(context), release_(release) {}
    Owned(Owned&& other) noexcept
        : context_(std::exchange(other.context_, nullptr)),
          release_(std::exchange(other.release_, nullptr)) {}
    Owned& operator=(Owned&& other) noexcept {
        Owned former(std::move(*this));
        context_ = std::exchange(other.context_, nullptr);
        release_ = std::exchange(other.release_, nullptr);
        return *this;
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() { end(); }

    [[nodiscard]] void* context() const noexcept { return context_; }

    /// Releases the context now.
    void end() noexcept {
        if (const Release release = std::exchange(release_, nullptr)) release(context_);
    }

    /// Never releases it.
    void forget() noexcept { release_ = nullptr; }

  private:
    void* context_ = nullptr;
    Release release_ = nullptr;
};

}  // namespace KestrinC::internal
