#pragma once

#include <algorithm>
#include <cstddef>
#include <limits>
#include <variant>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/json/JSONDictionary.hpp>

namespace HalvardSling::internal {

/// The body of a reply as JSON, which may take the memory that `RequestPolicy::maxBodyBytes`
/// allows.
[[nodiscard]] inline std::variant<JSONDictionary, JSONFailure> decodedBody(
    const Response& response) {
    constexpr std::size_t times = 4;
    constexpr std::size_t most = std::numeric_limits<std::size_t>::max() / times;
    JSONLimits limits;
    limits.maxMemory = times * std::min(response.policy().maxBodyBytes, most);
    return JSONDictionary::parse(response.sharedBody(), limits);
}

}  // namespace HalvardSling::internal
