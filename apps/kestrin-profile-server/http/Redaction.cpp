#include <algorithm>
#include <array>

#include <internal/ASCII.hpp>
#include <internal/Base64URL.hpp>
#include <kestrin-profile-server/http/Authorisation.hpp>
#include <kestrin-profile-server/http/Redaction.hpp>

namespace KestrinProfileServer {
namespace {

using KestrinInternal::equalsIgnoringCase;

constexpr std::array<std::string_view, 4> secretHeaders{secretHeader, "Cookie", "Set-Cookie",
                                                        "X-Api-Key"};
/// Headers whose first word names a scheme.
constexpr std::array<std::string_view, 2> schemeHeaders{"Authorization", "Proxy-Authorization"};
/// Members of bodies, in small letters and without what separates words.
constexpr std::array<std::string_view, 7> secretMembers{
    "token", "accesstoken", "refreshtoken", "idtoken", "secret", "password", "authorization"};
/// What the header of every JSON web token begins with: {" in Base64.
constexpr std::string_view tokenStart = "eyJ";

bool isOneOf(std::string_view name, const auto& names) {
    return std::ranges::any_of(
        names, [&](std::string_view each) { return equalsIgnoringCase(each, name); });
}

bool isSecretMember(std::string_view name) {
    std::string letters = KestrinInternal::loweredText(name);
    std::erase_if(letters, [](char each) { return each == '_' || each == '-'; });
    return isOneOf(letters, secretMembers);
}

/// The length of the JSON web token that a text begins with; 0 if it begins with none.
std::size_t tokenLength(std::string_view text) {
    if (!text.starts_with(tokenStart)) return 0;
    const std::size_t end = std::min(
        text.find_first_not_of(std::string(KestrinInternal::base64URLAlphabet) + "."), text.size());
    return text.substr(0, end).find('.') == std::string_view::npos ? 0 : end;
}

/// Where the text's string ends that begins at a quotation mark: behind the other one.
std::size_t endOfString(std::string_view text, std::size_t start) {
    for (std::size_t at = start + 1; at < text.size(); ++at) {
        if (text[at] == '\\')
            ++at;
        else if (text[at] == '"')
            return at + 1;
    }
    return text.size();
}

std::size_t skippedBlanks(std::string_view text, std::size_t at) {
    return std::min(text.find_first_not_of(" \t\r\n", at), text.size());
}

/// The text without the values of members that hold secrets.
std::string withoutSecretMembers(std::string_view text) {
    std::string result;
    std::size_t copied = 0;
    for (std::size_t at = text.find('"'); at < text.size(); at = text.find('"', at)) {
        const std::size_t end = endOfString(text, at);
        const std::string_view name = text.substr(at + 1, std::max(end, at + 2) - at - 2);
        at = end;
        const std::size_t colon = skippedBlanks(text, end);
        if (colon >= text.size() || text[colon] != ':' || !isSecretMember(name)) continue;
        const std::size_t value = skippedBlanks(text, colon + 1);
        if (value >= text.size() || text[value] != '"') continue;
        at = endOfString(text, value);
        result += text.substr(copied, value - copied);
        result.append("\"").append(redactionMark).append("\"");
        copied = at;
    }
    return result += text.substr(copied);
}

}  // namespace

std::string shownHeader(std::string_view name, std::string_view value) {
    if (isOneOf(name, secretHeaders)) return std::string(redactionMark);
    if (isOneOf(name, schemeHeaders)) {
        const std::size_t blank = value.find(' ');
        const bool hasScheme = blank != std::string_view::npos;
        return std::string(hasScheme ? value.substr(0, blank + 1) : "") +
               std::string(redactionMark);
    }
    return withoutTokens(value);
}

std::string withoutTokens(std::string_view text) {
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t start = std::min(text.find(tokenStart, at), text.size());
        result += text.substr(at, start - at);
        const std::size_t length = tokenLength(text.substr(start));
        result += length > 0 ? redactionMark : text.substr(start, tokenStart.size());
        at = start + std::max(length, tokenStart.size());
    }
    return result;
}

std::string withoutSecrets(std::string_view text) {
    return withoutTokens(withoutSecretMembers(text));
}

}  // namespace KestrinProfileServer
