#pragma once

#include "Interruption.hpp"

namespace KestrinProfileCLI {

/// Waits until a file can be read without a wait, or is at its end.
/// @throws CommandError where a signal came first
void awaitReadable(Interruption& interruption, int descriptor);

}  // namespace KestrinProfileCLI
