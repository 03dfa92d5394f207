#pragma once

#include <string_view>
#include <variant>

#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/transport/Transport.hpp>

namespace HalvardSling {

/// Whether a reply with this status asks for the request to be sent elsewhere.
[[nodiscard]] bool isRedirect(int status) noexcept;

/// The request that follows a redirect, with one redirect fewer to go, or why there is none.
/// @param request   what was sent
/// @param status    the reply's status; one of which `isRedirect` is true
/// @param location  the reply's header "Location"
[[nodiscard]] std::variant<TransportRequest, SlingError> redirected(const TransportRequest& request,
                                                                    int status,
                                                                    std::string_view location);

}  // namespace HalvardSling
