#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <HalvardSling/transport/Transport.hpp>
#include <internal/Guarded.hpp>

namespace KestrinProfileCLI {

/// A request, and what came of it.
struct Exchange {
    HalvardSling::CheckedRequest request;
    std::optional<HalvardSling::TransportResult> result{};  ///< absent: it has not ended
    std::chrono::system_clock::time_point ended{};          ///< when that came, by our clock
};

/// All that was sent, in its order. May be used from any thread.
class Recording {
  public:
    /// @return its number, for `end`
    [[nodiscard]] std::size_t begin(HalvardSling::CheckedRequest request);
    void end(std::size_t number, const HalvardSling::TransportResult& result);
    [[nodiscard]] std::vector<Exchange> exchanges() const;

  private:
    mutable KestrinInternal::Guarded<std::vector<Exchange>> exchanges_;
};

/// Sends as another transport does, and keeps what went there and came back.
class RecordingTransport final : public HalvardSling::Transport {
  public:
    RecordingTransport(std::shared_ptr<Transport> sending, std::shared_ptr<Recording> recording)
        : sending_(std::move(sending)), recording_(std::move(recording)) {}

    HalvardSling::TransferID send(HalvardSling::CheckedRequest request,
                                  HalvardSling::TransportCompletion completion) override;
    void cancel(HalvardSling::TransferID transfer) noexcept override { sending_->cancel(transfer); }
    void abandon() noexcept override { sending_->abandon(); }

  private:
    std::shared_ptr<Transport> sending_;
    std::shared_ptr<Recording> recording_;
};

}  // namespace KestrinProfileCLI
