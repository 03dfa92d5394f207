#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "Interruption.hpp"

namespace KestrinProfileCLI {

/// One of the things that a command is to do something with.
struct Item {
    std::string text;   ///< an identifier, a name, a text to search for
    std::string place;  ///< where it stands, e.g. "ids.txt:3"; empty for an argument
};

/// Where the items of a command are named.
struct ItemSource {
    std::vector<std::string> arguments;
    std::string file;  ///< --from: one item a line; "-": standard input; empty: none
};

/// Adds the arguments and --from to a command.
/// @param item  what an item is called, e.g. "VIDEO_ID"
void addItems(CLI::App& command, ItemSource& source, const std::string& item,
              const std::string& description);

/// The items: the arguments, then the lines of the file, without the blanks around them. Empty
/// lines and those that begin with # are none.
/// @throws CommandError where there is no item, or the file cannot be read, or a signal came
[[nodiscard]] std::vector<Item> itemsOf(const ItemSource& source, Interruption& interruption);

}  // namespace KestrinProfileCLI
