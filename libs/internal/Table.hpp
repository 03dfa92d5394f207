#pragma once

#include <algorithm>
#include <cstddef>

namespace KestrinInternal {

// Tables with a row for each case of an enumeration, in its order.

/// The row of a case.
[[nodiscard]] constexpr const auto& rowOf(const auto& table, auto value) noexcept {
    return table[static_cast<std::size_t>(value)];
}

/// Whether each row is the one of the case that it names.
/// @param value  the member that names the case
[[nodiscard]] constexpr bool isInOrder(const auto& table, auto value) noexcept {
    return std::ranges::all_of(table,
                               [&](const auto& row) { return &row == &rowOf(table, row.*value); });
}

}  // namespace KestrinInternal
