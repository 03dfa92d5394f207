#pragma once

#include <functional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <KestrinHousehold/outbox/LaterSession.hpp>

#include "BatchItems.hpp"
#include "ExitCode.hpp"
#include "Session.hpp"

namespace KestrinProfileCLI {

/// Whether writes are kept, and how long it is tried to send them at once.
struct LaterOptions {
    std::string seconds;  ///< of --later; empty: it was not given
};

/// Adds --later to a command.
void addLater(CLI::App& command, LaterOptions& options);

/// Whether the command keeps its writes. In a dry run it does not.
[[nodiscard]] bool isLater(const Session& session, const LaterOptions& options);

/// Keeps a write for each item in the outbox, tries to send them for a short time, and prints what
/// became of them.
/// @param write  keeps one
/// @return the code of the first item that was not kept, or that the service has refused by then;
///         otherwise ok, sent or not
/// @throws CommandError if a signal came; what was kept by then stays
ExitCode keepLater(
    Session& session, const LaterOptions& options, const KestrinHousehold::ProfileSession& acting,
    const std::vector<BatchItem>& items,
    const std::function<KestrinHousehold::LaterSession::Kept(
        const KestrinHousehold::LaterSession& later, const std::string& item)>& write);

/// The same for a single write.
/// @param what  what it is about, for people
ExitCode keepLater(Session& session, const LaterOptions& options,
                   const KestrinHousehold::ProfileSession& acting, const std::string& what,
                   const std::function<KestrinHousehold::LaterSession::Kept(
                       const KestrinHousehold::LaterSession& later)>& write);

}  // namespace KestrinProfileCLI
