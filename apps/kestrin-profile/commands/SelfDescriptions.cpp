#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include <KestrinConfigManager/ConfigurationManager.hpp>

#include "../CommandTree.hpp"
#include "../Completion.hpp"
#include "../Format.hpp"
#include "../HelpPage.hpp"
#include "../ManPage.hpp"
#include "../UsageError.hpp"
#include "Commands.hpp"

namespace KestrinProfileCLI {

namespace {

struct Shell {
    const char* name;
    const char* description;
    std::string (*script)(const CommandEntry&);
};

constexpr std::array shells{
    Shell{"bash", "For bash: source <(kestrin-profile completion bash)", &bashCompletion},
    Shell{"zsh", "For zsh: source <(kestrin-profile completion zsh)", &zshCompletion},
    Shell{"fish", "For fish: kestrin-profile completion fish | source", &fishCompletion},
};

ExitCode print(const Session& session, const std::string& text) {
    session.terminal.verbatim(text);
    return ExitCode::ok;
}

using Seconds = std::chrono::duration<double>;

/// How long a person who completes a word is made to wait.
Seconds completionTime() {
    constexpr Seconds usual{1};
    constexpr Seconds longest{3600};
    const char* const text = std::getenv("KESTRIN_PROFILE_COMPLETION_SECONDS");
    if (text == nullptr) return usual;
    return secondsOf(text, Seconds(0), longest).value_or(usual);
}

void printProfileNames(Session& session, Seconds time) {
    session.options.repeats = Repeats::never;
    session.configure();
    const auto acting =
        session.profile(KestrinConfigManager::ConfigurationManager::parentProfileID())
            .withDeadline(std::chrono::duration_cast<std::chrono::nanoseconds>(time));
    for (const auto& user : session.waitFor(acting.profiles())) {
        const std::string name = user.username.value_or(user.profileID.value_or(""));
        // What is not shown as it is could not be typed either.
        if (!name.empty() && printable(name) == name) session.terminal.line(name);
    }
}

/// What the scripts of the shells ask for while somebody types: nothing but names, and no word of
/// what goes wrong.
ExitCode completeProfiles(Session& session) {
    const Seconds time = completionTime();
    if (time <= Seconds(0) || session.options.dryRun) return ExitCode::ok;
    try {
        printProfileNames(session, time);
    } catch (const std::exception&) {
        return ExitCode::ok;
    }
    return ExitCode::ok;
}

ExitCode help(const Session& session, const CommandEntry& program,
              const std::vector<std::string>& path) {
    const CommandEntry* command = &program;
    for (const auto& name : path) {
        const auto below = std::ranges::find(command->commands, name, &CommandEntry::name);
        if (below == command->commands.end()) throw CommandError(unknownCommand(*command, name));
        command = &*below;
    }
    return print(session, helpPage(program, *command));
}

void addHelp(CLI::App& app, Command& chosen) {
    const auto path = std::make_shared<std::vector<std::string>>();
    auto& command = *app.add_subcommand("help", "Print the help of a command");
    command.add_option("COMMAND", *path, "The command, in one or two words (default: the program)")
        ->type_name("");
    command.callback([&app, &chosen, path] {
        chosen = [&app, path](Session& session) { return help(session, commandTree(app), *path); };
    });
}

}  // namespace

void addSelfDescriptions(CLI::App& app, Command& chosen) {
    auto& group = *app.add_subcommand("completion", "Print a script that completes commands");
    group.require_subcommand(1);
    for (const Shell& shell : shells)
        group.add_subcommand(shell.name, shell.description)->callback([&app, &chosen, &shell] {
            chosen = [&app, &shell](const Session& session) {
                return print(session, shell.script(commandTree(app)));
            };
        });
    group.add_subcommand("profiles", "The names of the household's profiles")
        ->group("")
        ->callback([&chosen] { chosen = &completeProfiles; });
    app.add_subcommand("man", "Print the man page: kestrin-profile man | man -l -")
        ->callback([&app, &chosen] {
            chosen = [&app](const Session& session) {
                return print(session, manPage(commandTree(app), KESTRIN_PROFILE_VERSION));
            };
        });
    addHelp(app, chosen);
}

}  // namespace KestrinProfileCLI
