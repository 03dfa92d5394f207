#pragma once

#include <chrono>
#include <exception>
#include <optional>
#include <string>

#include <HalvardSling/http/Headers.hpp>
#include <KestrinHousehold/outbox/OutboxEntry.hpp>

namespace KestrinHousehold::internal {

/// What an error of a request means for the entry that it was made for.
struct DeliveryFailure {
    enum class Kind {
        passing,    ///< it may be tried again later
        needsBind,  ///< it waits for a new bind
        refusal,    ///< it will never be taken
        absent,     ///< what was asked for is not there (404)
    };

    Kind kind = Kind::passing;
    OutboxRefusal refusal{};                           ///< what the service said; of any kind
    std::optional<std::chrono::seconds> retryAfter{};  ///< how long the service asks to wait
    HalvardSling::Headers headers{};                   ///< of the reply, if there was one
    std::string text{};                                ///< for people; no secrets
};

/// @param now  the device's clock
[[nodiscard]] DeliveryFailure deliveryFailure(const std::exception_ptr& error,
                                              Scheduler::WallTime now);

}  // namespace KestrinHousehold::internal
