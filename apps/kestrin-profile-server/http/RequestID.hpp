#pragma once

#include <string>
#include <string_view>

#include <kestrin-profile-server/domain/Problem.hpp>

namespace KestrinProfileServer {

/// The header that names one sending of a request, in the request and in its reply.
constexpr std::string_view requestIDHeader = "X-Request-ID";

/// The id that the client has given its request, if it is one of at most 64 letters, digits,
/// points, hyphens and underscores; else a new one, of 32 hexadecimal digits like those of our
/// clients.
[[nodiscard]] std::string requestIDOf(const HeaderLines& headers);

}  // namespace KestrinProfileServer
