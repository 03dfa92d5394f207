#pragma once

#include <memory>
#include <optional>
#include <unordered_map>

#include <curl/curl.h>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <HalvardSling/curl/internal/CurlExchange.hpp>
#include <HalvardSling/curl/internal/CurlExchangePool.hpp>
#include <HalvardSling/curl/internal/CurlSockets.hpp>
#include <HalvardSling/transport/internal/TransferEngine.hpp>
#include <HalvardSling/transport/internal/WakePipe.hpp>
#include <HalvardSling/transport/internal/Watchdog.hpp>

namespace HalvardSling::internal {

/// Carries out transfers with libcurl's multi interface.
class CurlEngine final : public TransferEngine {
  public:
    /// @throws std::system_error, std::runtime_error, std::bad_alloc if the process has no file or
    ///         no memory left for it, or libcurl cannot be set up
    explicit CurlEngine(CurlTransport::Options options);

    [[nodiscard]] std::optional<SlingError> start(TransferID id, const Transfer& transfer) override;
    void perform() noexcept override;
    [[nodiscard]] std::optional<TransferID> takeEnded() noexcept override;
    [[nodiscard]] TransportResult result(TransferID id) override;
    void describe(TransferID id, TransferLog& log) const override;
    void remove(TransferID id) noexcept override;
    [[nodiscard]] bool hasMore() noexcept override;
    void wait(std::chrono::milliseconds limit) noexcept override;
    void wake() const noexcept override { wakePipe_.wake(); }
    void shutDown() noexcept override;

  private:
    struct MultiCleanup {
        void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
    };
    struct Running {
        std::unique_ptr<CurlExchange> exchange;
        bool isAdded = false;             ///< to the multi handle
        std::optional<CURLcode> ended{};  ///< libcurl's result
    };

    [[nodiscard]] CURLMcode add(Running& running) noexcept;
    [[nodiscard]] bool sendElsewhere(Running& running, CURLcode code) noexcept;
    void leave(Running& running) noexcept;
    void restartWaiting() noexcept;
    [[nodiscard]] std::optional<TransferID> firstWaiting(const Origin& origin) const noexcept;
    void restart(TransferID id) noexcept;

    const CurlTransport::Options options_;
    const WakePipe wakePipe_;
    CurlSockets sockets_;
    std::unique_ptr<CURLM, MultiCleanup> multi_;
    CurlExchangePool exchanges_;
    std::unordered_map<TransferID, Running> running_;
    std::optional<TransferID> stranded_{};  ///< one that libcurl did not take back
    bool leavesMore_ = false;  ///< whether a transfer left that did so, see `CurlExchange`
    Watchdog watchdog_{CurlSockets::interval, [this](bool isAtWork) { sockets_.look(isAtWork); }};
};

}  // namespace HalvardSling::internal
