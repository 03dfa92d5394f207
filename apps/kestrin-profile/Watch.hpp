#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "ExitCode.hpp"
#include "Session.hpp"

namespace KestrinProfileCLI {

/// Whether and how often something is shown again.
struct WatchOptions {
    CLI::Option* asked = nullptr;  ///< --watch
    std::string seconds;           ///< its value; may be empty
};

/// Adds --watch to a command.
void addWatch(CLI::App& command, WatchOptions& options);

/// The lines of what is shown, as they are at the time of the call.
using MakeLines = std::function<std::vector<std::string>()>;

/// Shows something once, or, with --watch, again and again until a signal comes: redrawn on a
/// terminal, anew after each change elsewhere and in JSON. While it watches, a service that does
/// not answer is noted and asked again; any other failure ends it.
/// @return interrupted after a signal, otherwise ok
ExitCode show(Session& session, const WatchOptions& options, const MakeLines& makeLines);

}  // namespace KestrinProfileCLI
