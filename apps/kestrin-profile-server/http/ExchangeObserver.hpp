#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <kestrin-profile-server/http/Exchange.hpp>

namespace KestrinProfileServer {

/// Is told of every request that was answered, or that a fault left unanswered. Used by all threads
/// at once.
class ExchangeObserver {
  public:
    ExchangeObserver() = default;
    virtual ~ExchangeObserver() = default;
    ExchangeObserver(const ExchangeObserver&) = delete;
    ExchangeObserver& operator=(const ExchangeObserver&) = delete;

    /// What is suspicious about a request.
    [[nodiscard]] virtual std::vector<Finding> findings(const Exchange& exchange,
                                                        std::string_view requestBody) = 0;

    /// Takes what is to be kept, before the first byte of the reply is sent.
    virtual void record(Exchange exchange, std::string_view requestBody,
                        std::string_view replyBody) = 0;
};

}  // namespace KestrinProfileServer
