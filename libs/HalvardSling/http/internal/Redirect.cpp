#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <curl/curl.h>

#include <HalvardSling/http/URL.hpp>
#include <HalvardSling/http/internal/Redirect.hpp>

namespace HalvardSling {

namespace {

SlingError refused(std::string_view from, std::string_view reason) {
    const auto origin = originOf(from);
    return {SlingErrorKind::redirect, "a redirect by " +
                                          (origin ? origin->text() : std::string("the service")) +
                                          ' ' + std::string(reason)};
}

/// A reference (RFC 3986, section 4.1) as an absolute URL; absent where it cannot be one.
std::optional<std::string> resolved(const std::string& base, std::string_view reference) {
    const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> url(curl_url(), &curl_url_cleanup);
    if (curl_url_set(url.get(), CURLUPART_URL, escapedForRequestLine(base).c_str(), 0) != CURLUE_OK)
        return std::nullopt;
    if (curl_url_set(url.get(), CURLUPART_URL,
                     escapedForRequestLine(std::string(reference)).c_str(), 0) != CURLUE_OK)
        return std::nullopt;
    char* text = nullptr;
    if (curl_url_get(url.get(), CURLUPART_URL, &text, 0) != CURLUE_OK) return std::nullopt;
    const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
    return text;
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
    static constexpr std::array<std::string_view, 4> allowed{"Accept", "Accept-Language",
                                                             "Content-Type", "User-Agent"};
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

std::variant<TransportRequest, SlingError> redirected(const TransportRequest& request, int status,
                                                      std::string_view location) {
    if (request.policy.maxRedirects <= 0) return refused(request.url, "is one more than allowed");
    const auto url = resolved(request.url, location);
    const auto from = originOf(request.url);
    const auto to = url ? originOf(*url) : std::nullopt;
    if (!from || !to || problemOfURL(*url))
        return refused(request.url, "leads to a URL that may not be sent");
    if (from->scheme == "https" && to->scheme != "https")
        return refused(request.url, "leads from https to cleartext");

    TransportRequest next = request;
    next.url = *url;
    next.policy.maxRedirects -= 1;
    if (turnsIntoGet(status, next.method)) turnIntoGet(next);
    if (from == to) return next;
    if (next.method != "GET" && next.method != "HEAD")
        return refused(request.url, "would repeat a change at another origin");
    next.headers = forAnotherOrigin(next.headers);
    next.body.reset();
    return next;
}

}  // namespace HalvardSling
