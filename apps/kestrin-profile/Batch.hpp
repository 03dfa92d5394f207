#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "BatchItems.hpp"
#include "ConcurrentRequests.hpp"
#include "ExitCode.hpp"
#include "Session.hpp"

namespace KestrinProfileCLI {

/// The options of a command that does the same with many items.
struct BatchOptions {
    BatchItemSource items;
    std::size_t jobs = 4;   ///< --jobs: how many requests are in flight
    bool failFast = false;  ///< --fail-fast: no request is started after a failure
};

/// What is done with each item.
struct BatchWork {
    /// The request for an item; may throw, which is a failure of this item.
    std::function<ConcurrentRequests::Request(const std::string& item)> request;
    std::string done;   ///< what was done, e.g. "added"
    std::string where;  ///< where, e.g. "to the favourites"
    /// Whether an item was there to be removed; empty: nobody knows, or it is not removed.
    std::function<bool(const std::string& item)> wasThere{};
};

/// Adds the items and the options of a batch to a command.
void addBatch(CLI::App& command, BatchOptions& options, const std::string& item,
              const std::string& description);

/// Does the work with every item, several at once, and prints the result: how much was done, and
/// the failure of the first item that failed. Shows a progress bar on a terminal.
/// @param acting  who does it; the work is not begun if there is no bind
/// @return the code of that failure, or ok
/// @throws CommandError if a signal came, after the requests in flight were aborted
ExitCode runBatch(Session& session, const KestrinHousehold::ProfileSession& acting,
                  const BatchOptions& options, const std::vector<BatchItem>& items,
                  const BatchWork& work);

}  // namespace KestrinProfileCLI
