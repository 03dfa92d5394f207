#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include <HalvardSling/Export.hpp>
#include <HalvardSling/http/SlingError.hpp>

namespace HalvardSling {

/// Scheme, host and port of a URL (RFC 6454): who is talked to. All three in lower case; the port
/// is the scheme's own if the URL names none.
struct HALVARD_SLING_EXPORT Origin {
    std::string scheme;  ///< "http" or "https"
    std::string host;    ///< a name or an address; IPv6 in brackets
    std::string port;    ///< decimal, e.g. "443"

    friend bool operator==(const Origin&, const Origin&) = default;

    /// E.g. "https://api.example.com:443".
    [[nodiscard]] std::string text() const;

    /// Whether the host is this machine itself: "localhost", 127.0.0.0/8 or [::1].
    [[nodiscard]] bool isLoopback() const;
};

/// An absolute http or https URL to which a request may be sent. An immutable value, taken apart
/// once.
///
/// It holds no control character and no blank, no user information, and no "." or ".." path
/// segment, however encoded. Its host is a name of letters, digits and "-._~", an IPv4 address of
/// four decimal numbers, or an IPv6 address in brackets. What RFC 3986 (section 3.2.2) allows
/// beyond that is refused, because parsers and resolvers disagree about it: percent-encoding and
/// "!$&'()*+,;=" in a name, a name that ends in a number ("127.1", "a.0x7f"), and addresses of
/// future versions. So are a zone of an IPv6 address and a name in other letters than ASCII.
class HALVARD_SLING_EXPORT URL {
  public:
    /// Takes a URL apart. What a request line cannot carry (bytes from 0x80 and the characters
    /// " < > { } | \ ^ and backtick) is percent-encoded, everything else (an existing %41 too)
    /// stays as it is.
    /// @return `SlingErrorKind::malformedURL` if no request may be sent to it; the error's text
    ///         shows neither path nor query
    [[nodiscard]] static std::variant<URL, SlingError> parse(std::string_view text);

    /// The whole URL.
    [[nodiscard]] const std::string& text() const noexcept { return text_; }

    /// Scheme, host and port.
    [[nodiscard]] const Origin& origin() const noexcept { return origin_; }

    /// What a request line asks the origin for (RFC 9112, section 3.2.1): the path, "/" if there is
    /// none, and the query. A fragment is not sent.
    [[nodiscard]] std::string requestTarget() const;

    /// Checks that the URL, which was made by filling a template's placeholders, has the origin
    /// that the template names: no value may send the request elsewhere.
    /// @return `SlingErrorKind::malformedURL` if it has another one, or if the template leaves its
    ///         scheme, host or port open; absent if all is well
    [[nodiscard]] std::optional<SlingError> validateOrigin(std::string_view urlTemplate) const;

  private:
    URL(std::string text, std::size_t targetBegin, Origin origin)
        : text_(std::move(text)), targetBegin_(targetBegin), origin_(std::move(origin)) {}

    std::string text_;
    std::size_t targetBegin_;  // behind the authority
    Origin origin_;
};

}  // namespace HalvardSling
