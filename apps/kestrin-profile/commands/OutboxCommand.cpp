#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinHousehold/outbox/HouseholdDelivery.hpp>
#include <KestrinHousehold/outbox/SQLiteOutboxStore.hpp>

#include "../Confirmation.hpp"
#include "../Fields.hpp"
#include "../Format.hpp"
#include "../OutboxFile.hpp"
#include "../Records.hpp"
#include "Commands.hpp"

namespace KestrinProfileCLI {

namespace fs = std::filesystem;
using HalvardSling::JSONDictionary;
using KestrinHousehold::OutboxEntry;
using KestrinHousehold::SQLiteOutboxStore;

namespace {

using Entries = std::vector<OutboxEntry>;

/// The entries of the file, which is not made if it is not there.
Entries entriesOf(const Session& session, SQLiteOutboxStore& store, const fs::path& file) {
    if (!fs::exists(file) && !fs::exists(file.string() + ".new")) return {};
    auto [entries, warnings] = store.load();
    session.interruption().check();
    for (const auto& warning : warnings)
        session.terminal.note("warning: " + printable(warning));
    return std::move(entries);
}

Entries entriesOf(const Session& session) {
    const fs::path file = outboxFile(session);
    SQLiteOutboxStore store(file, outboxPatience);
    return entriesOf(session, store, file);
}

void printJSON(const Session& session, const Entries& entries, const Fields& fields) {
    std::vector<JSONDictionary> waiting;
    std::vector<JSONDictionary> refused;
    for (const auto& entry : entries)
        (entry.refusal ? refused : waiting).push_back(chosenKeys(documentOf(entry), fields));
    JSONDictionary result;
    result.setDictionaries("waiting", waiting);
    result.setDictionaries("refused", refused);
    session.terminal.json(result);
}

/// What `outbox list` is told.
struct OutboxListOptions {
    std::string fields;  ///< of --fields; empty: all
};

constexpr std::array<std::string_view, 10> keysOfOutboxEntries{
    "number",     "profileId", "brand",  "operation", "item",
    "acceptedAt", "refusedAt", "status", "title",     "detail"};

/// A table of the chosen fields, by the keys that they have in JSON.
void printFields(const Session& session, const Entries& entries, const Fields& fields) {
    static const std::vector<std::string> headings{
        "ENTRY",          "PROFILE",       "BRAND",  "OPERATION", "ITEM",
        "ACCEPTED (UTC)", "REFUSED (UTC)", "STATUS", "TITLE",     "DETAIL"};
    std::vector<std::vector<std::string>> rows;
    for (const auto& entry : entries) {
        const auto document = documentOf(entry);
        std::vector<std::string> row;
        for (const auto key : keysOfOutboxEntries)
            row.push_back(cellOf(document, key));
        rows.push_back(chosenCells(std::move(row), keysOfOutboxEntries, fields));
    }
    session.terminal.table(chosenCells(headings, keysOfOutboxEntries, fields), rows);
}

std::vector<std::string> rowOf(const OutboxEntry& entry) {
    const auto age = std::chrono::system_clock::now() - entry.acceptedAt;
    return {std::to_string(entry.number),
            entry.refusal ? "refused" : "waiting",
            printable(entry.write.profileID),
            ageText(std::chrono::duration_cast<std::chrono::seconds>(age)),
            printable(wordsOf(entry.write)),
            entry.refusal ? printable(textOf(*entry.refusal)) : ""};
}

void printTable(const Session& session, const Entries& entries) {
    std::vector<std::vector<std::string>> rows;
    for (const auto& entry : entries)
        rows.push_back(rowOf(entry));
    session.terminal.table({"ENTRY", "STATE", "PROFILE", "AGE", "WRITE", "REASON"}, rows);
}

ExitCode list(Session& session, const OutboxListOptions& options) {
    const Fields fields = fieldsOf(options.fields, keysOfOutboxEntries);
    session.configure();
    const auto entries = entriesOf(session);
    if (session.options.json) {
        printJSON(session, entries, fields);
        return ExitCode::ok;
    }
    if (!entries.empty() && fields.empty())
        printTable(session, entries);
    else if (!entries.empty())
        printFields(session, entries, fields);
    const auto refused = std::ranges::count_if(
        entries, [](const OutboxEntry& entry) { return entry.refusal.has_value(); });
    session.terminal.line(session.terminal.styled(
        Style::faint, fmt::format("{} waiting, {} refused",
                                  static_cast<std::ptrdiff_t>(entries.size()) - refused, refused)));
    return ExitCode::ok;
}

/// Shows the requests.
ExitCode showRequests(Session& session) {
    KestrinHousehold::HouseholdDelivery delivery(session.household());
    for (const auto& entry : entriesOf(session)) {
        if (entry.refusal) continue;
        static_cast<void>(session.profile(entry.write.profileID));  // It has a bind now.
        try {
            static_cast<void>(session.waitFor(delivery.send(entry.write)));
        } catch (const OnlyShown&) {
            continue;
        }
    }
    return ExitCode::ok;
}

void printSent(const Session& session, const Tally& tally,
               const std::vector<const OpenOutbox::Event*>& refused) {
    if (session.options.json) {
        std::vector<JSONDictionary> entries;
        for (const auto* const event : refused)
            entries.push_back(documentOf(event->entry));
        JSONDictionary result;
        tally.addTo(result);
        result.setDictionaries("refusedEntries", entries);
        return session.terminal.json(result);
    }
    session.terminal.line(tally.text());
    for (const auto* const event : refused)
        session.terminal.line(printable(fmt::format("refused {}, {}: {}", event->entry.number,
                                                    wordsOf(event->entry.write),
                                                    textOf(event->entry.refusal.value()))));
}

[[noreturn]] void failFor(const Tally& tally, bool isRefused) {
    if (isRefused)
        throw CommandError({ExitCode::validation,
                            fmt::format("the service refuses {} for good", tally.refused),
                            "see them with outbox list; forget them with outbox drop"});
    const std::string message = fmt::format("{} not sent: {}", tally.waiting, tally.reason);
    if (tally.waitsForBind)
        throw CommandError({ExitCode::refused, message,
                            "obtain a bind for the profile: kestrin-profile bind PROFILE"});
    throw CommandError(
        {ExitCode::network, message, "try again later: kestrin-profile outbox send"});
}

ExitCode send(Session& session) {
    session.configure();
    if (session.options.dryRun) return showRequests(session);
    const OpenOutbox outbox(session);
    if (session.options.repeats == Repeats::many)
        outbox.drain(Session::patience);
    else
        outbox.settle(std::nullopt);

    const auto entries = outbox.waiting();  // before the fates, of which there may be more soon
    const auto fates = outbox.fates();
    Tally tally;
    std::vector<const OpenOutbox::Event*> refused;
    std::set<OpenOutbox::Number> waiting;
    for (const auto& entry : entries) {
        waiting.insert(entry.number);
        const auto fate = fates.find(entry.number);
        tally.add(fate == fates.end() ? nullptr : &fate->second);
    }
    for (const auto& [number, event] : fates) {
        if (waiting.contains(number)) continue;
        tally.add(&event);
        if (event.entry.refusal) refused.push_back(&event);
    }
    printSent(session, tally, refused);
    session.interruption().check();
    if (tally.refused > 0 || tally.waiting > 0) failFor(tally, tally.refused > 0);
    return ExitCode::ok;
}

/// What `outbox drop` is told.
struct DropOptions {
    std::vector<std::int64_t> numbers;
    bool all = false;
    bool isConfirmed = false;
};

std::string questionFor(const DropOptions& options) {
    if (options.all) return "drop every entry of the outbox";
    if (options.numbers.size() == 1)
        return fmt::format("drop the entry {} of the outbox", options.numbers.front());
    return fmt::format("drop {} entries of the outbox", options.numbers.size());
}

std::vector<std::int64_t> chosenOf(const DropOptions& options, const Entries& entries) {
    std::vector<std::int64_t> there;
    for (const auto& entry : entries)
        there.push_back(entry.number);
    if (options.all) return there;
    const std::set<std::int64_t> chosen(options.numbers.begin(), options.numbers.end());
    for (const auto number : chosen)
        if (std::ranges::find(there, number) == there.end())
            throw CommandError(
                {ExitCode::notFound,
                 fmt::format("the outbox has no entry {}; nothing was dropped", number),
                 "see what it has: kestrin-profile outbox list"});
    return {chosen.begin(), chosen.end()};
}

ExitCode drop(Session& session, const DropOptions& options) {
    if (options.all != options.numbers.empty())
        throw CommandError({ExitCode::usage, "what is to be dropped is not clear",
                            "give entries by their numbers, or --all"});
    session.configure();
    confirm(session, options.isConfirmed, questionFor(options));
    const fs::path file = outboxFile(session);
    SQLiteOutboxStore store(file, outboxPatience);
    const auto chosen = chosenOf(options, entriesOf(session, store, file));
    if (!session.options.dryRun && !chosen.empty()) store.commit({{}, chosen});
    if (session.options.json) {
        JSONDictionary result;
        result.setInteger("dropped", static_cast<std::int64_t>(chosen.size()));
        session.terminal.json(result);
    } else {
        session.terminal.line(fmt::format("{} {}",
                                          session.options.dryRun ? "would drop" : "dropped",
                                          countOf(chosen.size(), "entry", "entries")));
    }
    return ExitCode::ok;
}

}  // namespace

void addOutboxCommand(CLI::App& app, Command& chosen) {
    auto& group = *app.add_subcommand("outbox", "What --later has kept, and the service has not");
    group.require_subcommand(1);
    const auto listed = std::make_shared<OutboxListOptions>();
    auto& listing =
        *group.add_subcommand("list", "Show what waits, and what the service has refused");
    addFields(listing, listed->fields, keysOfOutboxEntries);
    onChosen(listing, chosen, listed, &list);
    group
        .add_subcommand("send",
                        "Send what waits; with --retry, go on for up to a minute while it fails")
        ->callback([&chosen] { chosen = &send; });

    const auto options = std::make_shared<DropOptions>();
    auto& dropping = *group.add_subcommand("drop", "Forget entries; they are not sent");
    dropping.add_option("ENTRY", options->numbers, "The number of an entry, as list shows it")
        ->type_name("");
    dropping.add_flag("--all", options->all, "All entries, those that were refused included");
    addConfirmation(dropping, options->isConfirmed);
    onChosen(dropping, chosen, options, &drop);
}

}  // namespace KestrinProfileCLI
