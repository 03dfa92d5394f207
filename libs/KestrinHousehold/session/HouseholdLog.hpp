#pragma once

#include <chrono>
#include <functional>
#include <string>

#include <KestrinHousehold/Export.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>

namespace KestrinHousehold {

/// What a log may know of what a household does beside sending a request once. It holds no token,
/// no identifier and nothing else of what a request or a reply carries.
struct KESTRIN_HOUSEHOLD_EXPORT HouseholdEvent {
    /// What happened.
    enum class Kind {
        repeat,         ///< the request failed and is sent again after `delay`
        givenUp,        ///< the request failed and is not repeated, though it might have been
        bindRequested,  ///< a bind is asked for, for all calls that wait for it
        bindRenewed,    ///< the same, because the service has refused the one that was held
        sentOnceMore,   ///< a refused request is sent once more, under a newer bind
    };

    Kind kind = Kind::repeat;  ///< what happened
    /// What is repeated, or waits.
    KestrinProfile::ProfileOperation operation = KestrinProfile::ProfileOperation::testOperation;
    int attempt = 0;      ///< `repeat`: the number of the one that comes; `givenUp`: of the last
    int maxAttempts = 0;  ///< how many there may be
    std::chrono::nanoseconds delay{0};  ///< `repeat`: until the attempt begins
    /// What was the matter, e.g. "503" or "connectionLost"; `givenUp`: and why it is left at that,
    /// e.g. "503, and the budget for repeats is used up".
    std::string reason;

    /// One line, e.g. "personalization-history-get: attempt 2 of 4 in 312 ms, after 503".
    [[nodiscard]] std::string text() const;
};

/// Receives the events of a household, on the thread on which they happen, with no lock held. It
/// must neither block nor throw.
using HouseholdLogHook = std::function<void(const HouseholdEvent&)>;

}  // namespace KestrinHousehold
