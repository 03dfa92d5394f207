#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <set>
#include <string>

#include <HalvardSling/http/URL.hpp>

namespace HalvardSling {

/// The hosts to which something may be sent in cleartext.
struct CleartextHosts {
    std::set<std::string, std::less<>> names;  ///< as in `Origin::host`
    bool loopback = false;                     ///< whether this machine itself is one

    /// Whether the origin's host is one of them.
    [[nodiscard]] bool contains(const Origin& origin) const {
        return names.contains(origin.host) || (loopback && origin.isLoopback());
    }
};

/// The limits of a request and what is allowed to it, with their defaults.
struct RequestPolicy {
    /// How long connecting (name lookup and TLS included) may take.
    std::chrono::milliseconds connectTimeout = std::chrono::seconds(10);
    /// How long everything from the start of the transfer to the last byte may take. Time spent
    /// waiting for a free place among the transfers in flight is included.
    std::chrono::milliseconds totalTimeout = std::chrono::seconds(30);
    /// How many redirects are followed; 0: none, a 3xx reply is the answer. Whatever the number,
    /// a redirect to another origin carries no header but Accept, Accept-Language, Content-Type,
    /// User-Agent and X-Request-ID.
    int maxRedirects = 0;
    /// Whether the URL may have the scheme "http".
    bool allowsCleartext = false;
    /// The hosts that cleartext is limited to if it is allowed, also after a redirect; null: any.
    std::shared_ptr<const CleartextHosts> cleartextHosts{};
    /// Cap of the reply's body, counted after content decoding. What is made of it as JSON may take
    /// four times this memory, the body included (see `JSONLimits::maxMemory`).
    std::size_t maxBodyBytes = std::size_t{16} * 1024 * 1024;
    /// Cap of the reply's headers.
    std::size_t maxHeaderBytes = std::size_t{64} * 1024;

    /// Whether a request may be sent there, as far as cleartext goes.
    [[nodiscard]] bool allows(const Origin& origin) const {
        return origin.scheme != "http" ||
               (allowsCleartext && (!cleartextHosts || cleartextHosts->contains(origin)));
    }

    friend bool operator==(const RequestPolicy&, const RequestPolicy&) = default;
};

}  // namespace HalvardSling
