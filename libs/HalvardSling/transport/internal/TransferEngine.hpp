#pragma once

#include <chrono>
#include <optional>

#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/transport/TransferLog.hpp>
#include <HalvardSling/transport/Transport.hpp>
#include <HalvardSling/transport/internal/TransferQueue.hpp>

namespace HalvardSling::internal {

/// Carries out the transfers of a `TransferLoop`: what differs between two network libraries. All
/// functions but `wake` are called on the loop's thread.
class TransferEngine {
  public:
    TransferEngine() = default;
    TransferEngine(const TransferEngine&) = delete;
    TransferEngine& operator=(const TransferEngine&) = delete;
    virtual ~TransferEngine() = default;

    /// Begins a transfer that the engine does not have, without waiting for anything.
    /// @return why it cannot be sent, or absent
    /// @throws std::bad_alloc
    [[nodiscard]] virtual std::optional<SlingError> start(TransferID id,
                                                          const Transfer& transfer) = 0;

    /// Goes on with all transfers, without waiting for anything.
    virtual void perform() noexcept = 0;

    /// A transfer that has ended since it was started, each once.
    [[nodiscard]] virtual std::optional<TransferID> takeEnded() noexcept = 0;

    /// The outcome of a transfer that has ended. Called once.
    /// @throws std::bad_alloc
    [[nodiscard]] virtual TransportResult result(TransferID id) = 0;

    /// Fills in what a log may know of the request that was sent last.
    /// @param id  may be one that could not be started
    /// @throws std::bad_alloc
    virtual void describe(TransferID id, TransferLog& log) const = 0;

    /// Lets go of a transfer, and aborts it if it has not ended. May be one that the engine does
    /// not have.
    virtual void remove(TransferID id) noexcept = 0;

    /// Whether `perform` has more to do that `wait` would not notice.
    [[nodiscard]] virtual bool hasMore() noexcept = 0;

    /// Waits until `perform` has something to do, `wake` was called or the time is up.
    virtual void wait(std::chrono::milliseconds limit) noexcept = 0;

    /// Ends `wait`, the next one if there is none now. Any thread, also after `shutDown`.
    virtual void wake() const noexcept = 0;

    /// Frees everything but what `wake` needs. Called last, with no transfer left.
    virtual void shutDown() noexcept = 0;
};

}  // namespace HalvardSling::internal
