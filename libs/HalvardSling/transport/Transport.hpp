#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <variant>

#include <HalvardSling/Export.hpp>
#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/http/TransportRequest.hpp>

namespace HalvardSling {

/// The outcome of a transfer: a reply of any status, or the reason why there is none.
using TransportResult = std::variant<Response, SlingError>;
/// Called once with the outcome of a transfer; see `Transport`.
using TransportCompletion = std::function<void(TransportResult)>;

/// Names a transfer of one transport. Never used twice.
using TransferID = std::uint64_t;

/// Sends requests. The default is `CurlTransport`; tests use `FakeTransport`.
///
/// Contract, for those who write one:
///  - `send` and `cancel` may be called from any thread at any time, also from inside a
///    completion. Neither blocks, and neither throws for anything that goes wrong with the
///    request: that arrives through the completion.
///  - The completion is called once, on a thread of the transport's choice; that may be the
///    caller's, before `send` has returned. No lock is held while it runs. It must not block, for
///    other transfers may wait behind it. It does not throw. A thread that belongs to the transport
///    says so with a `TransportThreadScope`.
///  - After `cancel` the completion is not begun any more; one that is running on another thread
///    runs to its end. `cancel` aborts the transfer promptly, at whatever stage it is, and does
///    not wait for it. Cancelling a transfer that has ended does nothing.
///  - The request goes out with its identifier, see `CheckedRequest::requestID`.
///  - A transport that is destroyed ends every open transfer with `SlingErrorKind::cancelled`. Only
///    the default transport, at the exit of the process, drops them without a word.
class HALVARD_SLING_EXPORT Transport {
  public:
    Transport() = default;
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;
    virtual ~Transport();

    /// Begins a transfer.
    /// @param request     what to send
    /// @param completion  called with the outcome, as described above
    /// @return the transfer's name for `cancel`
    virtual TransferID send(CheckedRequest request, TransportCompletion completion) = 0;

    /// Aborts a transfer, whose completion is not called then.
    virtual void cancel(TransferID transfer) noexcept = 0;

    /// Ends without a word, for the exit of a process: aborts what is open, begins no completion
    /// any more, neither of an open transfer nor of a later one, and waits for the one that is
    /// running, unless called from inside it. Does nothing unless a transport overrides it. Called
    /// once, of the default transport.
    virtual void abandon() noexcept;
};

/// Whether a transport delivers its events on the calling thread. A wait there for another request
/// never ends: its reply and its time limits come on the same thread. So a function that waits asks
/// this first, and refuses. Any thread.
[[nodiscard]] HALVARD_SLING_EXPORT bool isTransportThread() noexcept;

/// Makes the calling thread one of a transport's while this lives. A transport that calls
/// completions on a thread of its own creates one at the top of that thread.
class HALVARD_SLING_EXPORT TransportThreadScope {
  public:
    /// Marks the calling thread.
    TransportThreadScope() noexcept;
    TransportThreadScope(const TransportThreadScope&) = delete;
    TransportThreadScope& operator=(const TransportThreadScope&) = delete;
    /// Leaves the calling thread, the same one, as it was before.
    ~TransportThreadScope();

  private:
    bool former_;
};

/// The transport of every request for which no other is named: a `CurlTransport` that is made on
/// first use, unless `setDefaultTransport` came before. If the library was built without it
/// (`KESTRIN_TRANSPORT=none`), one that fails every request with `cannotConnect`. Any thread.
///
/// At the exit of the process, after the destructors of static objects made since the first use, it
/// drops its transfers and waits for the completion that runs: what that needs must be made before.
[[nodiscard]] HALVARD_SLING_EXPORT std::shared_ptr<Transport> defaultTransport();

/// Replaces the default transport for all requests subscribed to from now on; null makes a new
/// one on next use, as at the start. The former one goes on with its transfers if somebody else
/// still holds it; otherwise it is destroyed, and they end with `cancelled`. Any thread.
HALVARD_SLING_EXPORT void setDefaultTransport(std::shared_ptr<Transport> transport);

}  // namespace HalvardSling
