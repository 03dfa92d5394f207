#include <array>
#include <cstdio>
#include <string>

#include "../CommandTree.hpp"
#include "../Completion.hpp"
#include "../ManPage.hpp"
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

ExitCode print(const std::string& text) {
    // Whether all could be written is asked once, at the end.
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), stdout));
    return ExitCode::ok;
}

}  // namespace

void addSelfDescriptions(CLI::App& app, Command& chosen) {
    auto& group = *app.add_subcommand("completion", "Print a script that completes commands");
    group.require_subcommand(1);
    for (const Shell& shell : shells)
        group.add_subcommand(shell.name, shell.description)->callback([&app, &chosen, &shell] {
            chosen = [&app, &shell](Session&) { return print(shell.script(commandTree(app))); };
        });
    app.add_subcommand("man", "Print the man page: kestrin-profile man | man -l -")
        ->callback([&app, &chosen] {
            chosen = [&app](Session&) {
                return print(manPage(commandTree(app), KESTRIN_PROFILE_VERSION));
            };
        });
}

}  // namespace KestrinProfileCLI
