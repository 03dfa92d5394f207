#include "CommandTree.hpp"

#include <algorithm>
#include <utility>

namespace KestrinProfileCLI {

namespace {

std::vector<std::string> namesOf(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const auto& name : option.get_snames())
        names.push_back("-" + name);
    for (const auto& name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

std::string descriptionOf(const CLI::Option& option) {
    const std::string& usual = option.get_default_str();
    const std::string& variable = option.get_envname();
    return option.get_description() + (usual.empty() ? "" : " (default " + usual + ")") +
           (variable.empty() ? "" : "; $" + variable + " does the same");
}

OptionEntry entryOf(const CLI::Option& option) {
    const bool isFlag = option.get_items_expected_max() == 0;
    return {namesOf(option), isFlag ? std::string() : option.get_type_name(),
            !isFlag && option.get_items_expected_min() > 0, descriptionOf(option)};
}

ArgumentEntry argumentOf(const CLI::Option& option) {
    return {option.get_name(true), option.get_required(), option.get_items_expected_max() > 1,
            descriptionOf(option)};
}

CommandEntry entryOf(const CLI::App& app, std::string path) {
    CommandEntry entry{app.get_name(), std::move(path), app.get_description(), {}, {}, {}};
    for (const CLI::Option* const option : app.get_options()) {
        if (option == app.get_help_ptr()) continue;
        if (option->get_positional())
            entry.arguments.push_back(argumentOf(*option));
        else
            entry.options.push_back(entryOf(*option));
    }
    const std::string prefix = entry.path.empty() ? "" : entry.path + " ";
    const auto isForPeople = [](const CLI::App* below) { return !below->get_group().empty(); };
    for (const CLI::App* const below : app.get_subcommands(isForPeople))
        entry.commands.push_back(entryOf(*below, prefix + below->get_name()));
    return entry;
}

void append(std::vector<const CommandEntry*>& all, const CommandEntry& entry) {
    all.push_back(&entry);
    for (const auto& below : entry.commands)
        append(all, below);
}

}  // namespace

CommandEntry commandTree(const CLI::App& program) {
    return entryOf(program, {});
}

const CommandEntry& chosenCommand(const CLI::App& program, const CommandEntry& tree) {
    const CommandEntry* entry = &tree;
    for (const CLI::App* app = &program; !app->get_subcommands().empty();) {
        app = app->get_subcommands().front();
        const auto below = std::ranges::find(entry->commands, app->get_name(), &CommandEntry::name);
        if (below == entry->commands.end()) break;
        entry = &*below;
    }
    return *entry;
}

std::vector<const CommandEntry*> flattened(const CommandEntry& top) {
    std::vector<const CommandEntry*> all;
    append(all, top);
    return all;
}

}  // namespace KestrinProfileCLI
