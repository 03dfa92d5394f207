#pragma once

#include <cstddef>

#include <HalvardSling/rx/Observable.hpp>

namespace KestrinHousehold::internal {

/// See `Household::warmUp`.
[[nodiscard]] HalvardSling::Observable<std::size_t> warmUp();

}  // namespace KestrinHousehold::internal
