#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include <HalvardSling/curl/internal/CurlExchangePool.hpp>
#include <HalvardSling/curl/internal/CurlHandle.hpp>

namespace HalvardSling::internal {

std::unique_ptr<CurlExchange> CurlExchangePool::take(const Origin& origin) {
    const auto found =
        std::ranges::find_if(waiting_.rbegin(), waiting_.rend(),
                             [&origin](const auto& each) { return each->origin() == origin; });
    if (found == waiting_.rend())
        return std::make_unique<CurlExchange>(CurlHandle(origin, options_, sockets_),
                                              options_.userAgent, connections_);
    auto exchange = std::move(*found);
    waiting_.erase(std::next(found).base());
    return exchange;
}

void CurlExchangePool::keep(std::unique_ptr<CurlExchange> exchange) noexcept {
    if (waiting_.size() >= kept_) waiting_.erase(waiting_.begin());
    exchange->clear(use_);
    try {
        waiting_.push_back(std::move(exchange));
    } catch (const std::bad_alloc&) {
        exchange.reset();  // The next request gets a new one.
    }
}

}  // namespace HalvardSling::internal
