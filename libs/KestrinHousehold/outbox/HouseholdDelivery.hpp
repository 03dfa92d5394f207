#pragma once

#include <memory>

#include <KestrinHousehold/Export.hpp>
#include <KestrinHousehold/outbox/OutboxDelivery.hpp>
#include <KestrinHousehold/session/Household.hpp>

namespace KestrinHousehold {

/// Sends the writes of an outbox as a household's profiles, with their binds. Each is sent once:
/// the outbox repeats. After the end of the household every request fails with
/// `SlingErrorKind::cancelled`, and the entries wait for the next start. A write whose operation
/// changes no list is `OutboxError::Case::invalidWrite`; nothing is sent for it.
class KESTRIN_HOUSEHOLD_EXPORT HouseholdDelivery final : public OutboxDelivery {
  public:
    /// Sends as the profiles of this household, which may end before.
    explicit HouseholdDelivery(const Household& household);
    /// Leaves the household as it is.
    ~HouseholdDelivery() override;

    [[nodiscard]] HalvardSling::Observable<HalvardSling::Response> send(
        const OutboxWrite& write) override;
    [[nodiscard]] HalvardSling::Observable<HalvardSling::Response> lookUp(
        const OutboxWrite& write) override;

  private:
    std::shared_ptr<internal::HouseholdState> household_;
};

}  // namespace KestrinHousehold
