#pragma once

#include <string>
#include <string_view>

namespace KestrinProfile::internal {

/// Percent-encodes free text (a profile name, a search text) for a URL: each of the 22 characters
/// `!*'();:@&=+$,/?%#[]^\` and blank becomes a per cent sign and the two upper-case hexadecimal
/// digits of its byte (RFC 3986, section 2.1). Every other byte stays as it is, those of non-ASCII
/// letters, quotes and angle brackets included.
[[nodiscard]] std::string percentEncoded(std::string_view text);

}  // namespace KestrinProfile::internal
