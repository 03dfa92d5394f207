#include "HelpPage.hpp"

#include <algorithm>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "CommandGuide.hpp"
#include "Text.hpp"

namespace KestrinProfileCLI {

namespace {

constexpr std::size_t pageColumns = 80;

/// A term, and what is said of it.
using Entry = std::pair<std::string, std::string>;
using Entries = std::vector<Entry>;

std::string termOf(const OptionEntry& option) {
    std::string term = joined(option.names, ", ");
    if (option.value.empty()) return term;
    return term + (option.needsValue ? " " + option.value : " [" + option.value + "]");
}

std::string termOf(const ArgumentEntry& argument) {
    const std::string name = argument.name + (argument.isRepeated ? "..." : "");
    return argument.isRequired ? name : "[" + name + "]";
}

Entries entriesOf(const std::vector<OptionEntry>& options) {
    Entries entries;
    for (const auto& option : options)
        entries.emplace_back(termOf(option), option.description);
    return entries;
}

Entries argumentsOf(const CommandEntry& command) {
    Entries entries;
    for (const auto& argument : command.arguments)
        entries.emplace_back(argument.name, argument.description);
    return entries;
}

Entries commandsOf(const CommandEntry& command) {
    Entries entries;
    for (const auto& below : command.commands)
        entries.emplace_back(below.name, below.description);
    return entries;
}

/// The options of the program that mean something to a command.
Entries globalsOf(const CommandEntry& program, const CommandEntry& command) {
    std::vector<OptionEntry> options;
    for (const auto& option : program.options)
        if (isOfUse(command.path, option.names.back())) options.push_back(option);
    auto entries = entriesOf(options);
    entries.emplace_back("-h, --help", "Print this help");
    return entries;
}

/// A heading, and its entries with their texts in a column.
std::string section(const std::string& title, const Entries& entries) {
    if (entries.empty()) return {};
    constexpr std::size_t widestTerm = 24;
    std::size_t columns = 0;
    for (const auto& [term, text] : entries)
        if (columnsOf(term) <= widestTerm) columns = std::max(columns, columnsOf(term));
    const std::size_t margin = 2 + columns + 2;
    std::string result = "\n" + title + ":\n";
    for (const auto& [term, text] : entries) {
        const bool isBeside = columnsOf(term) <= columns;
        if (!isBeside) result += "  " + term + "\n";
        std::string begin = isBeside ? "  " + padded(term, columns) + "  " : padded({}, margin);
        for (const auto& line : wrapped(text, pageColumns - margin)) {
            result += begin + line + "\n";
            begin = padded({}, margin);
        }
    }
    return result;
}

std::string usageOf(const CommandEntry& command) {
    std::string usage = "Usage: kestrin-profile";
    if (!command.path.empty()) usage += " " + command.path;
    usage += " [OPTIONS]";
    for (const auto& argument : command.arguments)
        usage += " " + termOf(argument);
    if (!command.commands.empty()) usage += " COMMAND";
    return usage + "\n";
}

std::string examplesOf(const CommandEntry& command) {
    std::string text = "\nExamples:\n";
    for (const auto example : examplesFor(command.path))
        text += fmt::format("  {}\n", example);
    return text;
}

}  // namespace

std::string helpPage(const CommandEntry& program, const CommandEntry& command) {
    const bool isProgram = command.path.empty();
    std::string page = joined(wrapped(command.description, pageColumns), "\n") + "\n\n";
    page += usageOf(command);
    page += section("Arguments", argumentsOf(command));
    page += section("Commands", commandsOf(command));
    if (!isProgram) page += section("Options", entriesOf(command.options));
    page += section(isProgram ? "Options" : "Global options", globalsOf(program, command));
    page += examplesOf(command);
    if (isProgram)
        page += "\nExit codes, files and environment variables: kestrin-profile man | man -l -\n";
    return page;
}

}  // namespace KestrinProfileCLI
