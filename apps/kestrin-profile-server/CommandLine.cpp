#include <algorithm>
#include <cstdlib>
#include <thread>

#include <CLI/CLI.hpp>

#include <internal/UTF8.hpp>
#include <kestrin-profile-server/CommandLine.hpp>
#include <kestrin-profile-server/domain/Text.hpp>

namespace KestrinProfileServer {
namespace {

constexpr const char* description =
    "Development service for KestrinProfile clients: keeps the profiles and lists of a household in"
    " one SQLite file and speaks the same protocol as the real service.";

constexpr const char* footer =
    "When it accepts requests it prints one line: kestrin-profile-server ready on <address>.\n"
    "SIGTERM or SIGINT stop it: running requests are answered first.\n\n"
    "Exit codes:\n"
    "  0  stopped by a signal, or --help\n"
    "  1  could not start: the database, the address or the configuration file\n"
    "  2  the command line is wrong\n";

/// An empty path when the environment names no home.
std::filesystem::path stateFolder() {
    const char* state = std::getenv("XDG_STATE_HOME");
    if (state != nullptr && std::filesystem::path(state).is_absolute()) return state;
    const char* home = std::getenv("HOME");
    if (home == nullptr || *home == '\0') return {};
    return std::filesystem::path(home) / ".local" / "state";
}

std::filesystem::path defaultDatabase() {
    const auto folder = stateFolder();
    return folder.empty() ? folder : folder / "kestrin-profile-server" / "profiles.sqlite";
}

/// Refuses identifiers that a client does not send as they are: in the URL, or in a header.
std::string checkProfileID(const std::string& id) {
    const auto travels = [](char each) {
        return each > ' ' && each <= '~' && std::string_view("#&%").find(each) == std::string::npos;
    };
    if (!id.empty() && id.size() <= longestText && std::ranges::all_of(id, travels)) return "";
    return "a profile identifier has 1 to " + std::to_string(longestText) +
           " visible ASCII characters, none of them '#', '&' or '%': it travels in URLs and headers"
           " as it is";
}

std::string checkText(const std::string& text) {
    return KestrinInternal::isUTF8(text) && text.size() <= longestText
               ? ""
               : "expected is UTF-8 text of at most " + std::to_string(longestText) + " bytes";
}

void addOptions(CLI::App& app, Options& options, std::string& parentProfileID,
                std::string& configuration) {
    ServiceSettings& service = options.service;
    const CLI::Validator isProfileID(checkProfileID, "");
    const CLI::Validator isText(checkText, "");
    app.add_option("--database", service.database, "SQLite file; created when it is missing")
        ->type_name("FILE")
        ->capture_default_str();
    app.add_option("--host", service.http.host, "address to listen on")
        ->type_name("ADDRESS")
        ->capture_default_str();
    app.add_option("--port", service.http.port, "port to listen on; 0 takes a free one")
        ->type_name("NUMBER")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_option("--write-config", configuration,
                   "write a client configuration for this service there; it holds the household's"
                   " secret, so only you can read it")
        ->type_name("FILE");
    app.add_option("--brand", options.brand, "brand in the written configuration")
        ->type_name("NAME")
        ->check(isText)
        ->capture_default_str();
    app.add_option("--household", service.household, "household; created when it is missing")
        ->type_name("NAME")
        ->check(isText)
        ->capture_default_str();
    app.add_option("--parent-profile", parentProfileID,
                   "parent profile of a new household (default: parent)")
        ->type_name("ID")
        ->check(isProfileID);
    app.add_option("--block", service.block,
                   "answer 403 for this profile from now on, repeatable; kept in the database")
        ->type_name("ID")
        ->check(isProfileID)
        ->expected(1)
        ->take_all();
    app.add_option("--unblock", service.unblock, "end --block for this profile, repeatable")
        ->type_name("ID")
        ->check(isProfileID)
        ->expected(1)
        ->take_all();
}

void addLimits(CLI::App& app, ServiceSettings& service) {
    app.add_option("--max-profiles", service.limits.maxProfiles, "profiles per household")
        ->type_name("NUMBER")
        ->check(CLI::Range(1, 100))
        ->capture_default_str();
    app.add_option("--max-size", service.limits.maxListSize,
                   "entries per list; the oldest are dropped")
        ->type_name("NUMBER")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    app.add_option_function<long>(
           "--token-lifetime",
           [&service](long seconds) { service.tokenLifetime = std::chrono::seconds(seconds); },
           "how long a token is valid, in seconds")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 31536000))
        ->default_str("3600");
    app.add_option("--threads", service.http.threads, "threads that answer requests")
        ->type_name("NUMBER")
        ->check(CLI::Range(1, 64))
        ->capture_default_str();
    app.add_flag("--quiet", service.http.isQuiet, "do not log the requests to the standard error");
}

}  // namespace

std::variant<Options, EarlyEnd> parsedCommandLine(int count, const char* const* arguments) {
    Options options;
    options.service.database = defaultDatabase();
    options.service.http.threads = std::clamp(std::thread::hardware_concurrency(), 1U, 64U);
    std::string parentProfileID;
    std::string configuration;
    CLI::App app(description, "kestrin-profile-server");
    app.footer(footer);
    addOptions(app, options, parentProfileID, configuration);
    addLimits(app, options.service);
    try {
        app.parse(count, arguments);
    } catch (const CLI::CallForHelp&) {
        return EarlyEnd{cleanStop, app.help()};
    } catch (const CLI::ParseError& error) {
        return EarlyEnd{wrongUsage, std::string(error.what()) + "\n--help explains the options.\n"};
    }
    if (options.service.database.empty()) {
        return EarlyEnd{wrongUsage,
                        "neither XDG_STATE_HOME nor HOME says where the database"
                        " belongs; name a file with --database.\n"};
    }
    if (!parentProfileID.empty()) options.service.parentProfileID = parentProfileID;
    if (!configuration.empty()) options.configuration = configuration;
    return options;
}

}  // namespace KestrinProfileServer
