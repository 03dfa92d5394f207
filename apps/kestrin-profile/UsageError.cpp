#include "UsageError.hpp"

#include <string_view>
#include <vector>

#include <fmt/format.h>

#include <internal/Quoting.hpp>

namespace KestrinProfileCLI {

using KestrinInternal::inQuotes;
using KestrinInternal::listInQuotes;
using KestrinInternal::suggestion;

namespace {

using Texts = std::vector<std::string>;

std::string adviceFor(const CommandEntry& command) {
    return fmt::format("see how it is used: kestrin-profile {}{}--help", command.path,
                       command.path.empty() ? "" : " ");
}

Failure unknownOption(const CommandEntry& program, const CommandEntry& command,
                      const std::string& word) {
    Texts known{"--help"};
    for (const CommandEntry* const each : {&command, &program})
        for (const auto& option : each->options)
            known.insert(known.end(), option.names.begin(), option.names.end());
    const std::string name = word.substr(0, word.find('='));
    return {ExitCode::usage,
            fmt::format("unknown option {}{}", inQuotes(name), suggestion(name, known)),
            adviceFor(command)};
}

/// What was left over, with the first of it: the rest may be its values.
Failure unexpected(const CommandEntry& program, const CommandEntry& command, const Texts& words) {
    const std::string& first = words.front();
    if (first.size() > 1 && first.front() == '-') return unknownOption(program, command, first);
    if (!command.commands.empty()) return unknownCommand(command, first);
    return {ExitCode::usage, "too many arguments: " + listInQuotes(words), adviceFor(command)};
}

}  // namespace

Failure unknownCommand(const CommandEntry& group, const std::string& name) {
    Texts known;
    for (const auto& below : group.commands)
        known.push_back(below.name);
    return {ExitCode::usage,
            fmt::format("unknown command {}{}", inQuotes(name), suggestion(name, known)),
            adviceFor(group)};
}

Failure usageError(const CLI::App& app, const CLI::ParseError& error) {
    const CommandEntry program = commandTree(app);
    const CommandEntry& command = chosenCommand(app, program);
    // A word that was not understood is the reason why something else is missing.
    const bool isComplaint = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr ||
                             dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    const Texts words = app.remaining(true);
    if (isComplaint && !words.empty()) return unexpected(program, command, words);
    return {ExitCode::usage, error.what(), adviceFor(command)};
}

}  // namespace KestrinProfileCLI
