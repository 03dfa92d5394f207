#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/http/TransportRequest.hpp>

namespace HalvardSling {

/// Scheme, host and port of a URL (RFC 6454): who is talked to. All three in lower case; the port
/// is the scheme's own where the URL names none.
struct Origin {
    std::string scheme;
    std::string host;
    std::string port;

    friend bool operator==(const Origin&, const Origin&) = default;

    /// E.g. "https://api.example.com:443".
    [[nodiscard]] std::string text() const;
};

/// The origin of an absolute http or https URL; absent where it cannot be parsed.
[[nodiscard]] std::optional<Origin> originOf(std::string_view url);

/// Whether a host's name or address is this machine's own: "localhost", 127.0.0.0/8, [::1].
[[nodiscard]] bool isLoopback(std::string_view host) noexcept;

/// The URL as a request line can carry it: bytes from 0x80 and the characters " < > { } | \ ^ and
/// backtick percent-encoded, everything else (an existing %41 too) as it is.
[[nodiscard]] std::string escapedForRequestLine(std::string url);

/// Scheme, host and port as a URL has them, e.g. "https://api.example.com"; empty for anything but
/// an absolute http or https URL.
[[nodiscard]] std::string_view writtenOriginOf(std::string_view url) noexcept;

/// What a request line asks the origin of a URL for (RFC 9112, section 3.2.1): the path, "/" where
/// there is none, and the query, escaped as `escapedForRequestLine` does. A fragment is not sent.
[[nodiscard]] std::string requestTargetOf(std::string_view url);

/// Why a URL may not be sent, or absent where it may. A URL may be sent when it parses, has the
/// scheme https or http, holds no control byte, blank or NUL, no user information, and no "." or
/// ".." path segment, however encoded.
[[nodiscard]] std::optional<SlingError> problemOfURL(std::string_view url);

/// Why a URL may not be sent that was made by filling a template's placeholders, or absent where it
/// may: it must have the template's origin, so that no value can send the request elsewhere.
/// @param url  one of which `problemOfURL` has nothing to say
[[nodiscard]] std::optional<SlingError> problemOfOrigin(std::string_view templateURL,
                                                        std::string_view url);

/// Why a request's headers may not be sent, or absent where they may: a name must be a token
/// (RFC 9110, section 5.6.2), a value holds only 0x20 to 0x7E and tab. The value is not shown.
[[nodiscard]] std::optional<SlingError> problemOfHeaders(const Headers& headers);

/// Everything that forbids sending a request: its URL, cleartext that is not allowed, its headers.
[[nodiscard]] std::optional<SlingError> problemOfRequest(const TransportRequest& request);

}  // namespace HalvardSling
