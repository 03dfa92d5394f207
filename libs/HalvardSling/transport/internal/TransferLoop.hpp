#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <thread>

#include <HalvardSling/transport/TransferLog.hpp>
#include <HalvardSling/transport/Transport.hpp>
#include <HalvardSling/transport/internal/TransferEngine.hpp>
#include <HalvardSling/transport/internal/TransferQueue.hpp>
#include <internal/Guarded.hpp>
#include <internal/OwnProcess.hpp>

namespace HalvardSling::internal {

/// What transports with a thread of their own have in common: the thread, which starts with the
/// first transfer, the transfers that wait and those in flight, who may call a completion,
/// redirects and the log. It keeps the contract of `Transport`; an engine does the rest.
///
/// The thread and the transport share it: if the transport is destroyed from inside a completion,
/// the thread goes on for a moment without it.
///
/// A process that was forked from the thread's has the loop, but neither the thread nor what
/// another one was about to do with the loop's lock in its hand. There every transfer ends at once
/// with `cannotConnect`, and the rest is left as it is: the connections are the other process's.
///
/// Where memory is lacking on the thread, the transfer that needed it ends with `outOfMemory`; what
/// keeps the loop going needs none.
class TransferLoop : public std::enable_shared_from_this<TransferLoop> {
  public:
    /// @param maxInFlight  how many transfers the engine has at most; at least one
    TransferLoop(std::unique_ptr<TransferEngine> engine, std::size_t maxInFlight,
                 TransferLogHook log);

    /// See `Transport`.
    /// @throws std::bad_alloc, std::system_error if the thread cannot be started
    TransferID send(CheckedRequest request, TransportCompletion completion);
    void cancel(TransferID id) noexcept;

    enum class Ending {
        none,
        cancelling,  ///< open transfers end with `cancelled`
        silent       ///< no completion is begun any more
    };
    /// Ends the thread, and waits for it unless this is the thread.
    void end(Ending ending) noexcept;

  private:
    using Completions = std::map<TransferID, TransportCompletion>;

    /// What all threads see.
    struct Shared {
        TransferID last = 0;
        Completions completions;  ///< of all open transfers; who takes one out may call it
        TransferQueue sent;       ///< not yet seen by the thread
        Completions cancelled;    ///< likewise; empty ones
        Ending ending = Ending::none;
        bool asleep = false;  ///< the thread sleeps, or will without another look at these
        std::list<std::thread>
            thread;  ///< one at most; a list's entry can be handed on without memory
    };

    // Any thread.
    void notify(KestrinInternal::Guarded<Shared>::Lock shared) noexcept;
    [[nodiscard]] std::optional<TransportCompletion> claim(TransferID id) noexcept;

    // The thread.
    void run() noexcept;
    [[nodiscard]] bool takeInbox() noexcept;
    void expireWaiting() noexcept;
    void startWaiting() noexcept;
    [[nodiscard]] bool hasRoom() const noexcept { return inFlight_.size() < maxInFlight_; }
    [[nodiscard]] std::optional<SlingError> start(TransferID id, const Transfer& transfer) noexcept;
    void finishEnded() noexcept;
    [[nodiscard]] bool follow(TransferID id, Transfer& transfer, TransportResult& result);
    void drop(TransferID id) noexcept;
    void complete(TransferNode node, TransportResult result) noexcept;
    void log(TransferID id, const Transfer& transfer, const TransportResult& result) noexcept;
    [[nodiscard]] bool maySleep() noexcept;
    [[nodiscard]] std::chrono::milliseconds untilNextDeadline() const noexcept;
    void endOpenTransfers() noexcept;

    const std::unique_ptr<TransferEngine> engine_;
    const std::size_t maxInFlight_;
    const TransferLogHook log_;
    KestrinInternal::OwnProcess process_;  ///< the one of the first transfer

    KestrinInternal::Guarded<Shared> shared_;

    // The thread's own:
    TransferQueue waiting_;
    TransferMap inFlight_;
};

}  // namespace HalvardSling::internal
