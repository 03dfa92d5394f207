#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace KestrinProfileServer {

/// `count` random bytes, good enough for keys.
[[nodiscard]] std::string randomBytes(std::size_t count);

/// The lower-case hexadecimal form of bytes.
[[nodiscard]] std::string hexadecimal(std::string_view bytes);

/// HMAC with SHA-256.
[[nodiscard]] std::string hmacSHA256(std::string_view key, std::string_view message);

/// Compares in a time that depends on the lengths only, never on where the texts differ.
[[nodiscard]] bool equalInConstantTime(std::string_view left, std::string_view right);

}  // namespace KestrinProfileServer
