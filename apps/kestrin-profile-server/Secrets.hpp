#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace KestrinProfileServer {

/// `count` random bytes, good enough for keys.
std::string randomBytes(std::size_t count);

/// The lower-case hexadecimal form of bytes.
std::string hexadecimal(std::string_view bytes);

/// Base64url without padding, as JSON web tokens use it.
std::string base64URL(std::string_view bytes);

/// The bytes of base64url text; nothing when the text is malformed.
std::optional<std::string> bytesOfBase64URL(std::string_view text);

/// HMAC with SHA-256.
std::string hmacSHA256(std::string_view key, std::string_view message);

/// Compares in a time that depends on the lengths only, never on where the texts differ.
bool equalInConstantTime(std::string_view left, std::string_view right);

}  // namespace KestrinProfileServer
