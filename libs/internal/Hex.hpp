#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include <internal/ASCII.hpp>

namespace KestrinInternal {

inline constexpr std::string_view upperHexDigits = "0123456789ABCDEF";
inline constexpr std::string_view lowerHexDigits = "0123456789abcdef";

/// The two digits of a byte.
/// @param digits  `upperHexDigits` or `lowerHexDigits`
[[nodiscard]] constexpr std::array<char, 2> hexDigits(char byte, std::string_view digits) noexcept {
    const auto value = static_cast<unsigned char>(byte);
    return {digits[value >> 4U], digits[value & 0xFU]};
}

/// Appends the two digits of a byte.
template <class Text>
constexpr void appendHex(Text& text, char byte, std::string_view digits) {
    for (const char digit : hexDigits(byte, digits))
        text.push_back(digit);
}

/// The value of a hexadecimal digit in either case; absent for any other character.
[[nodiscard]] constexpr std::optional<std::uint8_t> hexValue(char digit) noexcept {
    if (isDigit(digit)) return static_cast<std::uint8_t>(digit - '0');
    const char letter = lowered(digit);
    if (letter < 'a' || letter > 'f') return std::nullopt;
    return static_cast<std::uint8_t>(letter - 'a' + 10);
}

}  // namespace KestrinInternal
