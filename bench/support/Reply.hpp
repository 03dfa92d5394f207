#pragma once

#include <string>
#include <utility>

#include <HalvardSling/http/Response.hpp>

namespace Bench {

/// A reply with status 200.
[[nodiscard]] inline HalvardSling::Response replyOf(std::string body) {
    HalvardSling::ResponseParts parts;
    parts.status = 200;
    parts.body = std::move(body);
    return HalvardSling::Response(std::move(parts));
}

}  // namespace Bench
