#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "ExitCode.hpp"
#include "HelpSections.hpp"
#include "Interruption.hpp"
#include "Session.hpp"
#include "commands/Commands.hpp"

namespace {

using namespace KestrinProfileCLI;

void addOptions(CLI::App& app, Options& options) {
    app.add_option("--config", options.configurationFile, "The configuration file")
        ->type_name("FILE");
    app.add_flag("--json", options.json, "Print results as JSON, for programs");
    app.add_flag("-v,--verbose", options.verbose,
                 "Print each request and reply on standard error, without secrets");
    app.add_option("--profile", options.profile,
                   "The acting profile, by identifier or name (default: the parent)")
        ->type_name("PROFILE");
    app.add_option("--brand", options.brand, "The brand (default: the configured one)")
        ->type_name("ID");
    app.add_flag("--dry-run", options.dryRun,
                 "Send nothing; print each request as a curl command, with variables for secrets");
    auto* const retry = app.add_flag_callback(
        "--retry", [&options] { options.repeats = Repeats::many; },
        "Send what failed again for up to a minute, if it may be, e.g. while the service starts "
        "(default: for up to 10 s, at first once, then a tenth as often as something succeeds)");
    app.add_flag_callback(
           "--no-retry", [&options] { options.repeats = Repeats::never; }, "Send each request once")
        ->excludes(retry);
    app.set_version_flag("--version", KESTRIN_PROFILE_VERSION);
}

void addCommands(CLI::App& app, Command& chosen) {
    addBindCommand(app, chosen);
    addProfilesCommand(app, chosen);
    addListCommands(app, chosen);
    addSearchCommand(app, chosen);
    addOutboxCommand(app, chosen);
    addConfigCommand(app, chosen);
    addSelfDescriptions(app, chosen);
}

/// Opens every standard stream that the program was started without on something that can be
/// neither read nor written. Otherwise the next file or connection would get its number, and what
/// is printed would go there. Called before anything else is opened.
void replaceClosedStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) != -1) continue;
        // The lowest free number is given, which is this one. The wrong direction makes its use
        // fail.
        if (open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) != stream) return;
    }
}

/// Runs the chosen command, and writes the last byte of its output.
ExitCode execute(Session& session, const Command& chosen) {
    ExitCode code = ExitCode::ok;
    try {
        code = chosen(session);
    } catch (const OnlyShown&) {
        code = ExitCode::ok;
    }
    if (!session.terminal.flush())
        throw CommandError({ExitCode::serviceError, "the output could not be written",
                            "check where standard output goes"});
    return code;
}

int run(int argc, char** argv) {
    Interruption interruption;
    Session session(interruption);
    Command chosen;

    CLI::App app("Talk to a household's personalization service", "kestrin-profile");
    app.footer(helpFooter());
    app.require_subcommand(1);
    app.fallthrough();
    addOptions(app, session.options);
    addCommands(app, chosen);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const bool asked = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success);
        app.exit(error);
        return static_cast<int>(asked ? ExitCode::ok : ExitCode::usage);
    }

    try {
        return static_cast<int>(execute(session, chosen));
    } catch (...) {
        const Failure failure = describe(std::current_exception());
        session.terminal.failure(failure.message, failure.advice);
        return static_cast<int>(failure.code);
    }
}

}  // namespace

int main(int argc, char** argv) {
    replaceClosedStandardStreams();
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "error: %s\n", error.what()));
        return static_cast<int>(ExitCode::serviceError);
    }
}
