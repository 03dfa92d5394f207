#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include <internal/Hex.hpp>

namespace KestrinInternal {

/// How many characters an escape like "%41" has.
inline constexpr std::size_t percentEscapeSize = 3;

/// The byte that the escape stands for with which a text begins; absent if it begins with none.
[[nodiscard]] constexpr std::optional<char> percentEscapedByte(std::string_view text) noexcept {
    if (text.size() < percentEscapeSize || text.front() != '%') return std::nullopt;
    const auto high = hexValue(text[1]);
    const auto low = hexValue(text[2]);
    if (!high || !low) return std::nullopt;
    return static_cast<char>(static_cast<unsigned char>(*high << 4U | *low));
}

}  // namespace KestrinInternal
