#pragma once

#include <exception>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinProfile/service/Error.hpp>

namespace KestrinHousehold::internal {

/// Whether a request was refused with status 403.
[[nodiscard]] inline bool isForbidden(const std::exception_ptr& error) {
    return KestrinProfile::visitError(
        error, [](const HalvardSling::SlingError& reply) { return reply.statusCode() == 403; },
        [](const std::exception&) { return false; });
}

}  // namespace KestrinHousehold::internal
