#pragma once

#include <cstddef>
#include <exception>
#include <functional>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/rx/Observable.hpp>

#include "Interruption.hpp"

namespace KestrinProfileCLI {

/// What follows the end of a request.
enum class NextStep {
    proceed,  ///< the next request may start
    stop,     ///< no more requests start; those in flight go on
};

/// Requests, several of which are in flight at once.
struct ConcurrentRequests {
    using Request = HalvardSling::Observable<HalvardSling::Response>;

    std::size_t count = 0;          ///< how many there are
    std::size_t maxConcurrent = 1;  ///< how many are in flight at most

    /// Makes a request; may throw, which is a failure of this one.
    std::function<Request(std::size_t index)> request;
    /// Called on the caller's thread for each request that ended.
    /// @param error  null: it was answered
    std::function<NextStep(std::size_t index, const std::exception_ptr& error)> ended;
};

/// Sends the requests in their order and waits until all have ended.
/// @return false if a signal came first; those in flight were aborted
[[nodiscard]] bool sendAll(Interruption& interruption, const ConcurrentRequests& requests);

}  // namespace KestrinProfileCLI
