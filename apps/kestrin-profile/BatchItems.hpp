#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <HalvardSling/json/JSONDictionary.hpp>

#include "ExitCode.hpp"
#include "Interruption.hpp"

namespace KestrinProfileCLI {

/// One of the things that a command works on.
struct BatchItem {
    std::string text;      ///< an identifier, a name, a text to search for
    std::string location;  ///< e.g. "ids.txt:3"; empty for an argument
};

/// Where the items of a command are named.
struct BatchItemSource {
    std::vector<std::string> arguments;
    std::string file;  ///< --from: one item a line; "-": standard input; empty: none
};

/// What a failure says, after the location of its item and the item itself.
[[nodiscard]] std::string textOf(const BatchItem& item, const Failure& failure);

/// The failure, with that for its message.
[[nodiscard]] Failure about(const BatchItem& item, Failure failure);

/// The same for programs.
[[nodiscard]] HalvardSling::JSONDictionary documentOf(const BatchItem& item,
                                                      const Failure& failure);

/// Adds the arguments and --from to a command.
/// @param item  what an item is called, e.g. "VIDEO_ID"
void addBatchItems(CLI::App& command, BatchItemSource& source, const std::string& item,
                   const std::string& description);

/// The items: the arguments, then the lines of the file without the blanks around them. Empty lines
/// and lines that begin with # are skipped.
/// @throws CommandError if there is no item, the file cannot be read, or a signal came
[[nodiscard]] std::vector<BatchItem> readBatchItems(const BatchItemSource& source,
                                                    Interruption& interruption);

}  // namespace KestrinProfileCLI
