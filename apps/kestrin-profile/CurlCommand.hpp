#pragma once

#include <string>
#include <string_view>

#include <HalvardSling/transport/Transport.hpp>

namespace KestrinProfileCLI {

/// The token of a bind that stands for one that is not known: `curlCommand` shows it as a variable.
inline constexpr std::string_view unknownToken = "KESTRIN_TOKEN";

/// A text as one word of a POSIX shell's command line.
[[nodiscard]] std::string shellQuoted(std::string_view text);

/// Whether a request header's value may be shown: of Accept, Content-Type, User-Agent and
/// PXRO-PROFILE-ID. Any other may hold a secret.
[[nodiscard]] bool isPublicHeader(std::string_view name);

/// The command line of curl that sends the same request. It holds no secret: a header that is not
/// public (see `isPublicHeader`) has a variable for its value, "$KESTRIN_TOKEN" for the token,
/// "$KESTRIN_X_HOUSEHOLD_SECRET" for the header X-Household-Secret.
[[nodiscard]] std::string curlCommand(const HalvardSling::TransportRequest& request);

}  // namespace KestrinProfileCLI
