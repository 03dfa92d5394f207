#pragma once

#include <string>

#include "Interruption.hpp"

namespace KestrinProfileCLI {

/// Everything up to the end of a file, of 64 MiB at most. A signal ends the wait for a person who
/// types, or for a program at the other end of a pipe.
/// @param file    "-": standard input
/// @param advice  what to do if it cannot be read
/// @throws CommandError if it cannot be read, or a signal came
[[nodiscard]] std::string contentOf(const std::string& file, const char* advice,
                                    Interruption& interruption);

}  // namespace KestrinProfileCLI
