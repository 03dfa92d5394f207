#pragma once

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace KestrinC::internal {

/// Keeps what a structure of the interface points to.
class Arena {
  public:
    /// Keeps a value, where it stays.
    template <class T>
    const T* keep(T value) {
        constexpr std::size_t typical = 4;  // a list, its entries, and what holds them
        if (kept_.empty()) kept_.reserve(typical);
        auto kept = std::make_shared<const T>(std::move(value));
        const T* const place = kept.get();
        kept_.push_back(std::move(kept));
        return place;
    }

  private:
    std::vector<std::shared_ptr<const void>> kept_;
};

}  // namespace KestrinC::internal
