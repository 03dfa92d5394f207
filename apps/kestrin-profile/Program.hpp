#pragma once

#include <string>
#include <vector>

#include "ExitCode.hpp"
#include "Session.hpp"

namespace KestrinProfileCLI {

/// Reads the command line and does what it says; prints what goes wrong.
/// @param session    its options are set by the command line
/// @param arguments  without the name of the program
ExitCode runProgram(Session& session, const std::vector<std::string>& arguments);

}  // namespace KestrinProfileCLI
