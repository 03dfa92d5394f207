#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "Caller.hpp"
#include "ExitCode.hpp"
#include "Flights.hpp"
#include "Items.hpp"

namespace KestrinProfileCLI {

/// What a command that does the same with many items is told.
struct BatchOptions {
    ItemSource items;
    std::size_t jobs = 4;   ///< --jobs: how many requests are in flight
    bool failFast = false;  ///< --fail-fast: nothing is begun after a failure
};

/// What is done with each item.
struct BatchWork {
    using Bind = KestrinConfigManager::AnonymousBind;

    /// The request for an item; may throw, which is a failure of this item.
    std::function<Flights::Request(const Bind& bind, const std::string& item)> request;
    std::string done;   ///< what was done, e.g. "added"
    std::string where;  ///< where, e.g. "to the favourites"
};

/// Adds the items and the options of a batch to a command.
void addBatch(CLI::App& command, BatchOptions& options, const std::string& item,
              const std::string& description);

/// Does the work with every item for a caller, several at once, and prints what came of it: how
/// much was done, and the failure that stands first. Shows a bar on a terminal meanwhile.
/// @return the code of that failure, or ok
/// @throws CommandError where a signal came, after the requests in flight were aborted
ExitCode runBatch(Caller& caller, const BatchOptions& options, const std::vector<Item>& items,
                  const BatchWork& work);

}  // namespace KestrinProfileCLI
