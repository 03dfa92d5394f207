#pragma once

#include <HalvardSling/http/SlingError.hpp>

namespace HalvardSling::internal {

/// An error of the kind `outOfMemory`. Only the first call needs memory, and may throw
/// std::bad_alloc.
[[nodiscard]] inline const SlingError& outOfMemoryError() {
    static const SlingError error(SlingErrorKind::outOfMemory,
                                  "there is not enough memory for the request or its reply");
    return error;
}

}  // namespace HalvardSling::internal
