#pragma once

/// @file
/// Everything including the operators.

#include "operators/rx-concat.hpp"                // IWYU pragma: export
#include "operators/rx-concat_map.hpp"            // IWYU pragma: export
#include "operators/rx-filter.hpp"                // IWYU pragma: export
#include "operators/rx-finally.hpp"               // IWYU pragma: export
#include "operators/rx-flat_map.hpp"              // IWYU pragma: export
#include "operators/rx-map.hpp"                   // IWYU pragma: export
#include "operators/rx-merge.hpp"                 // IWYU pragma: export
#include "operators/rx-observe_on.hpp"            // IWYU pragma: export
#include "operators/rx-on_error_resume_next.hpp"  // IWYU pragma: export
#include "operators/rx-retry.hpp"                 // IWYU pragma: export
#include "operators/rx-take.hpp"                  // IWYU pragma: export
#include "operators/rx-tap.hpp"                   // IWYU pragma: export
#include "operators/rx-timeout.hpp"               // IWYU pragma: export
#include "operators/rx-zip.hpp"                   // IWYU pragma: export
#include "rx-lite.hpp"                            // IWYU pragma: export
