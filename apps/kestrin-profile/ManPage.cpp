#include "ManPage.hpp"

#include <algorithm>
#include <cctype>

#include <fmt/format.h>

#include "CommandGuide.hpp"
#include "HelpSections.hpp"
#include "Text.hpp"

namespace KestrinProfileCLI {

namespace {

/// A text as roff shows it.
std::string escaped(std::string text) {
    text = replaced(replaced(std::move(text), "\\", "\\e"), "-", "\\-");
    return text.starts_with('.') || text.starts_with('\'') ? "\\&" + text : text;
}

std::string bold(const std::string& text) {
    return "\\fB" + escaped(text) + "\\fR";
}
std::string italic(const std::string& text) {
    return "\\fI" + escaped(text) + "\\fR";
}

std::string upper(std::string text) {
    std::ranges::transform(text, text.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

/// A term, and under it what is said of it.
std::string item(const std::string& term, const std::string& text) {
    return fmt::format(".TP\n{}\n{}\n", term, escaped(text));
}

std::string optionTerm(const OptionEntry& option) {
    std::string term;
    for (const auto& name : option.names)
        term += (term.empty() ? "" : ", ") + bold(name);
    if (option.value.empty()) return term;
    return term +
           (option.needsValue ? " " + italic(option.value) : " [" + italic(option.value) + "]");
}

std::string argumentTerm(const ArgumentEntry& argument) {
    const std::string name = italic(argument.name) + (argument.isRepeated ? "..." : "");
    return argument.isRequired ? name : "[" + name + "]";
}

std::string usageOf(const CommandEntry& command) {
    std::string usage = bold(command.path);
    for (const auto& argument : command.arguments)
        usage += " " + argumentTerm(argument);
    if (!command.options.empty()) usage += " [" + italic("options") + "]";
    return usage;
}

std::string optionsOf(const CommandEntry& command) {
    std::string text;
    for (const auto& option : command.options)
        text += item(optionTerm(option), option.description);
    return text;
}

/// A command that does something, under a heading of its own.
std::string commandText(const CommandEntry& command) {
    std::string text = ".SS " + usageOf(command) + "\n" + escaped(command.description) + ".\n";
    for (const auto& argument : command.arguments)
        text += item(italic(argument.name), argument.description);
    text += optionsOf(command) + ".PP\n.nf\n";
    for (const auto example : examplesFor(command.path))
        text += escaped(std::string(example)) + "\n";
    return text + ".fi\n";
}

std::string sectionText(const HelpSection& section) {
    std::string text = fmt::format(".SH {}\n", upper(section.title));
    for (const auto& [what, said] : section.entries)
        text += item(bold(what), said);
    return text;
}

std::string commandsOf(const CommandEntry& program) {
    std::string text = ".SH COMMANDS\n";
    for (const CommandEntry* const command : flattened(program))
        if (command->commands.empty()) text += commandText(*command);
    return text;
}

}  // namespace

std::string manPage(const CommandEntry& program, std::string_view version) {
    const std::string title = escaped(program.name);
    const std::string does = escaped(std::string(program.description));
    std::string page =
        fmt::format(".TH {} 1 \"\" \"{} {}\" \"User Commands\"\n", upper(title), title, version);
    page += fmt::format(".SH NAME\n{} \\- {}\n", title, does);
    page += fmt::format(".SH SYNOPSIS\n{} [{}] {}\n", bold(program.name), italic("options"),
                        italic("command"));
    page += ".SH OPTIONS\nThey may stand before or after the command.\n" + optionsOf(program);
    page += commandsOf(program);
    for (const auto& section : helpSections())
        page += sectionText(section);
    return page;
}

}  // namespace KestrinProfileCLI
