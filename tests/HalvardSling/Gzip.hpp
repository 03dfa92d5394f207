#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace TestSupport {

/// The fixed head of a gzip text (RFC 1952): deflate, no name, no time.
inline std::string gzipHead() {
    return {"\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03", 10};
}

inline std::string littleEndian(std::uint32_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i)
        text += static_cast<char>(value >> (8 * i) & 0xFFU);
    return text;
}

inline std::uint32_t crc32(std::string_view text) {
    std::uint32_t crc = 0xFFFFFFFFU;
    for (const char c : text) {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1U ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0);
    }
    return ~crc;
}

/// A text of less than 64 KiB as the last block of a deflate stream (RFC 1951), stored.
inline std::string storedBlock(std::string_view text) {
    const auto size = static_cast<std::uint32_t>(text.size());
    return '\x01' + littleEndian(size, 2) + littleEndian(~size, 2) + std::string(text);
}

/// Such a text as gzip.
inline std::string gzipped(std::string_view text) {
    return gzipHead() + storedBlock(text) + littleEndian(crc32(text), 4) +
           littleEndian(static_cast<std::uint32_t>(text.size()), 4);
}

/// Such a text as HTTP's "deflate": zlib's format (RFC 1950), with its checksum at the end.
inline std::string deflated(std::string_view text) {
    std::uint32_t a = 1;
    std::uint32_t b = 0;
    for (const char c : text) {
        a = (a + static_cast<unsigned char>(c)) % 65521;
        b = (b + a) % 65521;
    }
    const std::string checksum = littleEndian(b << 16U | a, 4);
    return "\x78\x01" + storedBlock(text) + std::string(checksum.rbegin(), checksum.rend());
}

/// The beginning of a gzip text that decodes to about 158 times its size: the letter "a" and then
/// "258 times what came before", again and again, in the fixed code of RFC 1951.
inline std::string gzipBomb(std::size_t decodedBytes) {
    std::string bomb = gzipHead();
    std::uint32_t bits = 0;
    int count = 0;
    const auto add = [&](std::uint32_t value, int size) {
        bits |= value << static_cast<unsigned>(count);
        for (count += size; count >= 8; count -= 8, bits >>= 8U)
            bomb += static_cast<char>(bits & 0xFFU);
    };
    add(0b011, 3);       // the last block, with the fixed code
    add(0b10001001, 8);  // "a"
    for (std::size_t decoded = 1; decoded < decodedBytes; decoded += 258) {
        add(0b10100011, 8);  // a length of 258
        add(0b00000, 5);     // a distance of 1
    }
    return bomb;
}

}  // namespace TestSupport
