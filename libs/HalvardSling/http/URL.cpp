#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <memory>

#include <curl/curl.h>

#include <HalvardSling/http/URL.hpp>

namespace HalvardSling {

namespace {

struct CurlFree {
    void operator()(char* text) const noexcept { curl_free(text); }
};
struct CurlURLCleanup {
    void operator()(CURLU* url) const noexcept { curl_url_cleanup(url); }
};
using CurlURL = std::unique_ptr<CURLU, CurlURLCleanup>;

constexpr char lowered(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string loweredText(std::string text) {
    std::ranges::transform(text, text.begin(), lowered);
    return text;
}

bool startsWithIgnoringCase(std::string_view text, std::string_view start) noexcept {
    return Headers::sameName(text.substr(0, start.size()), start);
}

constexpr bool isControlOrBlank(char c) noexcept {
    return static_cast<unsigned char>(c) <= 0x20 || c == 0x7F;
}

/// Whether a predicate is true of any character. It looks at all of them, for without a way out in
/// the middle compilers take many at once.
template <class Predicate>
constexpr bool anyOf(std::string_view text, Predicate isSought) noexcept {
    unsigned char any = 0;  // a byte for a byte; with a bool they do not
    for (const char c : text)
        any |= static_cast<unsigned char>(isSought(c));
    return any != 0;
}

constexpr bool isLetter(char c) noexcept {
    return lowered(c) >= 'a' && lowered(c) <= 'z';
}

constexpr bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

constexpr bool isOneOf(char c, std::string_view characters) noexcept {
    return characters.find(c) != std::string_view::npos;
}

/// Of each byte whether the predicate is true.
class ByteTable {
  public:
    template <class Predicate>
    constexpr explicit ByteTable(Predicate isIn) {
        for (std::size_t byte = 0; byte < bytes_.size(); ++byte)
            bytes_[byte] = isIn(static_cast<char>(byte));
    }
    constexpr bool operator()(char c) const noexcept {
        return bytes_[static_cast<unsigned char>(c)];
    }

  private:
    std::array<bool, 256> bytes_{};
};

constexpr ByteTable isEscaped([](char c) {
    return static_cast<unsigned char>(c) >= 0x80 || isOneOf(c, R"("<>{}|\^`)");
});

constexpr ByteTable isTokenCharacter([](char c) {
    return isDigit(c) || isLetter(c) || isOneOf(c, "!#$%&'*+-.^_`|~");
});

/// Where the authority begins: behind "http://" or "https://". npos for any other beginning;
/// libcurl itself would also accept "https:/host" and "https:///host".
std::size_t authorityStart(std::string_view url) noexcept {
    for (const std::string_view scheme : {"http://", "https://"})
        if ((url.starts_with(scheme) || startsWithIgnoringCase(url, scheme)) &&
            !url.substr(scheme.size()).starts_with('/'))
            return scheme.size();
    return std::string_view::npos;
}

/// The text up to the first of these characters.
std::string_view upTo(std::string_view text, std::string_view ends) noexcept {
    for (const char end : ends)
        text = text.substr(0, text.find(end));
    return text;
}

/// The parts of a URL that begins with "http://" or "https://".
struct URLParts {
    bool isSecure;
    std::string_view beginning;  ///< scheme and authority, as they are written
    std::string_view authority;
    std::string_view path;
};

std::optional<URLParts> partsOf(std::string_view url) noexcept {
    const std::size_t start = authorityStart(url);
    if (start == std::string_view::npos) return std::nullopt;
    const auto authority = upTo(url.substr(start), "/?#");
    const std::size_t end = start + authority.size();
    return URLParts{.isSecure = start == std::string_view("https://").size(),
                    .beginning = url.substr(0, end),
                    .authority = authority,
                    .path = upTo(url.substr(end), "?#")};
}

std::string partOf(CURLU* url, CURLUPart part, unsigned flags = 0) {
    char* text = nullptr;
    if (curl_url_get(url, part, &text, flags) != CURLUE_OK) return {};
    const std::unique_ptr<char, CurlFree> owner(text);
    return text;
}

std::optional<std::uint8_t> hexDigit(char c) noexcept {
    if (isDigit(c)) return static_cast<std::uint8_t>(c - '0');
    if (lowered(c) >= 'a' && lowered(c) <= 'f')
        return static_cast<std::uint8_t>(lowered(c) - 'a' + 10);
    return std::nullopt;
}

/// The byte that "%XX" at this place stands for.
std::optional<char> encodedByte(std::string_view text, std::size_t at) noexcept {
    if (text[at] != '%' || at + 2 >= text.size()) return std::nullopt;
    const auto high = hexDigit(text[at + 1]);
    const auto low = hexDigit(text[at + 2]);
    if (!high || !low) return std::nullopt;
    return static_cast<char>(static_cast<unsigned char>(*high << 4U | *low));
}

std::string percentDecoded(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto byte = encodedByte(text, at);
        decoded += byte.value_or(text[at]);
        if (byte) at += 2;
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
    if (!anyOf(path, [](char c) { return c == '.' || c == '%'; })) return false;
    std::string decoded(path);
    for (int level = 0; level < maxLevels; ++level) {
        if (hasDotSegment(decoded)) return true;
        std::string next = percentDecoded(decoded);
        if (next.size() == decoded.size()) return false;
        decoded = std::move(next);
    }
    return true;
}

SlingError malformed(std::string_view url, std::string_view reason) {
    const auto origin = originOf(url);
    return {SlingErrorKind::malformedURL, (origin ? "the URL of a request to " + origin->text()
                                                  : std::string("a request's URL")) +
                                              ' ' + std::string(reason)};
}

bool isToken(std::string_view text) noexcept {
    return !text.empty() && std::ranges::all_of(text, isTokenCharacter);
}

bool isHeaderValue(std::string_view text) noexcept {
    return !anyOf(text, [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 || byte > 0x7E) && c != '\t';
    });
}

/// The four numbers of "127.0.0.1"; absent for anything else.
std::optional<std::array<int, 4>> dottedNumbers(std::string_view text) noexcept {
    std::array<int, 4> numbers{};
    const char* at = text.data();
    const char* const end = at + text.size();
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (i > 0) {
            if (at == end || *at != '.') return std::nullopt;
            ++at;
        }
        const auto read = std::from_chars(at, end, numbers[i]);
        if (read.ec != std::errc{} || numbers[i] < 0 || numbers[i] > 255) return std::nullopt;
        at = read.ptr;
    }
    return at == end ? std::optional(numbers) : std::nullopt;
}

/// Whether a host is a name of letters, digits, '-' and '.' that no parser could take for a number:
/// the last label begins with a letter.
bool isPlainName(std::string_view host) noexcept {
    const auto isPlain = [](char c) { return isLetter(c) || isDigit(c) || c == '-' || c == '.'; };
    const std::string_view last = host.substr(host.rfind('.') + 1);
    return !last.empty() && isLetter(last.front()) && std::ranges::all_of(host, isPlain);
}

/// Whether a host is an address in the one form that has no second reading; a zero at the front
/// would make a number octal.
bool isPlainAddress(std::string_view host) noexcept {
    const auto numbers = dottedNumbers(host);
    if (!numbers) return false;
    std::size_t size = numbers->size() - 1;
    for (const int number : *numbers)
        size += number > 99 ? 3 : number > 9 ? 2 : 1;
    return size == host.size();
}

bool isPlainPort(std::string_view port) noexcept {
    constexpr std::string_view last = "65535";
    return !port.empty() && port.front() != '0' && std::ranges::all_of(port, isDigit) &&
           (port.size() < last.size() || (port.size() == last.size() && port <= last));
}

/// Host and port of a URL.
struct Authority {
    std::string_view host;
    std::string_view port;
};

/// The authority of a URL that is written in the usual way, which needs no parser; absent for every
/// other one. A request's URL is looked at several times on its way.
std::optional<Authority> plainAuthority(const URLParts& url) noexcept {
    const std::size_t colon = url.authority.find(':');
    const std::string_view host = url.authority.substr(0, colon);
    if (!isPlainName(host) && !isPlainAddress(host)) return std::nullopt;
    if (colon == std::string_view::npos) return Authority{host, url.isSecure ? "443" : "80"};
    const std::string_view port = url.authority.substr(colon + 1);
    return isPlainPort(port) ? std::optional(Authority{host, port}) : std::nullopt;
}

Origin originOf(const URLParts& url, const Authority& authority) {
    return {.scheme = url.isSecure ? "https" : "http",
            .host = loweredText(std::string(authority.host)),
            .port = std::string(authority.port)};
}

std::optional<Origin> parsedOrigin(std::string_view url) {
    const CurlURL parsed(curl_url());
    if (curl_url_set(parsed.get(), CURLUPART_URL, escapedForRequestLine(std::string(url)).c_str(),
                     CURLU_PATH_AS_IS) != CURLUE_OK)
        return std::nullopt;
    Origin origin{.scheme = loweredText(partOf(parsed.get(), CURLUPART_SCHEME)),
                  .host = loweredText(partOf(parsed.get(), CURLUPART_HOST)),
                  .port = partOf(parsed.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT)};
    if (origin.host.empty() || origin.port.empty()) return std::nullopt;
    return origin;
}

}  // namespace

std::string Origin::text() const {
    return scheme + "://" + host + ':' + port;
}

std::optional<Origin> originOf(std::string_view url) {
    const auto parts = partsOf(url);
    if (!parts || anyOf(url, isControlOrBlank)) return std::nullopt;
    if (const auto plain = plainAuthority(*parts)) return originOf(*parts, *plain);
    return parsedOrigin(url);
}

bool isLoopback(std::string_view host) noexcept {
    if (Headers::sameName(host, "localhost") || host == "[::1]") return true;
    const auto numbers = dottedNumbers(host);
    return numbers && numbers->front() == 127;
}

std::string escapedForRequestLine(std::string url) {
    if (!anyOf(url, isEscaped)) return url;
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string escaped;
    escaped.reserve(url.size());
    for (const char c : url) {
        if (!isEscaped(c)) {
            escaped += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        escaped += '%';
        escaped += digits[byte >> 4U];
        escaped += digits[byte & 0xFU];
    }
    return escaped;
}

std::string_view writtenOriginOf(std::string_view url) noexcept {
    const auto parts = partsOf(url);
    return parts ? parts->beginning : std::string_view();
}

std::string requestTargetOf(std::string_view url) {
    std::string_view target = url.substr(writtenOriginOf(url).size());
    target = target.substr(0, target.find('#'));
    return escapedForRequestLine(target.starts_with('/') ? std::string(target)
                                                         : '/' + std::string(target));
}

std::optional<SlingError> problemOfURL(std::string_view url) {
    if (anyOf(url, isControlOrBlank)) return malformed(url, "holds a control character or a blank");
    const auto parts = partsOf(url);
    if (!parts) return malformed(url, "does not begin with https:// or http://");
    if (parts->authority.find('@') != std::string_view::npos)
        return malformed(url, "holds user information");
    if (!plainAuthority(*parts) && !parsedOrigin(url)) return malformed(url, "cannot be parsed");
    if (mayHideDotSegment(parts->path)) return malformed(url, "has a \".\" or \"..\" path segment");
    return std::nullopt;
}

std::optional<SlingError> problemOfOrigin(std::string_view templateURL, std::string_view url) {
    const auto fixed = partsOf(templateURL);
    const auto made = partsOf(url);
    if (fixed && made && fixed->beginning == made->beginning) return std::nullopt;
    const auto expected = originOf(templateURL);
    if (!expected) return malformed({}, "template does not name a fixed scheme, host and port");
    if (originOf(url) != expected)
        return malformed(templateURL,
                         "leads to another scheme, host or port once its placeholders are filled");
    return std::nullopt;
}

std::optional<SlingError> problemOfHeaders(const Headers& headers) {
    for (const auto& [name, value] : headers) {
        if (!isToken(name))
            return SlingError(SlingErrorKind::forbiddenHeader,
                              "a header's name holds a character that no name may hold");
        if (!isHeaderValue(value))
            return SlingError(SlingErrorKind::forbiddenHeader,
                              "the value of the header " + std::string(name) +
                                  " holds a character that no value may hold");
    }
    return std::nullopt;
}

std::optional<SlingError> problemOfRequest(const TransportRequest& request) {
    if (auto problem = problemOfURL(request.url)) return problem;
    if (!request.policy.allowsCleartext && startsWithIgnoringCase(request.url, "http:"))
        return malformed(request.url, "is not https, and cleartext is not allowed for it");
    if (!isToken(request.method))
        return SlingError(SlingErrorKind::forbiddenHeader,
                          "a request's method holds a character that no method may hold");
    return problemOfHeaders(request.headers);
}

}  // namespace HalvardSling
