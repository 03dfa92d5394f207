#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <thread>

#include <CLI/CLI.hpp>
#include <boost/json.hpp>

#include <internal/UTF8.hpp>
#include <kestrin-profile-server/CommandLine.hpp>
#include <kestrin-profile-server/domain/Addresses.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Profiles.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/state/Scenarios.hpp>

namespace KestrinProfileServer {
namespace {

namespace fs = std::filesystem;

constexpr const char* description =
    "Development service for KestrinProfile clients: keeps the profiles and lists of a household in"
    " one SQLite file and speaks the same protocol as the real service. Without arguments it is"
    " --demo.";

constexpr const char* footer =
    "When it accepts requests it prints one line: kestrin-profile-server ready on <address>.\n"
    "SIGTERM, SIGINT or SIGHUP stop it: running requests are answered first.\n\n"
    "Examples:\n"
    "  kestrin-profile-server\n"
    "      a household to play with, which nobody keeps, for kestrin-profile and the browser\n"
    "  kestrin-profile-server --data ~/kestrin --port 9000\n"
    "      the same, and kept\n"
    "  kestrin-profile-server --database test.sqlite --port 0 --write-config config.json --quiet\n"
    "      for a script: nothing but the protocol, at a free port\n"
    "  kestrin-profile-server --demo --tls --host 0.0.0.0 --public-url https://192.168.1.20:8480 "
    "\\\n"
    "      --admin-secret-file secret\n"
    "      for a phone in the same network\n\n"
    "Exit codes:\n"
    "  0  stopped by a signal, or --help, or --version\n"
    "  1  could not start: the database, the address or the configuration file\n"
    "  2  the command line is wrong\n";

/// What the options hold before it is clear what they mean together.
struct Words {
    std::string parentProfileID;
    std::string configuration;
    std::string secretFile;
    std::string seedFile;
    std::string data;
    std::string publicURL;
    std::vector<std::string> tlsNames;
    bool isTLS = false;
    bool isDemo = false;
};

/// The words do not make sense; the message says why.
class WrongUsage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// A folder for programs that the environment names, or one below the home folder (XDG base
/// directories, version 0.8); empty if it names none.
fs::path baseFolder(const char* variable, const fs::path& belowHome) {
    const char* const named = std::getenv(variable);
    if (named != nullptr && fs::path(named).is_absolute()) return named;
    const char* const home = std::getenv("HOME");
    return home == nullptr || *home == '\0' ? fs::path() : fs::path(home) / belowHome;
}

/// A file of this program's; empty if the environment names no home.
fs::path stateFile(const char* name) {
    const fs::path folder = baseFolder("XDG_STATE_HOME", fs::path(".local") / "state");
    return folder.empty() ? folder : folder / "kestrin-profile-server" / name;
}

/// Where kestrin-profile looks for its configuration; empty if the environment names no home.
fs::path clientConfigurationFile() {
    const fs::path folder = baseFolder("XDG_CONFIG_HOME", ".config");
    return folder.empty() ? folder : folder / "kestrin-profile" / "config.json";
}

std::string checkProfileID(const std::string& id) {
    return isProfileID(id) ? "" : profileIDRule();
}

std::string checkText(const std::string& text) {
    return KestrinInternal::isUTF8(text) && text.size() <= longestText
               ? ""
               : "expected is UTF-8 text of at most " + std::to_string(longestText) + " bytes";
}

/// Refuses what is no address of a whole service.
std::string checkURL(const std::string& url) {
    for (const std::string_view scheme : {"http://", "https://"}) {
        if (!url.starts_with(scheme)) continue;
        const std::string authority = url.substr(scheme.size());
        const bool isOne =
            authority.find_first_of("/?#@\\\"<> ") == std::string::npos &&
            std::ranges::all_of(authority, [](char c) { return c > ' ' && c <= '~'; });
        if (isOne && !hostIn(authority).empty()) return "";
    }
    return "expected is an address like http://192.168.1.20:8480, without a path";
}

void addData(CLI::App& app, Options& options, Words& words) {
    auto* const data = app.add_option("--data", words.data,
                                      "folder in which everything is kept; otherwise like --demo")
                           ->type_name("DIR");
    auto* const database = app.add_option("--database", options.service.database,
                                          "SQLite file; created when it is missing")
                               ->type_name("FILE")
                               ->capture_default_str()
                               ->excludes(data);
    app.add_flag("--demo", words.isDemo,
                 "a household to play with that nobody keeps, the admin interface, and a client"
                 " configuration where kestrin-profile finds it, unless there is one of somebody"
                 " else's")
        ->excludes(data)
        ->excludes(database);
    app.add_option(
           "--seed", words.seedFile,
           "JSON file with the households of a new database; docs/service.md tells its form")
        ->type_name("FILE");
}

void addAddress(CLI::App& app, HttpSettings& http, Words& words) {
    app.add_option("--host", http.host, "address to listen on")
        ->type_name("ADDRESS")
        ->capture_default_str();
    app.add_option("--port", http.port, "port to listen on; 0 takes a free one")
        ->type_name("NUMBER")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_option("--public-url", words.publicURL,
                   "address in the written configuration, if clients reach the service at another"
                   " one than it listens on")
        ->type_name("URL")
        ->check(CLI::Validator(checkURL, ""));
    auto* const tls =
        app.add_flag("--tls", words.isTLS,
                     "speak HTTPS, with a certificate for development that is made and kept, below"
                     " the folder of --data, else in this program's own; docs/service.md tells how"
                     " phones trust it");
    app.add_option("--tls-name", words.tlsNames,
                   "name or address that the certificate is for, repeatable, beside localhost, the"
                   " loopback addresses, and the hosts of --host and --public-url")
        ->type_name("NAME")
        ->needs(tls)
        ->expected(1)
        ->take_all();
}

void addAdmin(CLI::App& app, AdminSettings& admin, Words& words) {
    app.add_flag("--admin", admin.isOn,
                 "serve the admin interface, below /admin/; of this computer only, unless it has a"
                 " secret");
    app.add_option("--admin-secret-file", words.secretFile,
                   "file whose first line every admin request presents: 'Authorization: Bearer"
                   " <line>'; 16 characters or more")
        ->type_name("FILE");
}

void addConfiguration(CLI::App& app, Options& options, Words& words) {
    app.add_option("--write-config", words.configuration,
                   "write a client configuration for this service there; it holds the household's"
                   " secret, so only you can read it")
        ->type_name("FILE");
    app.add_flag("--qr", options.isQRCodeWanted,
                 "show the QR code of the address where a phone fetches the client configuration,"
                 " with the household's secret; a terminal sees it anyway if other computers reach"
                 " the service");
    app.add_option("--brand", options.service.brand, "brand in the written configuration")
        ->type_name("NAME")
        ->check(CLI::Validator(checkText, ""))
        ->capture_default_str();
}

void addHousehold(CLI::App& app, ServiceSettings& service, Words& words) {
    const CLI::Validator isProfileID(checkProfileID, "");
    app.add_option("--household", service.household, "household; created when it is missing")
        ->type_name("NAME")
        ->check(CLI::Validator(checkText, ""))
        ->capture_default_str();
    app.add_option("--parent-profile", words.parentProfileID,
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
    const std::map<std::string, LogFormat> formats{{"text", LogFormat::text},
                                                   {"json", LogFormat::json}};
    app.add_option("--log-format", service.http.logFormat,
                   "how the log is written: text is a line a request for people, json an object a"
                   " line for programs")
        ->type_name("text|json")
        ->transform(CLI::Transformer(formats, CLI::ignore_case).description(""))
        ->default_str("text");
    app.add_flag("--strict", service.isStrict,
                 "report what is legal but suspicious, in the log and the journal");
}

/// The first line of the file.
std::string secretIn(const std::string& file) {
    constexpr std::size_t shortest = 16;
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    if (line.ends_with('\r')) line.pop_back();
    const bool travels =
        std::ranges::all_of(line, [](char each) { return each > ' ' && each <= '~'; });
    if (line.size() >= shortest && travels) return line;
    throw WrongUsage("--admin-secret-file '" + file +
                     "': the first line is no secret; expected are 16 or more visible ASCII"
                     " characters.\n");
}

Seed seedInFile(const std::string& file, const std::string& brand) {
    std::ifstream stream(file);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    boost::json::error_code error;
    const auto document = boost::json::parse(text, error);
    if (!stream || error) {
        throw WrongUsage("--seed '" + file +
                         (stream ? "' is not JSON: " + error.message() : "' cannot be read") +
                         ".\n");
    }
    try {
        return seedIn(document, {brand, systemTime()});
    } catch (const Problem& problem) {
        throw WrongUsage("--seed '" + file + "': " + problem.what() + ".\n");
    }
}

void add(std::vector<fs::path>& places, const fs::path& place) {
    if (!place.empty()) places.push_back(place);
}

/// Makes of the options what people want who only want to begin.
void introduce(Options& options, const Words& words) {
    ServiceSettings& service = options.service;
    options.isIntroduced = true;
    service.database = words.data.empty() ? fs::path() : fs::path(words.data) / "profiles.sqlite";
    if (!service.seed) service.seed = demoSeed({service.brand, systemTime()});
    if (service.admin.secret || isLoopbackHost(service.http.host)) service.admin.isOn = true;
    if (options.configuration) return;
    add(options.configurationPlaces, clientConfigurationFile());
    add(options.configurationPlaces,
        words.data.empty() ? stateFile("config.json") : fs::path(words.data) / "config.json");
}

/// The names of the certificate that the words imply beside those that they tell.
void addImpliedNames(std::vector<std::string>& names, const ServiceSettings& service) {
    if (!isLoopbackHost(service.http.host) && service.http.host != "0.0.0.0" &&
        service.http.host != "::")
        names.push_back(service.http.host);
    if (!service.publicURL) return;
    std::string host = hostIn(service.publicURL->substr(service.publicURL->find("//") + 2));
    if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
    names.push_back(host);
}

/// Where the certificate is, and for which names.
Options::TLS tlsOptions(const ServiceSettings& service, const Words& words) {
    if (service.publicURL && !service.publicURL->starts_with("https://"))
        throw WrongUsage("with --tls the address of --public-url begins with https://.\n");
    Options::TLS tls;
    tls.folder = words.data.empty() ? stateFile("tls") : fs::path(words.data) / "tls";
    tls.names = words.tlsNames;
    addImpliedNames(tls.names, service);
    if (!tls.folder.empty()) return tls;
    throw WrongUsage(
        "neither XDG_STATE_HOME nor HOME says where the certificate belongs; name a folder with"
        " --data.\n");
}

void complete(Options& options, const Words& words, bool isBare, bool namesHousehold) {
    ServiceSettings& service = options.service;
    const bool isIntroduced = isBare || words.isDemo || !words.data.empty();
    if ((isIntroduced || !words.seedFile.empty()) &&
        (namesHousehold || !words.parentProfileID.empty())) {
        throw WrongUsage(
            "--household and --parent-profile do not go with a seed, --demo or --data: the seed"
            " says whom there is.\n");
    }
    if (!words.secretFile.empty()) service.admin.secret = secretIn(words.secretFile);
    if (!words.seedFile.empty()) service.seed = seedInFile(words.seedFile, service.brand);
    if (!words.parentProfileID.empty()) service.parentProfileID = words.parentProfileID;
    if (!words.publicURL.empty()) service.publicURL = words.publicURL;
    if (!words.configuration.empty()) options.configuration = words.configuration;
    if (words.isTLS) options.tls = tlsOptions(service, words);
    if (isIntroduced)
        introduce(options, words);
    else if (service.database.empty()) {
        throw WrongUsage(
            "neither XDG_STATE_HOME nor HOME says where the database belongs; name a file with"
            " --database.\n");
    }
    if (options.isQRCodeWanted && !service.admin.isOn) {
        throw WrongUsage(
            "--qr: a phone fetches the configuration from the admin interface; switch it on with"
            " --admin, and beyond this computer with --admin-secret-file, too.\n");
    }
}

}  // namespace

std::variant<Options, EarlyEnd> parsedCommandLine(int count, const char* const* arguments) {
    Options options;
    Words words;
    options.service.database = stateFile("profiles.sqlite");
    options.service.http.threads = std::clamp(std::thread::hardware_concurrency(), 1U, 64U);
    CLI::App app(description, "kestrin-profile-server");
    app.footer(footer);
    app.set_version_flag("--version,-V", "kestrin-profile-server " KESTRIN_PROFILE_SERVER_VERSION);
    addData(app, options, words);
    addAddress(app, options.service.http, words);
    addAdmin(app, options.service.admin, words);
    addConfiguration(app, options, words);
    addHousehold(app, options.service, words);
    addLimits(app, options.service);
    try {
        app.parse(count, arguments);
        complete(options, words, count <= 1, app.count("--household") > 0);
        return options;
    } catch (const CLI::CallForHelp&) {
        return EarlyEnd{cleanStop, app.help()};
    } catch (const CLI::CallForVersion& version) {
        return EarlyEnd{cleanStop, std::string(version.what()) + "\n"};
    } catch (const CLI::ParseError& error) {
        return EarlyEnd{wrongUsage, std::string(error.what()) + "\n--help explains the options.\n"};
    } catch (const WrongUsage& error) {
        return EarlyEnd{wrongUsage, error.what()};
    } catch (const StartError& error) {
        return EarlyEnd{failure, std::string("kestrin-profile-server: ") + error.what() + "\n"};
    }
}

}  // namespace KestrinProfileServer
