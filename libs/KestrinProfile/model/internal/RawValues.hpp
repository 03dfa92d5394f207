#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace KestrinProfile::internal {

/// The raw values of a text-valued enumeration, one for each case in declaration order. The one
/// place from which both directions of the conversion are read.
template <class Enumeration, std::size_t Count>
struct RawValues {
    std::array<std::string_view, Count> texts;

    [[nodiscard]] constexpr std::string_view of(Enumeration value) const {
        return texts.at(static_cast<std::size_t>(value));
    }

    /// The case whose raw value is exactly this text; absent where there is none.
    [[nodiscard]] constexpr std::optional<Enumeration> caseOf(std::string_view text) const {
        for (std::size_t ordinal = 0; ordinal < Count; ++ordinal)
            if (texts[ordinal] == text) return static_cast<Enumeration>(ordinal);
        return std::nullopt;
    }
};

}  // namespace KestrinProfile::internal
