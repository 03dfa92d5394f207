#pragma once

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/rx/Observable.hpp>
#include <KestrinHousehold/Export.hpp>
#include <KestrinHousehold/outbox/OutboxWrite.hpp>

namespace KestrinHousehold {

/// How an outbox reaches the service. `Household` has one; an application may bring its own.
///
/// Members are called from any thread, also the transport's, and must not block. What they throw
/// counts as the observable's error.
class KESTRIN_HOUSEHOLD_EXPORT OutboxDelivery {
  public:
    OutboxDelivery() = default;
    OutboxDelivery(const OutboxDelivery&) = delete;
    OutboxDelivery& operator=(const OutboxDelivery&) = delete;
    virtual ~OutboxDelivery();

    /// Sends a write under its profile; emits the reply. Its errors are those of `Profile`.
    [[nodiscard]] virtual HalvardSling::Observable<HalvardSling::Response> send(
        const OutboxWrite& write) = 0;

    /// Asks for what the service has of the write's item, or of the whole list if it has none or
    /// several; emits the reply, whose body is that of `UserProfile`. Never called for searches,
    /// which the service does not return.
    [[nodiscard]] virtual HalvardSling::Observable<HalvardSling::Response> lookUp(
        const OutboxWrite& write) = 0;
};

}  // namespace KestrinHousehold
