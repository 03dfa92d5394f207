#include <algorithm>
#include <cstdint>
#include <string_view>
#include <variant>

#include <HalvardSling/http/Headers.hpp>
#include <KestrinConfigManager/AnonymousBind.hpp>
#include <internal/ASCII.hpp>
#include <internal/Base64URL.hpp>

namespace KestrinConfigManager {

using HalvardSling::JSONDictionary;

namespace {

/// The second of exactly three parts between dots.
std::optional<std::string_view> payloadPart(std::string_view token) {
    const std::size_t first = token.find('.');
    if (first == std::string_view::npos) return std::nullopt;
    const std::size_t second = token.find('.', first + 1);
    if (second == std::string_view::npos || token.find('.', second + 1) != std::string_view::npos)
        return std::nullopt;
    return token.substr(first + 1, second - first - 1);
}

/// The "exp" claim of a JSON Web Token, in seconds since 1970; absent if the text is no such
/// token or has no whole number there.
std::optional<std::int64_t> expiry(std::string_view token) {
    const auto part = payloadPart(token);
    if (!part) return std::nullopt;
    const auto payload = KestrinInternal::base64URLDecoded(*part);
    if (!payload) return std::nullopt;
    const auto claims = JSONDictionary::parse(std::string_view(*payload));
    const auto* const dictionary = std::get_if<JSONDictionary>(&claims);
    return dictionary != nullptr ? dictionary->integer("exp") : std::nullopt;
}

/// Whether a header can carry a text and it arrives as it is: the blanks around a value are lost.
bool isSendable(std::string_view text) noexcept {
    return text.size() <= AnonymousBind::longestText && HalvardSling::Headers::isValidValue(text) &&
           text.size() == KestrinInternal::trimmed(text).size();
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

const char* AnonymousBind::unsendableText() const noexcept {
    if (!isSendable(profileID)) return Keys::profileID;
    return isSendable(token) ? nullptr : Keys::token;
}

std::optional<std::chrono::sys_seconds> AnonymousBind::validUntil() const {
    const auto expires = expiry(token);
    if (!expires) return std::nullopt;
    // "exp" may be any 64-bit number.
    using std::chrono::seconds;
    return std::chrono::sys_seconds(std::min(seconds(*expires), seconds::max() - leeway) + leeway);
}

bool AnonymousBind::isValid(Clock::time_point now) const {
    if (profileID.empty() || token.empty() || unsendableText() != nullptr) return false;
    const auto until = validUntil();
    // Whole seconds, rounded up: the clock's unit cannot hold every expiry.
    return !until || std::chrono::ceil<std::chrono::seconds>(now) <= *until;
}

}  // namespace KestrinConfigManager
