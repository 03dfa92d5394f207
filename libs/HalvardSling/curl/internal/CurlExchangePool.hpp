#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <HalvardSling/curl/internal/CurlConnections.hpp>
#include <HalvardSling/curl/internal/CurlExchange.hpp>

namespace HalvardSling::internal {

/// Exchanges that are done with a request and wait for the next one to their origin. Used on one
/// thread.
class CurlExchangePool {
  public:
    /// @param options  referred to
    /// @param sockets  referred to
    /// @param kept     how many wait at most; the one that waited longest goes first
    /// @param use      how often a handle of libcurl is used
    CurlExchangePool(const CurlTransport::Options& options, CurlSockets& sockets, std::size_t kept,
                     HandleUse use)
        : options_(options), sockets_(sockets), kept_(kept), use_(use) {}

    /// One for an origin, one that waits or a new one. It refers to this.
    [[nodiscard]] std::unique_ptr<CurlExchange> take(const Origin& origin);

    /// Takes one back that is done with a request.
    void keep(std::unique_ptr<CurlExchange> exchange) noexcept;

    void clear() noexcept { waiting_.clear(); }

    /// Whether one of them was handed to a new connection since the last call.
    [[nodiscard]] bool takeConnected() noexcept { return connections_.takeAdded(); }

  private:
    const CurlTransport::Options& options_;
    CurlSockets& sockets_;
    std::size_t kept_;
    HandleUse use_;
    CurlConnections connections_;
    std::vector<std::unique_ptr<CurlExchange>> waiting_;  // in the order they came
};

}  // namespace HalvardSling::internal
