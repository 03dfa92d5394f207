#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <cstdint>
#include <netinet/in.h>
#include <system_error>

#include <HalvardSling/http/URL.hpp>
#include <internal/ASCII.hpp>
#include <internal/PercentEncoding.hpp>

namespace HalvardSling {

namespace {

using KestrinInternal::isControlOrBlank;
using KestrinInternal::isDigit;
using KestrinInternal::isLetter;
using KestrinInternal::loweredText;

constexpr bool isOneOf(char c, std::string_view characters) noexcept {
    return characters.find(c) != std::string_view::npos;
}

constexpr bool isEscaped(char c) noexcept {
    return static_cast<unsigned char>(c) >= 0x80 || isOneOf(c, R"("<>{}|\^`)");
}

std::string escaped(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        if (!isEscaped(c)) {
            result += c;
            continue;
        }
        result += '%';
        KestrinInternal::appendHex(result, c, KestrinInternal::upperHexDigits);
    }
    return result;
}

/// Four numbers from 0 to 255. inet_pton refuses a zero in front, which would make some take them
/// as octal.
bool isIPv4Address(std::string_view host) {
    in_addr address{};
    return !isOneOf('\0', host) && inet_pton(AF_INET, std::string(host).c_str(), &address) == 1;
}

/// An IPv6 address in the one form that it has in an origin; absent if the text is none.
std::optional<std::string> normalizedIPv6(const std::string& text) {
    in6_addr address{};
    std::array<char, INET6_ADDRSTRLEN> normalized{};
    if (inet_pton(AF_INET6, text.c_str(), &address) != 1) return std::nullopt;
    if (inet_ntop(AF_INET6, &address, normalized.data(), normalized.size()) == nullptr)
        return std::nullopt;
    return normalized.data();
}

/// Whether the last label is a number, so that a resolver may take the name for an address.
bool endsInNumber(std::string_view name) {
    if (name.ends_with('.')) name.remove_suffix(1);
    const std::string last = loweredText(name.substr(name.rfind('.') + 1));
    return last.starts_with("0x") || std::ranges::all_of(last, isDigit);
}

bool isHostName(std::string_view host) {
    const auto isPlain = [](char c) { return isLetter(c) || isDigit(c) || isOneOf(c, "-._~"); };
    return std::ranges::all_of(host, isPlain) && !endsInNumber(host);
}

std::optional<std::string> normalizedHost(std::string_view host) {
    if (isHostName(host)) return loweredText(host);
    if (isIPv4Address(host)) return std::string(host);
    if (!host.starts_with('[') || !host.ends_with(']')) return std::nullopt;
    const auto address = normalizedIPv6(std::string(host.substr(1, host.size() - 2)));
    if (!address) return std::nullopt;
    return '[' + *address + ']';
}

/// @param text  what stands behind the host: nothing, or a colon and perhaps a number
std::optional<std::string> normalizedPort(std::string_view text, std::string_view scheme) {
    if (text.empty() || text == ":") return scheme == "https" ? "443" : "80";
    std::uint16_t port = 0;
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data() + 1, end, port);
    if (text.front() != ':' || read.ec != std::errc{} || read.ptr != end) return std::nullopt;
    return std::to_string(port);
}

/// A URL in pieces, as they are written. `beginning` is scheme and authority.
struct Parts {
    std::string_view scheme;
    std::string_view authority;
    std::string_view beginning;
    std::string_view path;
};

/// Absent unless the text begins with "http://" or "https://" and an authority.
std::optional<Parts> split(std::string_view url) {
    const auto scheme = url.substr(0, url.find(':'));
    if (!KestrinInternal::equalsIgnoringCase(scheme, "http") &&
        !KestrinInternal::equalsIgnoringCase(scheme, "https"))
        return std::nullopt;
    if (!url.substr(scheme.size()).starts_with("://")) return std::nullopt;
    const std::size_t start = scheme.size() + std::string_view("://").size();
    const std::size_t end = std::min(url.find_first_of("/?#", start), url.size());
    if (start == end) return std::nullopt;
    const auto rest = url.substr(end);
    return Parts{.scheme = scheme,
                 .authority = url.substr(start, end - start),
                 .beginning = url.substr(0, end),
                 .path = rest.substr(0, rest.find_first_of("?#"))};
}

std::optional<Origin> originOf(const Parts& parts) {
    const std::string_view authority = parts.authority;
    const std::size_t hostEnd =
        std::min(authority.find(':', authority.starts_with('[') ? authority.find(']') : 0),
                 authority.size());
    std::string scheme = loweredText(parts.scheme);
    auto host = normalizedHost(authority.substr(0, hostEnd));
    auto port = normalizedPort(authority.substr(hostEnd), scheme);
    if (!host || !port) return std::nullopt;
    return Origin{std::move(scheme), *std::move(host), *std::move(port)};
}

std::string percentDecoded(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto byte = KestrinInternal::percentEscapedByte(text.substr(at));
        decoded += byte.value_or(text[at]);
        if (byte) at += KestrinInternal::percentEscapeSize - 1;
    }
    return decoded;
}

/// Whether a segment is "." or ".." for a server that cuts parameters, a query, or at a NUL.
bool isDotSegment(std::string_view segment) noexcept {
    using namespace std::string_view_literals;
    segment = segment.substr(0, segment.find_first_of(";?#\0"sv));
    return segment == "." || segment == "..";
}

bool hasDotSegment(std::string_view path) noexcept {
    while (true) {
        const std::size_t end = path.find_first_of("/\\");
        if (isDotSegment(path.substr(0, end))) return true;
        if (end == std::string_view::npos) return false;
        path.remove_prefix(end + 1);
    }
}

/// Whether a path has a dot segment, or would have one for somebody who decodes it, once or several
/// times. A path that is encoded more often than any honest one counts as hiding something.
bool mayHideDotSegment(std::string_view path) {
    constexpr int maxLevels = 16;
    if (path.find_first_of(".%") == std::string_view::npos) return false;
    std::string decoded(path);
    for (int level = 0; level < maxLevels; ++level) {
        if (hasDotSegment(decoded)) return true;
        std::string next = percentDecoded(decoded);
        if (next.size() == decoded.size()) return false;
        decoded = std::move(next);
    }
    return true;
}

SlingError malformed(std::string_view subject, std::string_view reason) {
    return {SlingErrorKind::malformedURL, std::string(subject) + ' ' + std::string(reason)};
}

}  // namespace

std::string Origin::text() const {
    return scheme + "://" + host + ':' + port;
}

bool Origin::isLoopback() const {
    return KestrinInternal::equalsIgnoringCase(host, "localhost") || host == "[::1]" ||
           (host.starts_with("127.") && isIPv4Address(host));
}

std::variant<URL, SlingError> URL::parse(std::string_view text) {
    constexpr std::string_view subject = "a request's URL";
    if (std::ranges::any_of(text, isControlOrBlank))
        return malformed(subject, "holds a control character or a blank");
    const auto parts = split(text);
    if (!parts) return malformed(subject, "does not begin with https:// or http:// and a host");
    if (isOneOf('@', parts->authority)) return malformed(subject, "holds user information");
    auto origin = originOf(*parts);
    if (!origin) return malformed(subject, "has a host or a port that cannot be used");
    if (mayHideDotSegment(parts->path))
        return malformed("the URL of a request to " + origin->text(),
                         "has a \".\" or \"..\" path segment");
    return URL(escaped(text), parts->beginning.size(), *std::move(origin));
}

std::string URL::requestTarget() const {
    const auto target = std::string_view(text_).substr(targetBegin_);
    std::string result(target.substr(0, target.find('#')));
    if (!result.starts_with('/')) result.insert(result.begin(), '/');
    return result;
}

std::optional<SlingError> URL::validateOrigin(std::string_view urlTemplate) const {
    const auto parts = split(urlTemplate);
    if (parts && parts->beginning == std::string_view(text_).substr(0, targetBegin_))
        return std::nullopt;
    const auto expected = parts ? originOf(*parts) : std::nullopt;
    if (!expected)
        return malformed("a request's URL template", "does not name a fixed scheme, host and port");
    if (*expected == origin_) return std::nullopt;
    return malformed("the URL of a request to " + expected->text(),
                     "leads to another scheme, host or port once its placeholders are filled");
}

}  // namespace HalvardSling
