#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace KestrinProfileCLI {

/// An option of a command, as its declaration says.
struct OptionEntry {
    std::vector<std::string> names;  ///< e.g. "-v" and "--verbose"
    std::string value;               ///< what its value is called, e.g. "FILE"; empty: a flag
    bool needsValue = false;         ///< whether it has a value in any case
    std::string description;         ///< with its default, if it has one
};

/// An argument of a command.
struct ArgumentEntry {
    std::string name;
    bool isRequired = false;
    bool isRepeated = false;
    std::string description;
};

/// A command, or the program itself.
struct CommandEntry {
    std::string name;  ///< e.g. "add"
    std::string path;  ///< e.g. "history add"; empty: the program
    std::string description;
    std::vector<ArgumentEntry> arguments;
    std::vector<OptionEntry> options;    ///< its own, without --help
    std::vector<CommandEntry> commands;  ///< those below it
};

/// The whole command line as data: what --help, completion and man page are made from. Commands
/// that are for scripts of our own, which have no group, are not in it.
[[nodiscard]] CommandEntry commandTree(const CLI::App& program);

/// The command that a command line chose, as far as it could be read.
/// @param tree  of the program
[[nodiscard]] const CommandEntry& chosenCommand(const CLI::App& program, const CommandEntry& tree);

/// A command and everything below it, in order.
[[nodiscard]] std::vector<const CommandEntry*> flattened(const CommandEntry& top);

}  // namespace KestrinProfileCLI
