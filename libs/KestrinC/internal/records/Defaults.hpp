#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

#include <KestrinC/internal/records/Fields.hpp>

namespace KestrinC::internal {

/// A structure that says what a record says by itself, for the application to change.
template <class Structure>
class Defaults {
  public:
    template <class Record>
    explicit Defaults(const Record& record) {
        show(*arena_.keep(record), structure_, arena_);
    }

    /// @param size  what the application takes for the structure's
    /// @throws Refused
    void copyTo(Structure* place, std::size_t size, const char* name) const {
        const Path path(name);
        if (place == nullptr) path.refuse("is NULL");
        if (size < firstSize<Structure>)
            path.refuse("would have the size " + std::to_string(size) +
                        "; pass sizeof the structure");
        std::memset(static_cast<void*>(place), 0, size);
        std::memcpy(static_cast<void*>(place), &structure_, std::min(size, sizeof structure_));
        std::memcpy(static_cast<void*>(place), &size, sizeof size);
    }

    [[nodiscard]] const Structure& structure() const noexcept { return structure_; }

  private:
    Arena arena_;
    Structure structure_{};
};

}  // namespace KestrinC::internal
