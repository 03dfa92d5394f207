#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <HalvardSling/http/URL.hpp>
#include <HalvardSling/http/internal/Redirect.hpp>

namespace HalvardSling::internal {

namespace {

/// The components of a URI or of a relative reference (RFC 3986, section 3), without what separates
/// them.
struct Components {
    std::optional<std::string_view> scheme;
    std::optional<std::string_view> authority;
    std::string_view path;
    std::optional<std::string_view> query;
    std::optional<std::string_view> fragment;
};

/// Cuts off what follows the first separator.
std::optional<std::string_view> cutBehind(std::string_view& text, char separator) {
    const std::size_t at = text.find(separator);
    if (at == std::string_view::npos) return std::nullopt;
    const auto behind = text.substr(at + 1);
    text = text.substr(0, at);
    return behind;
}

Components split(std::string_view text) {
    Components components;
    components.fragment = cutBehind(text, '#');
    components.query = cutBehind(text, '?');
    const std::size_t schemeEnd = text.find_first_of(":/");
    if (schemeEnd != std::string_view::npos && schemeEnd > 0 && text[schemeEnd] == ':') {
        components.scheme = text.substr(0, schemeEnd);
        text.remove_prefix(schemeEnd + 1);
    }
    if (text.starts_with("//")) {
        text.remove_prefix(2);
        const std::size_t end = std::min(text.find('/'), text.size());
        components.authority = text.substr(0, end);
        text.remove_prefix(end);
    }
    components.path = text;
    return components;
}

std::string joined(const Components& components) {
    std::string text;
    if (components.scheme) text.append(*components.scheme).append(":");
    if (components.authority) text.append("//").append(*components.authority);
    text.append(components.path);
    if (components.query) text.append("?").append(*components.query);
    if (components.fragment) text.append("#").append(*components.fragment);
    return text;
}

/// A path without its "." segments, and without its ".." segments and those that they take back
/// (section 5.2.4).
std::string withoutDotSegments(std::string_view path) {
    if (!path.starts_with('/')) return std::string(path);
    std::vector<std::string_view> kept;
    bool endsInSlash = false;
    std::optional<std::string_view> rest = path.substr(1);
    while (rest) {
        std::string_view segment = *rest;
        rest = cutBehind(segment, '/');
        endsInSlash = segment == "." || segment == "..";
        if (!endsInSlash)
            kept.push_back(segment);
        else if (segment == ".." && !kept.empty())
            kept.pop_back();
    }
    std::string result;
    for (const std::string_view segment : kept)
        result.append("/").append(segment);
    if (endsInSlash) result += '/';
    return result;
}

/// Section 5.2.3.
std::string merged(std::string_view basePath, std::string_view path) {
    const auto directory = basePath.substr(0, basePath.rfind('/') + 1);
    return (directory.empty() ? "/" : std::string(directory)) + std::string(path);
}

/// Services write blanks into a Location that no URL may hold.
std::string withoutBlanks(std::string_view location) {
    std::string result;
    for (const char c : location)
        c == ' ' ? result += "%20" : result += c;
    return result;
}

SlingError refused(const CheckedRequest& from, std::string_view reason) {
    return {SlingErrorKind::redirect,
            "a redirect by " + from.url().origin().text() + ' ' + std::string(reason)};
}

bool turnsIntoGet(int status, std::string_view method) noexcept {
    if (status == 303) return method != "HEAD";
    return (status == 301 || status == 302) && method == "POST";
}

void turnIntoGet(TransportRequest& request) {
    request.method = "GET";
    request.body.reset();
    request.headers.remove("Content-Type");
}

/// The headers that hold no secret of the service they were meant for.
Headers forAnotherOrigin(const Headers& headers) {
    static constexpr std::array<std::string_view, 5> allowed{
        "Accept", "Accept-Language", "Content-Type", "User-Agent", requestIDHeader};
    Headers kept;
    for (const auto& [name, value] : headers)
        if (std::ranges::any_of(allowed, [&](auto each) { return Headers::sameName(each, name); }))
            kept.add(name, value);
    return kept;
}

}  // namespace

bool isRedirect(int status) noexcept {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

std::string resolvedReference(std::string_view base, std::string_view reference) {
    const Components from = split(base);
    Components to = split(reference);
    std::string path(to.path);
    if (!to.scheme) {
        to.scheme = from.scheme;
        if (!to.authority) {
            to.authority = from.authority;
            if (path.empty()) {
                path = from.path;
                if (!to.query) to.query = from.query;
            } else if (!path.starts_with('/')) {
                path = merged(from.path, path);
            }
        }
    }
    path = withoutDotSegments(path);
    to.path = path;
    return joined(to);
}

std::variant<CheckedRequest, SlingError> redirected(const CheckedRequest& request, int status,
                                                    std::string_view location) {
    if (request->policy.maxRedirects <= 0) return refused(request, "is one more than allowed");
    const auto parsed =
        URL::parse(resolvedReference(request.url().text(), withoutBlanks(location)));
    const auto* const url = std::get_if<URL>(&parsed);
    if (url == nullptr) return refused(request, "leads to a URL that may not be sent");
    const Origin& from = request.url().origin();
    const Origin& to = url->origin();
    if (from.scheme == "https" && to.scheme != "https")
        return refused(request, "leads from https to cleartext");
    if (!request->policy.allows(to))
        return refused(request, "leads to a host for which cleartext is not allowed");

    TransportRequest next = *request;
    next.url = url->text();
    next.policy.maxRedirects -= 1;
    if (turnsIntoGet(status, next.method)) turnIntoGet(next);
    if (from != to) {
        if (next.method != "GET" && next.method != "HEAD")
            return refused(request, "would repeat a change at another origin");
        next.headers = forAnotherOrigin(next.headers);
        next.body.reset();
    }
    return CheckedRequest::of(std::move(next), request.id());
}

}  // namespace HalvardSling::internal
