#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <HalvardSling/http/SlingError.hpp>

namespace KestrinHousehold {

/// How many requests may be repeats, for all calls of a household together. A repeat takes a whole
/// one from what is there and does not happen if there is less; a request that succeeds adds its
/// share. So repeats stop soon after the service has, and a household never sends more of them than
/// `atStart` and the share of what succeeded.
struct RetryBudget {
    double share = 0.1;  ///< what a request that succeeds adds; below 0 counts as 0
    double atStart = 1;  ///< what there is before the first request
    double atMost = 1;   ///< no more is saved than this
};

/// Which requests are sent again, how often and when. Plain data: what is not set is the default,
/// and docs/household.md says why it is so.
///
/// A repeat waits for a random time between 0 and a limit, which begins at `firstDelay` and doubles
/// with each repeat up to `longestDelay`, so that clients that failed together do not come back
/// together. What the reply says in Retry-After (RFC 9110, section 10.2.3; seconds or a date) is
/// waited for before that.
struct RetryPolicy {
    /// What a request can fail with on the way.
    using Error = HalvardSling::SlingErrorKind;

    /// How often a request is sent at most, the first time included; 1 or less: once.
    int maxAttempts = 4;
    /// The limit of the first wait.
    std::chrono::nanoseconds firstDelay = std::chrono::milliseconds(500);
    /// The limit of any wait.
    std::chrono::nanoseconds longestDelay = std::chrono::seconds(20);
    /// How long a call may take that has to repeat its request, from its subscription on. A repeat
    /// that could not begin before is not waited for, and one that runs then is cut off, with
    /// `SlingErrorKind::totalTimeout`. Each attempt has the time limits of its service besides.
    std::chrono::nanoseconds deadline = std::chrono::seconds(60);

    /// After these any request is repeated: nothing of it was sent.
    std::vector<Error> unsentErrors{Error::cannotConnect, Error::nameNotResolved,
                                    Error::connectTimeout};
    /// The methods whose requests may take effect twice without another result (RFC 9110, section
    /// 9.2.2), as far as the service keeps to it.
    std::vector<std::string> idempotentMethods{"GET", "HEAD", "OPTIONS", "PUT", "DELETE"};
    /// After these a request of an idempotent method is repeated.
    std::vector<Error> errors{Error::totalTimeout, Error::connectionLost};
    /// After a reply of one of these a request of an idempotent method is repeated.
    std::vector<int> statuses{429, 502, 503, 504};
    /// After a reply of one of these a request of any method is repeated. None by default: also a
    /// 429 may come from something before the service that has passed the request on.
    std::vector<int> refusals;

    RetryBudget budget;  ///< how many repeats the household can afford

    /// A policy under which nothing is repeated.
    [[nodiscard]] static RetryPolicy never() {
        RetryPolicy policy;
        policy.maxAttempts = 1;
        return policy;
    }
};

}  // namespace KestrinHousehold
