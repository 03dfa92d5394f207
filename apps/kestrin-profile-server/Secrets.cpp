#include <array>
#include <cstdint>
#include <stdexcept>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <kestrin-profile-server/Secrets.hpp>

namespace KestrinProfileServer {
namespace {

constexpr std::string_view base64Digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

}  // namespace

std::string randomBytes(std::size_t count) {
    std::string bytes(count, '\0');
    const int done =
        RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(count));
    if (done != 1) throw std::runtime_error("the computer gave no random bytes");
    return bytes;
}

std::string hexadecimal(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char each : bytes) {
        const auto byte = static_cast<unsigned char>(each);
        text.push_back(digits[byte >> 4]);
        text.push_back(digits[byte & 0xF]);
    }
    return text;
}

std::string base64URL(std::string_view bytes) {
    std::string text;
    std::uint32_t pending = 0;
    unsigned bits = 0;
    for (const char each : bytes) {
        pending = (pending << 8) | static_cast<unsigned char>(each);
        for (bits += 8; bits >= 6; bits -= 6) {
            text.push_back(base64Digits[(pending >> (bits - 6)) & 0x3F]);
        }
    }
    if (bits > 0) text.push_back(base64Digits[(pending << (6 - bits)) & 0x3F]);
    return text;
}

std::optional<std::string> bytesOfBase64URL(std::string_view text) {
    if (text.size() % 4 == 1) return std::nullopt;
    std::string bytes;
    std::uint32_t pending = 0;
    unsigned bits = 0;
    for (const char each : text) {
        const std::size_t digit = base64Digits.find(each);
        if (digit == std::string_view::npos) return std::nullopt;
        pending = (pending << 6) | static_cast<std::uint32_t>(digit);
        bits += 6;
        if (bits < 8) continue;
        bits -= 8;
        bytes.push_back(static_cast<char>((pending >> bits) & 0xFF));
    }
    return bytes;
}

std::string hmacSHA256(std::string_view key, std::string_view message) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    const auto* result = HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
                              reinterpret_cast<const unsigned char*>(message.data()),
                              message.size(), digest.data(), &length);
    if (result == nullptr) throw std::runtime_error("HMAC-SHA-256 failed");
    return std::string(reinterpret_cast<const char*>(digest.data()), length);
}

bool equalInConstantTime(std::string_view left, std::string_view right) {
    return left.size() == right.size() &&
           CRYPTO_memcmp(left.data(), right.data(), left.size()) == 0;
}

}  // namespace KestrinProfileServer
