#pragma once

#include <atomic>
#include <cstddef>
#include <memory>

#include <HalvardSling/transport/Transport.hpp>

namespace KestrinProfileCLI {

/// Hands every transfer on to another transport, and counts.
class CountingTransport final : public HalvardSling::Transport {
  public:
    explicit CountingTransport(std::shared_ptr<HalvardSling::Transport> inner)
        : inner_(std::move(inner)) {}

    HalvardSling::TransferID send(HalvardSling::CheckedRequest request,
                                  HalvardSling::TransportCompletion completion) override;
    void cancel(HalvardSling::TransferID transfer) noexcept override { inner_->cancel(transfer); }

    /// How many transfers were begun.
    [[nodiscard]] std::size_t sent() const noexcept { return counts_->sent; }

    /// How many were open at the same time at most. A transfer that is cancelled stays open.
    [[nodiscard]] std::size_t mostOpen() const noexcept { return counts_->mostOpen; }

  private:
    struct Counts {
        std::atomic<std::size_t> sent = 0;
        std::atomic<std::size_t> open = 0;
        std::atomic<std::size_t> mostOpen = 0;
    };

    std::shared_ptr<HalvardSling::Transport> inner_;
    // Shared: completions may come when this is gone.
    std::shared_ptr<Counts> counts_ = std::make_shared<Counts>();
};

}  // namespace KestrinProfileCLI
