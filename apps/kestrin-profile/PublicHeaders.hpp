#pragma once

#include <string_view>

namespace KestrinProfileCLI {

/// Whether a request header's value may be shown: of Accept, Content-Type, User-Agent and
/// PXRO-PROFILE-ID. Any other may hold a secret.
[[nodiscard]] bool isPublicHeader(std::string_view name);

}  // namespace KestrinProfileCLI
