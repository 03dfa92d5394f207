#pragma once

#include <HalvardSling/http/SlingError.hpp>

namespace HalvardSling::internal {

/// An error of the kind `outOfMemory`. Only the first call needs memory, and may throw
/// std::bad_alloc.
[[nodiscard]] inline const SlingError& outOfMemoryError() {
    // Never destroyed: a transport's thread may still use it while the process ends.
    static const SlingError& error = *new SlingError(
        SlingErrorKind::outOfMemory, "there is not enough memory for the request or its reply");
    return error;
}

}  // namespace HalvardSling::internal
