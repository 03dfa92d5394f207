#pragma once

#include <string>
#include <string_view>

namespace KestrinProfileServer {

/// What stands for a token or a secret wherever requests are shown.
constexpr std::string_view redactionMark = "‹redacted›";

/// The value of a header as it may be shown: of credentials the scheme at most.
[[nodiscard]] std::string shownHeader(std::string_view name, std::string_view value);

/// A text without JSON web tokens.
[[nodiscard]] std::string withoutTokens(std::string_view text);

/// A text as it may be shown: without JSON web tokens, and without the values of JSON members that
/// hold tokens, secrets or passwords. The text may be cut or no JSON at all.
[[nodiscard]] std::string withoutSecrets(std::string_view text);

}  // namespace KestrinProfileServer
