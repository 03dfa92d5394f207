#pragma once

#include <string>
#include <string_view>
#include <variant>

#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/http/TransportRequest.hpp>

namespace HalvardSling::internal {

/// Whether a reply with this status asks for the request to be sent elsewhere.
[[nodiscard]] bool isRedirect(int status) noexcept;

/// The request that follows a redirect, with one redirect fewer to go, or why there is none.
/// @param request   what was sent
/// @param status    the reply's status; one of which `isRedirect` is true
/// @param location  the reply's header "Location"
[[nodiscard]] std::variant<CheckedRequest, SlingError> redirected(const CheckedRequest& request,
                                                                  int status,
                                                                  std::string_view location);

/// What a reference means to somebody who has it from a base URL (RFC 3986, section 5.2).
/// @param base  an absolute URL
[[nodiscard]] std::string resolvedReference(std::string_view base, std::string_view reference);

}  // namespace HalvardSling::internal
