#pragma once

#include <chrono>
#include <cstddef>

namespace HalvardSling {

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
    /// Cap of the reply's body, counted after content decoding. What is made of it as JSON may take
    /// four times this memory, the body included (see `JSONLimits::maxMemory`).
    std::size_t maxBodyBytes = std::size_t{16} * 1024 * 1024;
    /// Cap of the reply's headers.
    std::size_t maxHeaderBytes = std::size_t{64} * 1024;

    friend bool operator==(const RequestPolicy&, const RequestPolicy&) = default;
};

}  // namespace HalvardSling
