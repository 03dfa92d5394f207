#pragma once

#include <optional>

namespace HalvardMorrow {

template <class Sequence>
bool equal(const std::optional<Sequence>& left, const std::optional<Sequence>& right) {
    return left == right;
}

}  // namespace HalvardMorrow
