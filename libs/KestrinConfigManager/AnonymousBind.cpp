#include <array>
#include <cstdint>
#include <string_view>
#include <variant>

#include <KestrinConfigManager/AnonymousBind.hpp>

namespace KestrinConfigManager {

using HalvardSling::JSONDictionary;

namespace {

constexpr std::uint8_t notInAlphabet = 64;

/// The value of each byte in base64url (RFC 4648, section 5).
constexpr std::array<std::uint8_t, 256> base64Values = [] {
    constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::array<std::uint8_t, 256> values{};
    values.fill(notInAlphabet);
    for (std::size_t at = 0; at < alphabet.size(); ++at)
        values[static_cast<unsigned char>(alphabet[at])] = static_cast<std::uint8_t>(at);
    return values;
}();

/// Decodes base64url without padding; absent where the text is not exactly that.
std::optional<std::string> base64urlDecoded(std::string_view text) {
    std::string result;
    result.reserve(text.size() / 4 * 3 + 2);
    std::uint32_t bits = 0;
    unsigned bitCount = 0;
    for (const char c : text) {
        const std::uint8_t value = base64Values[static_cast<unsigned char>(c)];
        if (value == notInAlphabet) return std::nullopt;
        bits = bits << 6 | value;
        bitCount += 6;
        if (bitCount < 8) continue;
        bitCount -= 8;
        result.push_back(static_cast<char>(bits >> bitCount & 0xFF));
        bits &= (1U << bitCount) - 1;
    }
    // A character too many, or bits that no byte holds.
    if (bitCount == 6 || bits != 0) return std::nullopt;
    return result;
}

/// The second of exactly three parts between dots.
std::optional<std::string_view> payloadPart(std::string_view token) {
    const std::size_t first = token.find('.');
    if (first == std::string_view::npos) return std::nullopt;
    const std::size_t second = token.find('.', first + 1);
    if (second == std::string_view::npos || token.find('.', second + 1) != std::string_view::npos)
        return std::nullopt;
    return token.substr(first + 1, second - first - 1);
}

/// The "exp" claim of a JSON Web Token, in seconds since 1970; absent where the text is no such
/// token or has no whole number there.
std::optional<std::int64_t> expiry(std::string_view token) {
    const auto part = payloadPart(token);
    if (!part) return std::nullopt;
    const auto payload = base64urlDecoded(*part);
    if (!payload) return std::nullopt;
    const auto claims = JSONDictionary::parse(std::string_view(*payload));
    const auto* const dictionary = std::get_if<JSONDictionary>(&claims);
    return dictionary != nullptr ? dictionary->integer("exp") : std::nullopt;
}

}  // namespace

std::optional<AnonymousBind> AnonymousBind::fromJSON(const JSONDictionary& dictionary) {
    const auto profileID = dictionary.text(Keys::profileID);
    const auto token = dictionary.text(Keys::token);
    if (!profileID || !token) return std::nullopt;
    return AnonymousBind(std::string(*profileID), std::string(*token));
}

std::optional<AnonymousBind> AnonymousBind::fromEncoded(const JSONDictionary& dictionary) {
    return fromJSON(dictionary);
}

JSONDictionary AnonymousBind::encode() const {
    JSONDictionary dictionary;
    dictionary.setText(Keys::profileID, profileID);
    dictionary.setText(Keys::token, token);
    return dictionary;
}

bool AnonymousBind::isValid(Clock::time_point now) const {
    if (profileID.empty() || token.empty()) return false;
    const auto expires = expiry(token);
    if (!expires) return true;
    // Whole seconds, rounded up, and the leeway taken from now: "exp" may be any 64-bit number, and
    // neither adding to it nor turning it into the clock's unit is safe.
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(now.time_since_epoch());
    return std::int64_t{(seconds - leeway).count()} <= *expires;
}

}  // namespace KestrinConfigManager
