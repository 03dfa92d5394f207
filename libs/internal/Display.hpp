#pragma once

#include <algorithm>
#include <array>
#include <string>

#include <internal/Hex.hpp>

// Text of others in a terminal or a log.

namespace KestrinInternal {

/// Whether a character is shown. A terminal obeys the others (the control characters, also those
/// beyond ASCII), ends a line at them, hides them, or turns the direction of writing.
[[nodiscard]] constexpr bool isShown(char32_t character) noexcept {
    struct Range {
        char32_t first;
        char32_t last;
    };
    constexpr std::array hidden{Range{0x00, 0x1F},     Range{0x7F, 0x9F},     Range{0x61C, 0x61C},
                                Range{0x200E, 0x200F}, Range{0x2028, 0x202E}, Range{0x2066, 0x2069},
                                Range{0xFEFF, 0xFEFF}};
    return std::ranges::none_of(hidden, [character](const Range& range) {
        return character >= range.first && character <= range.last;
    });
}

/// A character that is not shown as an escape of JSON: "\u202e".
[[nodiscard]] inline std::string escapeOf(char32_t character) {
    std::string escape = "\\u";
    appendHex(escape, static_cast<char>(character >> 8U & 0xFFU), lowerHexDigits);
    appendHex(escape, static_cast<char>(character & 0xFFU), lowerHexDigits);
    return escape;
}

}  // namespace KestrinInternal
