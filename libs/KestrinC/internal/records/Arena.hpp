#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace KestrinC::internal {

/// Keeps what a structure of the interface points to.
class Arena {
  public:
    Arena() = default;
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;
    ~Arena() {
        // One after the other: an outbox of thousands of entries would need as deep a stack.
        while (last_)
            last_ = std::move(last_->before);
    }

    /// Keeps a value, where it stays.
    template <class T>
    const std::remove_cvref_t<T>* keep(T&& value) {
        auto kept = std::make_unique<Holding<std::remove_cvref_t<T>>>(std::forward<T>(value));
        const auto* const place = &kept->value;
        kept->before = std::exchange(last_, nullptr);
        last_ = std::move(kept);
        return place;
    }

  private:
    struct Kept {
        Kept() = default;
        Kept(const Kept&) = delete;
        Kept& operator=(const Kept&) = delete;
        virtual ~Kept() = default;
        std::unique_ptr<Kept> before;
    };

    template <class T>
    struct Holding final : Kept {
        explicit Holding(T&& aValue) : value(std::move(aValue)) {}
        explicit Holding(const T& aValue) : value(aValue) {}
        T value;
    };

    std::unique_ptr<Kept> last_;
};

}  // namespace KestrinC::internal
