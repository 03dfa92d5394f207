#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace KestrinInternal {

/// The small letter of an ASCII capital; every other character as it is. Unlike `std::tolower` it
/// does not depend on the locale.
[[nodiscard]] constexpr char lowered(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

[[nodiscard]] inline std::string loweredText(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(), lowered);
    return result;
}

[[nodiscard]] constexpr bool equalsIgnoringCase(std::string_view left,
                                                std::string_view right) noexcept {
    return std::ranges::equal(left, right, {}, lowered, lowered);
}

[[nodiscard]] constexpr bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

[[nodiscard]] constexpr bool isLetter(char c) noexcept {
    return lowered(c) >= 'a' && lowered(c) <= 'z';
}

[[nodiscard]] constexpr bool isControlOrBlank(char c) noexcept {
    return static_cast<unsigned char>(c) <= 0x20 || c == 0x7F;
}

/// A text without the blanks around it.
[[nodiscard]] constexpr std::string_view trimmed(std::string_view text,
                                                 std::string_view blanks = " \t") noexcept {
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

/// Whether the value of a Content-Type is this media type, with or without parameters.
[[nodiscard]] constexpr bool isMediaType(std::string_view contentType,
                                         std::string_view type) noexcept {
    return equalsIgnoringCase(trimmed(contentType.substr(0, contentType.find(';'))), type);
}

}  // namespace KestrinInternal
