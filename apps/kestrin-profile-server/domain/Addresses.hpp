#pragma once

#include <string>
#include <string_view>

namespace KestrinProfileServer {

// Hosts with or without a port, as URLs and the header Host have them: "localhost", "[::1]:8480".

/// The host of an authority, or of what begins with one, as a URL behind its scheme does.
[[nodiscard]] std::string hostIn(std::string_view authority);

/// The port of an authority.
/// @param usual  the port if it tells none
[[nodiscard]] std::string_view portIn(std::string_view authority, std::string_view usual);

/// Whether the host, an address of IPv6 with or without brackets, is this computer and no other.
[[nodiscard]] bool isLoopbackName(std::string_view host);

}  // namespace KestrinProfileServer
