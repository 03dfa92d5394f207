#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Base64url without padding (RFC 4648, section 5), as JSON Web Tokens use it.

namespace KestrinInternal {

inline constexpr std::string_view base64URLAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

[[nodiscard]] inline std::string base64URLEncoded(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() * 4 + 2) / 3);
    std::uint32_t pending = 0;
    unsigned bits = 0;
    for (const char byte : bytes) {
        pending = pending << 8U | static_cast<unsigned char>(byte);
        for (bits += 8; bits >= 6; bits -= 6)
            text.push_back(base64URLAlphabet[pending >> (bits - 6) & 0x3FU]);
    }
    if (bits > 0) text.push_back(base64URLAlphabet[pending << (6 - bits) & 0x3FU]);
    return text;
}

/// The bytes of a text; absent if it is not exactly what the encoding of some bytes gives.
[[nodiscard]] inline std::optional<std::string> base64URLDecoded(std::string_view text) {
    static constexpr std::uint8_t invalid = 64;
    static constexpr std::array<std::uint8_t, 256> values = [] {
        std::array<std::uint8_t, 256> table{};
        table.fill(invalid);
        for (std::size_t at = 0; at < base64URLAlphabet.size(); ++at)
            table[static_cast<unsigned char>(base64URLAlphabet[at])] =
                static_cast<std::uint8_t>(at);
        return table;
    }();

    std::string bytes;
    bytes.reserve(text.size() / 4 * 3 + 2);
    std::uint32_t pending = 0;
    unsigned bits = 0;
    for (const char c : text) {
        const std::uint8_t value = values[static_cast<unsigned char>(c)];
        if (value == invalid) return std::nullopt;
        pending = pending << 6U | value;
        bits += 6;
        if (bits < 8) continue;
        bits -= 8;
        bytes.push_back(static_cast<char>(pending >> bits & 0xFFU));
        pending &= (1U << bits) - 1;
    }
    // A character too many, or bits that belong to no byte.
    if (bits == 6 || pending != 0) return std::nullopt;
    return bytes;
}

}  // namespace KestrinInternal
