#include "Program.hpp"

#include <algorithm>
#include <exception>
#include <utility>

#include <CLI/CLI.hpp>

#include "CommandTree.hpp"
#include "HelpPage.hpp"
#include "UsageError.hpp"
#include "commands/Commands.hpp"

namespace KestrinProfileCLI {

namespace {

void addOptions(CLI::App& app, Options& options) {
    app.add_option("--config", options.configurationFile, "The configuration file")
        ->type_name("FILE")
        ->envname("KESTRIN_PROFILE_CONFIG");
    app.add_flag("--json", options.json, "Print results and errors as JSON, for programs");
    app.add_flag("-v,--verbose", options.verbose,
                 "Print each request and reply on standard error, without secrets");
    app.add_option("--profile", options.profile,
                   "The acting profile, by identifier or name (default: the parent)")
        ->type_name("PROFILE")
        ->envname("KESTRIN_PROFILE_PROFILE");
    app.add_option("--brand", options.brand, "The brand (default: the configured one)")
        ->type_name("ID")
        ->envname("KESTRIN_PROFILE_BRAND");
    app.add_flag("--dry-run", options.dryRun,
                 "Send nothing; print each request as a curl command, with variables for secrets");
    auto* const retry = app.add_flag_callback(
        "--retry", [&options] { options.repeats = Repeats::many; },
        "Send what failed again for up to a minute, if it may be, e.g. while the service starts "
        "(default: for up to 10 s, at first once, then a tenth as often as something succeeds)");
    app.add_flag_callback(
           "--no-retry", [&options] { options.repeats = Repeats::never; }, "Send each request once")
        ->excludes(retry);
    app.set_version_flag("-V,--version", KESTRIN_PROFILE_VERSION, "Print the version");
    app.set_help_flag("-h,--help", "Print help");
}

void addCommands(CLI::App& app, Command& chosen) {
    addBindCommands(app, chosen);
    addProfilesCommand(app, chosen);
    addListCommands(app, chosen);
    addSearchCommand(app, chosen);
    addOutboxCommand(app, chosen);
    addConfigCommand(app, chosen);
    addDoctorCommand(app, chosen);
    addAPICommand(app, chosen);
    addServiceCommand(app, chosen);
    addSelfDescriptions(app, chosen);
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

/// Reads the command line.
/// @return what it asks for
/// @throws CommandError if it is wrong
Command parse(CLI::App& app, Session& session, const std::vector<std::string>& arguments,
              Command& chosen) {
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        return chosen;
    } catch (const CLI::CallForHelp&) {
        return [&app](Session& asked) {
            const CommandEntry program = commandTree(app);
            asked.terminal.verbatim(helpPage(program, chosenCommand(app, program)));
            return ExitCode::ok;
        };
    } catch (const CLI::CallForVersion&) {
        return [](Session& asked) {
            asked.terminal.line(KESTRIN_PROFILE_VERSION);
            return ExitCode::ok;
        };
    } catch (const CLI::ParseError& error) {
        // What comes before the error may not have been read yet.
        session.options.json = session.options.json || std::ranges::count(arguments, "--json") > 0;
        throw CommandError(usageError(app, error));
    }
}

}  // namespace

ExitCode runProgram(Session& session, const std::vector<std::string>& arguments) {
    try {
        Command chosen;
        CLI::App app("Talk to a household's personalization service", "kestrin-profile");
        app.require_subcommand(1);
        app.fallthrough();
        addOptions(app, session.options);
        addCommands(app, chosen);
        return execute(session, parse(app, session, arguments, chosen));
    } catch (...) {
        const Failure failure = describe(std::current_exception());
        session.report(failure);
        return failure.code;
    }
}

}  // namespace KestrinProfileCLI
