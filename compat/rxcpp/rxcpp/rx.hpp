#pragma once

/// @file
/// Everything including the operators.

#include "operators/rx-map.hpp"  // IWYU pragma: export
#include "operators/rx-tap.hpp"  // IWYU pragma: export
#include "rx-lite.hpp"           // IWYU pragma: export
