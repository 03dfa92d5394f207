#include <array>
#include <stdexcept>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <internal/Hex.hpp>
#include <kestrin-profile-server/domain/Secrets.hpp>

namespace KestrinProfileServer {

std::string randomBytes(std::size_t count) {
    std::string bytes(count, '\0');
    const int done =
        RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(count));
    if (done != 1) throw std::runtime_error("the computer gave no random bytes");
    return bytes;
}

std::string hexadecimal(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes)
        KestrinInternal::appendHex(text, byte, KestrinInternal::lowerHexDigits);
    return text;
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
