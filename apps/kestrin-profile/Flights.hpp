#pragma once

#include <cstddef>
#include <exception>
#include <functional>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/rx/Observable.hpp>

#include "Interruption.hpp"

namespace KestrinProfileCLI {

/// What follows the end of a request.
enum class Next {
    more,   ///< others may begin
    again,  ///< this one begins anew
    stop,   ///< nothing begins any more; what is in flight goes on
};

/// Requests of which several are in flight at once.
struct Flights {
    using Request = HalvardSling::Observable<HalvardSling::Response>;

    std::size_t count = 0;   ///< how many there are
    std::size_t atOnce = 1;  ///< how many are in flight at most

    /// Makes a request; may throw, which is a failure of this one.
    std::function<Request(std::size_t index)> request;
    /// Told on the caller's thread of each that ended.
    /// @param error  null: it was answered
    std::function<Next(std::size_t index, const std::exception_ptr& error)> ended;
};

/// Sends the requests in their order and waits for their ends.
/// @return false where a signal came first; those in flight were aborted
[[nodiscard]] bool sendAll(Interruption& interruption, const Flights& flights);

}  // namespace KestrinProfileCLI
