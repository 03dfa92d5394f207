#include <chrono>

#include <KestrinHousehold/session/HouseholdLog.hpp>

namespace KestrinHousehold {

std::string HouseholdEvent::text() const {
    const std::string name(rawValue(operation));
    switch (kind) {
        case Kind::repeat: {
            const auto wait = std::chrono::ceil<std::chrono::milliseconds>(delay);
            return name + ": attempt " + std::to_string(attempt) + " of " +
                   std::to_string(maxAttempts) + " in " + std::to_string(wait.count()) +
                   " ms, after " + reason;
        }
        case Kind::givenUp:
            return name + ": not repeated after attempt " + std::to_string(attempt) + " of " +
                   std::to_string(maxAttempts) + ": " + reason;
        case Kind::bindRequested:
            return name + ": a bind is requested, as " + reason;
        case Kind::bindRenewed:
            return name + ": a new bind is requested, after " + reason;
        case Kind::sentOnceMore:
            break;
    }
    return name + ": sent once more under a newer bind, after " + reason;
}

}  // namespace KestrinHousehold
