#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace KestrinInternal {

/// What a text begins with.
struct UTF8Character {
    std::optional<char32_t> value;  ///< absent: the first byte begins no well-formed sequence
    std::size_t bytes = 1;          ///< how many bytes it takes
};

/// The first character of a text that is not empty. Overlong forms, surrogates and values above
/// U+10FFFF are malformed (RFC 3629).
[[nodiscard]] constexpr UTF8Character firstUTF8Character(std::string_view text) noexcept {
    constexpr std::array<char32_t, 4> smallest{0, 0x80, 0x800, 0x10000};
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80) return {first, 1};
    const std::size_t more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
    if (first < 0xC2 || first > 0xF4 || text.size() <= more) return {};
    char32_t value = first & (0x3FU >> more);
    for (std::size_t at = 1; at <= more; ++at) {
        const auto byte = static_cast<unsigned char>(text[at]);
        if ((byte & 0xC0U) != 0x80U) return {};
        value = value << 6U | (byte & 0x3FU);
    }
    const bool isSurrogate = value >= 0xD800 && value <= 0xDFFF;
    if (value < smallest[more] || value > 0x10FFFF || isSurrogate) return {};
    return {value, more + 1};
}

[[nodiscard]] constexpr bool isUTF8(std::string_view text) noexcept {
    while (!text.empty()) {
        const UTF8Character character = firstUTF8Character(text);
        if (!character.value) return false;
        text.remove_prefix(character.bytes);
    }
    return true;
}

/// @param character  a Unicode scalar value
inline void appendUTF8(std::string& text, char32_t character) {
    if (character < 0x80) return text.push_back(static_cast<char>(character));
    const unsigned more = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
    const unsigned lead = 0xF00U >> (more + 1) & 0xFFU;
    text.push_back(static_cast<char>(lead | character >> (6 * more)));
    for (unsigned left = more; left-- > 0;)
        text.push_back(static_cast<char>(0x80U | (character >> (6 * left) & 0x3FU)));
}

}  // namespace KestrinInternal
