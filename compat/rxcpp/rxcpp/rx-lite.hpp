#pragma once

/// @file
/// Everything except the operators, which have a header each below rxcpp/operators/.

#include "rx-observable.hpp"    // IWYU pragma: export
#include "rx-sources.hpp"       // IWYU pragma: export
#include "rx-subscriber.hpp"    // IWYU pragma: export
#include "rx-subscription.hpp"  // IWYU pragma: export
#include "rx-util.hpp"          // IWYU pragma: export
