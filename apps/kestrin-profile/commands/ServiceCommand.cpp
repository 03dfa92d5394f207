#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <fmt/format.h>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <internal/Quoting.hpp>

#include "../Confirmation.hpp"
#include "../Files.hpp"
#include "../Format.hpp"
#include "../NamedValues.hpp"
#include "../ObjectText.hpp"
#include "../Records.hpp"
#include "../Results.hpp"
#include "../service/AdminInterface.hpp"
#include "../service/AdminResults.hpp"
#include "Commands.hpp"

namespace KestrinProfileCLI {

using HalvardSling::JSONDictionary;
using HalvardSling::JSONKind;
using KestrinInternal::inQuotes;

namespace {

/// What the commands are told; each asks for some of it.
struct ServiceOptions {
    AdminOptions admin;
    std::string argument;                 ///< a name, an identifier, a number, a time
    std::vector<std::string> fields;      ///< each NAME=VALUE
    std::string file;                     ///< --from
    std::string household;                ///< --household; empty: any
    std::optional<std::int64_t> expires;  ///< --expires-in, in seconds
    std::optional<std::int64_t> limit;
    std::optional<std::int64_t> count;
    std::optional<std::int64_t> exactly;
    std::optional<std::int64_t> atLeast;
    std::optional<std::int64_t> atMost;
    std::string timeout;  ///< in seconds
    bool isOldestFirst = false;
    bool isConfirmed = false;
};

// The parts of a command line.

using Declare = void (*)(CLI::App& command, ServiceOptions& options);

void takesNothing(CLI::App& /*command*/, ServiceOptions& /*options*/) {}

CLI::Option* addArgument(CLI::App& command, ServiceOptions& options, const char* name,
                         const char* description) {
    return command.add_option(name, options.argument, description)->type_name("")->required();
}

void takesName(CLI::App& command, ServiceOptions& options) {
    addArgument(command, options, "NAME", "Its name");
}

void takesNameToDestroy(CLI::App& command, ServiceOptions& options) {
    takesName(command, options);
    addConfirmation(command, options.isConfirmed);
}

void takesConfirmation(CLI::App& command, ServiceOptions& options) {
    addConfirmation(command, options.isConfirmed);
}

void takesHousehold(CLI::App& command, ServiceOptions& options) {
    command
        .add_option("--household", options.household,
                    "Its household (needed if several have a profile of that identifier)")
        ->type_name("ID");
}

void takesProfile(CLI::App& command, ServiceOptions& options) {
    addArgument(command, options, "PROFILE_ID", "The profile's identifier");
    takesHousehold(command, options);
}

void takesFile(CLI::App& command, ServiceOptions& options) {
    command.add_option("--from", options.file, "The file with it, as JSON; - is standard input")
        ->type_name("FILE");
}

void takesFilter(CLI::App& command, ServiceOptions& options) {
    command
        .add_option("FIELD", options.fields,
                    "What the requests have, each as NAME=VALUE: operation, profile, household, "
                    "item, method, path, status, problem, bodyContains, since")
        ->type_name("");
}

void addNumber(CLI::App& command, const char* name, std::optional<std::int64_t>& value,
               const char* description) {
    command.add_option(name, value, description)->type_name("NUMBER");
}

// What is sent.

[[noreturn]] void failForUsage(std::string message, std::string advice) {
    throw CommandError({ExitCode::usage, std::move(message), std::move(advice)});
}

/// Whether a text is a number, as JSON has it.
bool isNumber(const std::string& text) {
    const auto parsed = JSONDictionary::parse("{\"n\":" + text + "}");
    const auto* const object = std::get_if<JSONDictionary>(&parsed);
    if (object == nullptr || object->size() != 1) return false;
    const auto kind = object->kind("n");
    return kind == JSONKind::integer || kind == JSONKind::number;
}

/// A text as JSON, as the field needs it.
std::string numberIn(const std::string& text, std::string_view name) {
    if (!isNumber(text))
        failForUsage(fmt::format("{} is {}, which is no number", name, inQuotes(text)),
                     "give a number, e.g. 5 or 0.5");
    return text;
}

/// Where in a fault a field has its place.
enum class FaultPart { rule, condition, action };

struct FaultField {
    std::string_view name;
    FaultPart part;
    bool isNumber;
};

constexpr std::array faultFields{
    FaultField{"operation", FaultPart::condition, false},
    FaultField{"profile", FaultPart::condition, false},
    FaultField{"household", FaultPart::condition, false},
    FaultField{"method", FaultPart::condition, false},
    FaultField{"name", FaultPart::rule, false},
    FaultField{"count", FaultPart::rule, true},
    FaultField{"probability", FaultPart::rule, true},
    FaultField{"seed", FaultPart::rule, true},
    FaultField{"until", FaultPart::rule, false},
    FaultField{"status", FaultPart::action, true},
    FaultField{"retryAfter", FaultPart::action, false},
    FaultField{"contentType", FaultPart::action, false},
    FaultField{"body", FaultPart::action, false},
    FaultField{"milliseconds", FaultPart::action, true},
    FaultField{"jitterMilliseconds", FaultPart::action, true},
    FaultField{"bytesPerSecond", FaultPart::action, true},
    FaultField{"bytes", FaultPart::action, true},
    FaultField{"seconds", FaultPart::action, true},
};

constexpr const char* faultAdvice = "see kestrin-profile service faults add --help";

/// The JSON of a fault that is typed as a kind and fields.
std::string faultOf(const ServiceOptions& options) {
    std::vector<std::string_view> known;
    for (const auto& field : faultFields)
        known.push_back(field.name);
    const auto values = namedValuesOf(options.fields, "a fault", known, faultAdvice);
    ObjectText rule;
    ObjectText condition;
    ObjectText action;
    action.addText("kind", options.argument);
    for (const auto& field : faultFields) {
        const auto value = values.find(field.name);
        if (value == values.end()) continue;
        ObjectText& part = field.part == FaultPart::rule        ? rule
                           : field.part == FaultPart::condition ? condition
                                                                : action;
        if (field.isNumber)
            part.add(field.name, numberIn(value->second, field.name));
        else
            part.addText(field.name, value->second);
    }
    if (!condition.empty()) rule.add("when", condition.text());
    rule.add("action", action.text());
    return rule.text();
}

constexpr std::array<std::string_view, 10> filterFields{
    "operation", "profile", "household", "item",         "method",
    "path",      "status",  "problem",   "bodyContains", "since"};

NamedValues filterOf(const ServiceOptions& options) {
    return namedValuesOf(options.fields, "the journal", filterFields,
                         "see kestrin-profile service journal list --help");
}

/// The JSON of a filter, with what else is asked of its requests.
ObjectText filterBodyOf(const ServiceOptions& options) {
    ObjectText body;
    for (const auto& [name, value] : filterOf(options))
        body.addText(name, value);
    return body;
}

std::string filterQueryOf(const ServiceOptions& options) {
    std::string query = options.isOldestFirst ? "?order=oldest" : "?order=newest";
    if (options.limit) query += fmt::format("&limit={}", *options.limit);
    for (const auto& [name, value] : filterOf(options))
        query += fmt::format("&{}={}", name, percentEncoded(value));
    return query;
}

/// One command on its way.
class ServiceCall {
  public:
    ServiceCall(Session& aSession, const ServiceOptions& given)
        : session(aSession), options(given), interface_(aSession, given.admin) {}

    Session& session;
    const ServiceOptions& options;

    [[nodiscard]] HalvardSling::Response send(const AdminRequest& request) const {
        return interface_.send(request);
    }
    [[nodiscard]] JSONDictionary ask(AdminRequest request) const {
        return adminDocumentOf(send(request));
    }
    [[nodiscard]] JSONDictionary get(std::string target) const {
        return ask({"GET", std::move(target)});
    }

    /// Sends a change that has no document for a reply, and says that it is done.
    void change(const AdminRequest& request, const std::string& done) const {
        printDone(session, send(request), done);
    }

    /// Asks a person, unless the command line says yes.
    void confirmThat(const std::string& question) const {
        confirm(session, options.isConfirmed, question);
    }

    /// Prints a document for programs, or as `print` does for people.
    void show(const JSONDictionary& document,
              void (*print)(const Session&, const JSONDictionary&)) const {
        if (session.options.json) return session.terminal.json(document);
        print(session, document);
    }

    template <std::size_t Count>
    void showRecords(const JSONDictionary& document, std::string_view key,
                     const std::array<AdminColumn, Count>& columns) const {
        if (session.options.json) return session.terminal.json(document);
        printRecords(session, document, key, columns);
    }

    /// Prints a document as JSON, for people too: a file to keep.
    void showDocument(const JSONDictionary& document) const { session.terminal.json(document); }

    /// The argument as a segment of a path.
    [[nodiscard]] std::string segment() const { return percentEncoded(options.argument); }

    [[nodiscard]] std::string target(std::string_view pattern) const {
        std::string result = fmt::format(fmt::runtime(pattern), segment());
        if (!options.household.empty()) result += "?household=" + percentEncoded(options.household);
        return result;
    }

    /// The file of --from.
    [[nodiscard]] std::string document() const {
        constexpr const char* advice = "name a readable file with --from, or - for standard input";
        if (options.file.empty()) failForUsage("no file is named", advice);
        return contentOf(options.file, advice, session.interruption());
    }

  private:
    AdminInterface interface_;
};

void showClock(const ServiceCall& call, const AdminRequest& request) {
    call.show(call.ask(request), &printRecord);
}

// Scenarios

/// Whether a scenario is one of the state, and so replaces what there is.
bool isOfState(const ServiceCall& call) {
    const auto document = call.get("scenarios");
    std::vector<std::string> names;
    const auto all = document.dictionaries("scenarios");
    if (!all) return true;
    for (const auto& each : *all) {
        const std::string name(each.text("name").value_or(""));
        if (name == call.options.argument) return each.text("kind") == "state";
        names.push_back(name);
    }
    throw CommandError({ExitCode::notFound,
                        fmt::format("unknown scenario {}{}", inQuotes(call.options.argument),
                                    KestrinInternal::suggestion(call.options.argument, names)),
                        "see them: kestrin-profile service scenarios list"});
}

void applyScenario(const ServiceCall& call) {
    if (!call.session.options.dryRun && isOfState(call)) call.confirmThat("replace all households");
    call.change({"POST", call.target("scenarios/{}"), std::nullopt},
                "applied " + call.options.argument);
}

// Journal

void addExpectation(ObjectText& body, const ServiceOptions& options) {
    const std::array<std::pair<std::string_view, std::optional<std::int64_t>>, 3> bounds{
        {{"exactly", options.exactly}, {"atLeast", options.atLeast}, {"atMost", options.atMost}}};
    int given = 0;
    for (const auto& [name, number] : bounds)
        if (number) {
            body.add(name, std::to_string(*number));
            ++given;
        }
    if (given == 0) body.add("atLeast", "1");
    if (given > 1)
        failForUsage("more than one number of requests is expected",
                     "give one of --exactly, --at-least and --at-most");
}

void verifyJournal(const ServiceCall& call) {
    ObjectText body = filterBodyOf(call.options);
    addExpectation(body, call.options);
    const auto verified = call.ask({"POST", "journal/verify", body.text()});
    const std::string count = cellOf(verified, "count");
    if (call.session.options.json)
        call.session.terminal.json(verified);
    else
        printNearMisses(call.session, verified);
    const std::string expected = cellOf(verified, "expected");
    if (verified.boolean("satisfied") != true)
        throw CommandError({ExitCode::notVerified,
                            fmt::format("expected {}, found {}", expected, count),
                            "see what came: kestrin-profile service journal list"});
    if (!call.session.options.json)
        call.session.terminal.line(fmt::format("verified: {}, as expected", count));
}

void waitForJournal(const ServiceCall& call) {
    constexpr std::chrono::seconds longest{3600};
    constexpr std::chrono::seconds usual{10};
    constexpr std::chrono::seconds reserve{60};
    const auto patience = call.options.timeout.empty()
                              ? std::optional(std::chrono::duration<double>(usual))
                              : secondsOf(call.options.timeout, std::chrono::seconds(0), longest);
    if (!patience)
        failForUsage(fmt::format("{} is no time to wait", inQuotes(call.options.timeout)),
                     "give --timeout a number of seconds, 3600 at most");
    ObjectText body = filterBodyOf(call.options);
    body.add("count", std::to_string(call.options.count.value_or(1)));
    body.add("timeoutSeconds", fmt::format("{}", patience->count()));
    const auto result =
        call.ask({"POST", "journal/wait", body.text(),
                  std::chrono::duration_cast<std::chrono::milliseconds>(*patience + reserve)});
    call.show(result, &printRecord);
    if (result.boolean("satisfied") != true)
        throw CommandError({ExitCode::notVerified,
                            fmt::format("expected {}, found {} in time",
                                        call.options.count.value_or(1), cellOf(result, "count")),
                            "see what came: kestrin-profile service journal list"});
}

// Tokens and namespaces

void makeToken(const ServiceCall& call) {
    ObjectText body;
    body.addText("profileId", call.options.argument);
    if (!call.options.household.empty()) body.addText("household", call.options.household);
    if (call.options.expires) body.add("expiresInSeconds", std::to_string(*call.options.expires));
    const auto token = call.ask({"POST", "tokens", body.text()});
    if (call.session.options.json) return call.session.terminal.json(token);
    call.session.terminal.line(cellOf(token, "token"));
    call.session.terminal.note("expires at " + cellOf(token, "expiresAt"));
}

void makeNamespace(const ServiceCall& call) {
    ObjectText body;
    body.addText("name", call.options.argument);
    if (!call.options.file.empty()) body.add("seed", call.document());
    call.show(call.ask({"POST", "namespaces", body.text()}), &printRecord);
}

void addFault(const ServiceCall& call) {
    const bool isTyped = !call.options.argument.empty();
    if (isTyped == !call.options.file.empty())
        failForUsage("what the fault is is not clear",
                     "give its kind and fields, or a file with --from");
    call.show(call.ask({"POST", "faults", isTyped ? faultOf(call.options) : call.document()}),
              &printRecord);
}

void setBlocked(const ServiceCall& call, bool isBlocked) {
    call.change(
        {"PUT", call.target("profiles/{}/blocked"), fmt::format(R"({{"blocked":{}}})", isBlocked)},
        fmt::format("{} {}", isBlocked ? "blocked" : "unblocked", call.options.argument));
}

constexpr std::array<AdminColumn, 6> faultColumns{{{"FAULT", "id"},
                                                   {"NAME", "name"},
                                                   {"KIND", "action.kind"},
                                                   {"WHEN", "when"},
                                                   {"COUNT", "count"},
                                                   {"USED", "used"}}};
constexpr std::array<AdminColumn, 7> journalColumns{{{"ENTRY", "id"},
                                                     {"TIME (UTC)", "time"},
                                                     {"STATUS", "status"},
                                                     {"METHOD", "method"},
                                                     {"TARGET", "target"},
                                                     {"PROFILE", "profile"},
                                                     {"FAULT", "fault"}}};
constexpr std::array<AdminColumn, 3> scenarioColumns{
    {{"NAME", "name"}, {"KIND", "kind"}, {"DESCRIPTION", "description"}}};
constexpr std::array<AdminColumn, 2> snapshotColumns{
    {{"NAME", "name"}, {"TAKEN (UTC)", "takenAt"}}};
constexpr std::array<AdminColumn, 2> namespaceColumns{{{"NAME", "name"}, {"ADDRESS", "baseUrl"}}};

struct ServiceGroup {
    std::string_view name;
    std::string_view description;
};

constexpr std::array serviceGroups{
    ServiceGroup{"state", "The households: show them as a seed, replace them, add to them"},
    ServiceGroup{"scenarios", "Ready states and faults, by name"},
    ServiceGroup{"faults", "What goes wrong on purpose"},
    ServiceGroup{"journal", "What clients have asked, and what was answered"},
    ServiceGroup{"snapshots", "States that are kept under a name"},
    ServiceGroup{"clock", "The time that tokens and time stamps follow"},
    ServiceGroup{"namespaces", "Worlds of their own, for tests side by side"},
};

struct ServiceEntry {
    std::string_view group;  ///< empty: none
    std::string_view name;
    std::string_view description;
    Declare declare;
    void (*run)(const ServiceCall& call);
};

// clang-format off
constexpr std::array serviceEntries{
    ServiceEntry{"", "status", "Say what the service is, and how much it has", &takesNothing,
                 [](const ServiceCall& call) { call.show(call.get("status"), &printRecord); }},
    ServiceEntry{"", "configuration", "Print a configuration that leads to the service",
                 &takesHousehold,
                 [](const ServiceCall& call) {
                     call.showDocument(call.get(call.target("client-configuration"))); }},
    ServiceEntry{"", "households", "Show all profiles, and how long their lists are",
                 &takesNothing,
                 [](const ServiceCall& call) {
                     call.show(call.get("households"), &printHouseholds); }},
    ServiceEntry{"", "profile", "Show a profile with its four lists, the searches too",
                 &takesProfile,
                 [](const ServiceCall& call) {
                     call.show(call.get(call.target("profiles/{}")), &printProfileLists); }},
    ServiceEntry{"", "reset",
                 "Make everything as it was at the start: households, faults, journal, clock",
                 &takesConfirmation,
                 [](const ServiceCall& call) {
                     call.confirmThat("make everything as it was at the start");
                     call.change({"POST", "reset"}, "reset"); }},
    ServiceEntry{"", "block", "Refuse a profile's requests", &takesProfile,
                 [](const ServiceCall& call) { setBlocked(call, true); }},
    ServiceEntry{"", "unblock", "Accept a profile's requests again", &takesProfile,
                 [](const ServiceCall& call) { setBlocked(call, false); }},
    ServiceEntry{"", "token", "Print a token for a profile; one that has expired, too",
                 [](CLI::App& command, ServiceOptions& options) {
                     takesProfile(command, options);
                     command.add_option("--expires-in", options.expires,
                                        "When it expires; below zero it has (default: as the "
                                        "service's own)")->type_name("SECONDS"); },
                 &makeToken},

    ServiceEntry{"state", "show", "Print all households as a seed", &takesNothing,
                 [](const ServiceCall& call) { call.showDocument(call.get("state")); }},
    ServiceEntry{"state", "replace", "Replace all households by those of a seed",
                 [](CLI::App& command, ServiceOptions& options) {
                     takesFile(command, options);
                     addConfirmation(command, options.isConfirmed); },
                 [](const ServiceCall& call) {
                     const std::string seed = call.document();
                     call.confirmThat("replace all households");
                     call.change({"PUT", "state", seed}, "replaced all households"); }},
    ServiceEntry{"state", "add", "Add what a seed describes; a profile that is there is replaced",
                 &takesFile,
                 [](const ServiceCall& call) {
                     call.change({"POST", "state", call.document()}, "added"); }},

    ServiceEntry{"scenarios", "list", "Show the ready scenarios", &takesNothing,
                 [](const ServiceCall& call) {
                     call.showRecords(call.get("scenarios"), "scenarios", scenarioColumns); }},
    ServiceEntry{"scenarios", "apply",
                 "Put a scenario in the place of the faults, or of all households",
                 &takesNameToDestroy, &applyScenario},

    ServiceEntry{"faults", "list", "Show the faults that are set", &takesNothing,
                 [](const ServiceCall& call) {
                     call.showRecords(call.get("faults"), "faults", faultColumns); }},
    ServiceEntry{"faults", "add", "Set a fault",
                 [](CLI::App& command, ServiceOptions& options) {
                     addArgument(command, options, "KIND",
                                 "What happens: status, delay, throttle, refuse, resetBefore, "
                                 "resetAfter, resetMiddle, truncate, malformed, contentType, "
                                 "expiredToken, revokedToken or clockSkew")->required(false);
                     command.add_option("FIELD", options.fields,
                                        "How and when, each as NAME=VALUE: count, probability, "
                                        "seed, until, name; operation, profile, household, method; "
                                        "and those of the kind")->type_name("");
                     takesFile(command, options); },
                 &addFault},
    ServiceEntry{"faults", "clear", "End a fault, or all",
                 [](CLI::App& command, ServiceOptions& options) {
                     addArgument(command, options, "FAULT",
                                 "Its number, as list shows it (default: all)")->required(false); },
                 [](const ServiceCall& call) {
                     const bool isOne = !call.options.argument.empty();
                     call.change({"DELETE", isOne ? call.target("faults/{}") : "faults"},
                                 isOne ? "ended the fault" : "ended all faults"); }},

    ServiceEntry{"journal", "list", "Show the requests that match, newest first",
                 [](CLI::App& command, ServiceOptions& options) {
                     takesFilter(command, options);
                     addNumber(command, "--limit", options.limit, "How many (default 100)");
                     command.add_flag("--oldest-first", options.isOldestFirst,
                                      "Oldest first"); },
                 [](const ServiceCall& call) {
                     call.showRecords(call.get("journal" + filterQueryOf(call.options)), "entries",
                                      journalColumns); }},
    ServiceEntry{"journal", "show", "Show one request with its reply",
                 [](CLI::App& command, ServiceOptions& options) {
                     addArgument(command, options, "ENTRY", "Its number, as list shows it"); },
                 [](const ServiceCall& call) {
                     call.show(call.get(call.target("journal/{}")), &printJournalEntry); }},
    ServiceEntry{"journal", "count", "Print how many requests match", &takesFilter,
                 [](const ServiceCall& call) {
                     call.show(call.ask({"POST", "journal/count",
                                         filterBodyOf(call.options).text()}),
                               [](const Session& session, const JSONDictionary& document) {
                                   session.terminal.line(cellOf(document, "count")); }); }},
    ServiceEntry{"journal", "verify",
                 "Check that as many requests came as expected (default: one or more)",
                 [](CLI::App& command, ServiceOptions& options) {
                     takesFilter(command, options);
                     addNumber(command, "--exactly", options.exactly, "So many");
                     addNumber(command, "--at-least", options.atLeast, "So many, or more");
                     addNumber(command, "--at-most", options.atMost, "No more than so many"); },
                 &verifyJournal},
    ServiceEntry{"journal", "wait", "Wait until requests that match have come",
                 [](CLI::App& command, ServiceOptions& options) {
                     takesFilter(command, options);
                     addNumber(command, "--count", options.count, "How many (default 1)");
                     command.add_option("--timeout", options.timeout,
                                        "For how long (default 10, 3600 at most)")
                         ->type_name("SECONDS"); },
                 &waitForJournal},
    ServiceEntry{"journal", "export", "Print all requests as an HTTP Archive", &takesNothing,
                 [](const ServiceCall& call) { call.showDocument(call.get("journal.har")); }},
    ServiceEntry{"journal", "clear", "Forget all requests", &takesConfirmation,
                 [](const ServiceCall& call) {
                     call.confirmThat("forget all requests");
                     call.change({"DELETE", "journal"}, "forgot all requests"); }},

    ServiceEntry{"snapshots", "list", "Show the snapshots", &takesNothing,
                 [](const ServiceCall& call) {
                     call.showRecords(call.get("snapshots"), "snapshots", snapshotColumns); }},
    ServiceEntry{"snapshots", "take", "Keep the state under a name", &takesName,
                 [](const ServiceCall& call) {
                     call.change({"PUT", call.target("snapshots/{}")}, "taken"); }},
    ServiceEntry{"snapshots", "restore", "Replace the state by a snapshot's", &takesNameToDestroy,
                 [](const ServiceCall& call) {
                     call.confirmThat("replace all households");
                     call.change({"POST", call.target("snapshots/{}/restore")}, "restored"); }},
    ServiceEntry{"snapshots", "delete", "Forget a snapshot", &takesNameToDestroy,
                 [](const ServiceCall& call) {
                     call.confirmThat("forget the snapshot " + inQuotes(call.options.argument));
                     call.change({"DELETE", call.target("snapshots/{}")}, "deleted"); }},

    ServiceEntry{"clock", "show", "Show the service's time", &takesNothing,
                 [](const ServiceCall& call) { showClock(call, {"GET", "clock"}); }},
    ServiceEntry{"clock", "set", "Set the time",
                 [](CLI::App& command, ServiceOptions& options) {
                     addArgument(command, options, "TIME", "In UTC, e.g. 2030-01-01T00:00:00Z"); },
                 [](const ServiceCall& call) {
                     ObjectText body;
                     body.addText("now", call.options.argument);
                     showClock(call, {"PUT", "clock", body.text()}); }},
    ServiceEntry{"clock", "freeze", "Let the time stand still", &takesNothing,
                 [](const ServiceCall& call) {
                     showClock(call, {"PUT", "clock", R"({"frozen":true})"}); }},
    ServiceEntry{"clock", "run", "Let the time go on", &takesNothing,
                 [](const ServiceCall& call) {
                     showClock(call, {"PUT", "clock", R"({"frozen":false})"}); }},
    ServiceEntry{"clock", "advance", "Move the time, backwards too",
                 [](CLI::App& command, ServiceOptions& options) {
                     addArgument(command, options, "SECONDS", "How far, e.g. 3600 or -60"); },
                 [](const ServiceCall& call) {
                     ObjectText body;
                     body.add("seconds", numberIn(call.options.argument, "SECONDS"));
                     showClock(call, {"POST", "clock/advance", body.text()}); }},

    ServiceEntry{"namespaces", "list", "Show the namespaces, the root first", &takesNothing,
                 [](const ServiceCall& call) {
                     call.showRecords(call.get("namespaces"), "namespaces", namespaceColumns); }},
    ServiceEntry{"namespaces", "add", "Make a namespace; it has what the service began with",
                 [](CLI::App& command, ServiceOptions& options) {
                     takesName(command, options);
                     takesFile(command, options); },
                 &makeNamespace},
    ServiceEntry{"namespaces", "delete", "Delete a namespace with all that it has",
                 &takesNameToDestroy,
                 [](const ServiceCall& call) {
                     call.confirmThat("delete the namespace " + inQuotes(call.options.argument));
                     call.change({"DELETE", call.target("namespaces/{}")}, "deleted"); }},
};
// clang-format on

void addAdminOptions(CLI::App& command, AdminOptions& options) {
    command
        .add_option("--url", options.url,
                    "The service's address (default: $KESTRIN_PROFILE_SERVICE_URL, then that of "
                    "the configuration)")
        ->type_name("URL");
    command
        .add_option("--namespace", options.nameOfSpace,
                    "The namespace (default: that of the address)")
        ->type_name("NAME");
    command
        .add_option("--secret-file", options.secretFile,
                    "The file whose first line is the service's secret (default: "
                    "$KESTRIN_PROFILE_SERVICE_SECRET, the secret itself)")
        ->type_name("FILE");
}

void addEntry(CLI::App& group, const ServiceEntry& entry, Command& chosen,
              const std::shared_ptr<ServiceOptions>& options) {
    auto& command = *group.add_subcommand(std::string(entry.name), std::string(entry.description));
    entry.declare(command, *options);
    addAdminOptions(command, options->admin);
    command.callback([&entry, &chosen, options] {
        chosen = [&entry, options](Session& session) {
            options->admin.isRootWanted = entry.group == "namespaces";
            entry.run(ServiceCall(session, *options));
            return ExitCode::ok;
        };
    });
}

}  // namespace

void addServiceCommand(CLI::App& app, Command& chosen) {
    const auto options = std::make_shared<ServiceOptions>();
    auto& service = *app.add_subcommand(
        "service", "What a development service has, is asked and does wrong on purpose");
    service.require_subcommand(1);
    for (const auto& entry : serviceEntries)
        if (entry.group.empty()) addEntry(service, entry, chosen, options);
    for (const auto& group : serviceGroups) {
        auto& below =
            *service.add_subcommand(std::string(group.name), std::string(group.description));
        below.require_subcommand(1);
        for (const auto& entry : serviceEntries)
            if (entry.group == group.name) addEntry(below, entry, chosen, options);
    }
}

}  // namespace KestrinProfileCLI
