#pragma once

#include <optional>
#include <string>
#include <vector>

#include <HalvardSling/http/Response.hpp>
#include <KestrinHousehold/outbox/OutboxWrite.hpp>
#include <KestrinHousehold/time/Scheduler.hpp>
#include <KestrinProfile/model/UserProfile.hpp>

namespace KestrinHousehold::internal {

/// What to do with a late entry after a look at what the service has.
struct Comparison {
    enum class Verdict {
        send,          ///< `writes` are sent, one after the other
        alreadyThere,  ///< the service has this state already
        stale,         ///< the service has something newer
    };

    Verdict verdict = Verdict::send;
    std::vector<OutboxWrite> writes{};
};

/// Whether a write has to be compared before it is sent late: searches cannot be.
[[nodiscard]] bool isComparable(const OutboxWrite& write);

/// Compares a late write with what the service has.
/// @param write  what was to be changed
/// @param time   when, by the service's clock
/// @param list   what the service has of it
[[nodiscard]] Comparison compare(const OutboxWrite& write, Scheduler::WallTime time,
                                 const KestrinProfile::UserProfile& list);

/// The list in a reply; absent if there is none.
[[nodiscard]] std::optional<KestrinProfile::UserProfile> listIn(
    const HalvardSling::Response& reply);

}  // namespace KestrinHousehold::internal
