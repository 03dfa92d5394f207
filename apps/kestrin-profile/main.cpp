#include <cstdio>
#include <exception>

#include <CLI/CLI.hpp>

#include "ExitCode.hpp"
#include "Interruption.hpp"
#include "Session.hpp"
#include "commands/Commands.hpp"

namespace {

using namespace KestrinProfileCLI;

constexpr const char* footer =
    "Exit codes: 0 ok, 1 service error, 2 usage or configuration, 4 refused, 5 network or timeout, "
    "6 not found, 7 validation, 130 interrupted.\n"
    "Files: kestrin-profile/config.json in $XDG_CONFIG_HOME (~/.config); binds below "
    "kestrin-profile/binds in $XDG_STATE_HOME (~/.local/state).\n"
    "Environment: NO_COLOR switches colours off.";

void addOptions(CLI::App& app, Options& options) {
    app.add_option("--config", options.configurationFile, "The configuration file")
        ->type_name("FILE");
    app.add_flag("--json", options.json, "Print results as JSON, for programs");
    app.add_flag("-v,--verbose", options.verbose,
                 "Print each request and reply on standard error, without secrets");
    app.set_version_flag("--version", KESTRIN_PROFILE_VERSION);
}

int run(int argc, char** argv) {
    Interruption interruption;
    Session session(interruption);
    Command chosen;

    CLI::App app("Talk to a household's personalization service.", "kestrin-profile");
    app.footer(footer);
    app.require_subcommand(1);
    app.fallthrough();
    addOptions(app, session.options);
    addBindCommand(app, chosen);
    addConfigCommand(app, chosen);
    addDemoCommand(app, chosen);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const bool asked = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success);
        app.exit(error);
        return static_cast<int>(asked ? ExitCode::ok : ExitCode::usage);
    }

    try {
        return static_cast<int>(chosen(session));
    } catch (...) {
        const Failure failure = describe(std::current_exception());
        session.terminal.failure(failure.message, failure.advice);
        return static_cast<int>(failure.code);
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "error: %s\n", error.what());
        return static_cast<int>(ExitCode::serviceError);
    }
}
