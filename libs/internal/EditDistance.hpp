#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <ranges>
#include <string_view>
#include <utility>
#include <vector>

#include <internal/ASCII.hpp>

namespace KestrinInternal {

/// How many letters must be inserted, removed, replaced or swapped with their neighbour to make one
/// name of the other, whatever their case.
[[nodiscard]] inline std::size_t editDistance(std::string_view left, std::string_view right) {
    std::vector<std::size_t> beforeLast;
    std::vector<std::size_t> last(right.size() + 1);
    for (std::size_t column = 0; column <= right.size(); ++column)
        last[column] = column;

    const auto same = [&](std::size_t row, std::size_t column) {
        return lowered(left[row - 1]) == lowered(right[column - 1]);
    };
    for (std::size_t row = 1; row <= left.size(); ++row) {
        std::vector<std::size_t> current(right.size() + 1, row);
        for (std::size_t column = 1; column <= right.size(); ++column) {
            current[column] = std::min({last[column] + 1, current[column - 1] + 1,
                                        last[column - 1] + (same(row, column) ? 0U : 1U)});
            if (row > 1 && column > 1 && same(row, column - 1) && same(row - 1, column))
                current[column] = std::min(current[column], beforeLast[column - 2] + 1);
        }
        beforeLast = std::exchange(last, std::move(current));
    }
    return last.back();
}

/// The known name that somebody who wrote this one most likely meant; absent if none is close.
/// @param known  a range of texts
[[nodiscard]] inline std::optional<std::string_view> nearestName(
    std::string_view name, const std::ranges::forward_range auto& known) {
    constexpr std::size_t longest = 64;  // far more than any known name
    if (name.size() > longest) return std::nullopt;
    std::optional<std::string_view> nearest;
    std::size_t least = 0;
    for (const std::string_view each : known) {
        const std::size_t distance = editDistance(name, each);
        if (distance > std::max<std::size_t>(1, each.size() / 3)) continue;
        if (nearest && distance >= least) continue;
        nearest = each;
        least = distance;
    }
    return nearest;
}

}  // namespace KestrinInternal
