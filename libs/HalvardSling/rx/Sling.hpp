#pragma once

#include <memory>
#include <variant>

#include <HalvardSling/Export.hpp>
#include <HalvardSling/rx/Observable.hpp>
#include <HalvardSling/transport/Transport.hpp>

namespace HalvardSling {

/// One request, ready to be sent any number of times. A value; copies are cheap.
class HALVARD_SLING_EXPORT Sling {
  public:
    /// A request to send. If it may not be sent (see `CheckedRequest::of`) it is a request that
    /// cannot be made.
    explicit Sling(TransportRequest request);

    /// A request that was checked before.
    explicit Sling(CheckedRequest request);

    /// A request that cannot be made; its response sequence fails with this error.
    explicit Sling(SlingError problem);

    /// What would be sent; null where the request cannot be made.
    [[nodiscard]] const TransportRequest* request() const noexcept;

    /// The response sequence. Cold: each subscription sends the request once, emits one `Response`
    /// with a status below 400 and completes, or fails with one `SlingError`. A request that cannot
    /// be made fails in the same way and sends nothing.
    ///
    /// Each subscription has an identifier of its own, which the service gets as "X-Request-ID"
    /// (unless the request has such a header) and errors name.
    ///
    /// Unsubscribing aborts the transfer. Events are delivered one after the other on the
    /// transport's thread, or, if the request cannot be made or sent or the transport answers at
    /// once, on the caller's before `subscribe` has returned. A subscriber must not block: it holds
    /// up every other transfer, and if it waits for another request it waits for ever, for that one
    /// and its time limits need the same thread. Start the other request and go on in its handler.
    ///
    /// What a subscriber's function for values throws goes to its function for errors. What that or
    /// the one for the completion throws, and an error for which there is no function, ends the
    /// program: `std::terminate` is called, and shows the text.
    ///
    /// @param transport  who sends; null: the default transport at the time of subscription. The
    ///                   observable keeps it, a subscription does not: where nobody else does, the
    ///                   transport is destroyed and the sequence fails with `cancelled`.
    [[nodiscard]] Observable<Response> responses(std::shared_ptr<Transport> transport = {}) const;

  private:
    std::variant<CheckedRequest, SlingError> content_;
};

}  // namespace HalvardSling
