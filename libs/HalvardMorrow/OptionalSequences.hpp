#pragma once

#include <algorithm>
#include <optional>
#include <ranges>

namespace HalvardMorrow {

/// Equality of two optional sequences of equatable values.
///
/// Both absent is equal. One absent and one present is unequal, even where the present one is
/// empty: "no list" and "a list without entries" are different answers. Two present sequences are
/// equal when they have the same number of values and the values are pairwise equal in order.
///
/// @param left, right  the sequences; `std::nullopt` means that there is none
template <std::ranges::input_range Sequence>
    requires std::equality_comparable<std::ranges::range_value_t<Sequence>>
[[nodiscard]] constexpr bool equal(const std::optional<Sequence>& left,
                                   const std::optional<Sequence>& right) {
    if (!left || !right) return left.has_value() == right.has_value();
    return std::ranges::equal(*left, *right);
}

}  // namespace HalvardMorrow
