#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include <HalvardSling/testing/FakeTransport.hpp>
#include <KestrinHousehold/outbox/HouseholdDelivery.hpp>
#include <KestrinHousehold/outbox/Outbox.hpp>
#include <KestrinHousehold/outbox/SQLiteOutboxStore.hpp>
#include <KestrinHousehold/session/Household.hpp>
#include <KestrinHousehold/testing/FakeScheduler.hpp>
#include <KestrinProfile/service/Error.hpp>

/// Nothing is configured, so a call says so; and an outbox keeps nothing in a folder that is not
/// there.
int main() {
    HalvardSling::setDefaultTransport(std::make_shared<HalvardSling::FakeTransport>());
    KestrinHousehold::HouseholdOptions options;
    options.scheduler = std::make_shared<KestrinHousehold::FakeScheduler>();
    const KestrinHousehold::Household household(options);
    auto shown = KestrinProfile::ErrorNotice::nothing;
    household.session("parent").history().subscribe(
        [](const auto&) {},
        [&](const std::exception_ptr& error) { shown = KestrinProfile::whatToShow(error); }, [] {});

    const KestrinHousehold::Outbox outbox(
        std::make_shared<KestrinHousehold::SQLiteOutboxStore>("nowhere/outbox"),
        std::make_shared<KestrinHousehold::HouseholdDelivery>(household));
    std::printf("%s, %zu entries\n", std::string(name(shown)).c_str(), outbox.entries().size());
    return shown == KestrinProfile::ErrorNotice::broken && outbox.entries().empty() ? 0 : 1;
}
