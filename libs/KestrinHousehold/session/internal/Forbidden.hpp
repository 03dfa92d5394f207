#pragma once

#include <exception>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinProfile/service/Error.hpp>

namespace KestrinHousehold::internal {

/// Whether a request got a reply with this status.
[[nodiscard]] inline bool hasStatus(const std::exception_ptr& error, int status) {
    return KestrinProfile::visitError(
        error,
        [status](const HalvardSling::SlingError& reply) { return reply.statusCode() == status; },
        [](const std::exception&) { return false; });
}

/// Whether a request was refused with status 403.
[[nodiscard]] inline bool isForbidden(const std::exception_ptr& error) {
    return hasStatus(error, 403);
}

}  // namespace KestrinHousehold::internal
