#include "AdminResults.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include <fmt/format.h>

#include "../Records.hpp"

namespace KestrinProfileCLI {

using HalvardSling::JSONDictionary;

namespace {

using Cells = std::vector<std::string>;

std::string textOf(const JSONDictionary& record, std::string_view key) {
    return std::string(record.text(key).value_or("-"));
}

/// The records under a key; none if there are none.
std::vector<JSONDictionary> recordsOf(const JSONDictionary& document, std::string_view key) {
    std::vector<JSONDictionary> all;
    if (const auto records = document.dictionaries(key))
        for (const auto& record : *records)
            all.push_back(record);
    return all;
}

void printMessage(const Session& session, char direction, const JSONDictionary& message) {
    const auto line = [&](std::string_view text) {
        session.terminal.line(fmt::format("{} {}", direction, printable(text)));
    };
    for (const auto& header : recordsOf(message, "headers"))
        line(fmt::format("{}: {}", textOf(header, "name"), textOf(header, "value")));
    auto body = message.text("body");
    if (!body) body = message.text("bodyBase64");
    if (!body || body->empty()) return;
    session.terminal.line(std::string(1, direction));
    line(*body);
}

}  // namespace

JSONDictionary adminDocumentOf(const HalvardSling::Response& reply) {
    HalvardSling::JSONLimits limits;
    limits.maxMemory = std::size_t{1} << 30U;  // as much as the service has; it is our own
    auto parsed = JSONDictionary::parse(reply.sharedBody(), limits);
    if (auto* const document = std::get_if<JSONDictionary>(&parsed)) return std::move(*document);
    throw CommandError(
        {ExitCode::serviceError,
         "the reply is no JSON object: " + std::get<HalvardSling::JSONFailure>(parsed).text(),
         "check --url: something else than a development service may be there"});
}

void printRecords(const Session& session, const JSONDictionary& document, std::string_view key,
                  std::span<const AdminColumn> columns) {
    Cells heading;
    for (const auto& column : columns)
        heading.emplace_back(column.heading);
    std::vector<Cells> rows;
    for (const auto& record : recordsOf(document, key)) {
        session.interruption().check();
        Cells& row = rows.emplace_back();
        for (const auto& column : columns)
            row.push_back(cellOf(record, column.key));
    }
    if (!rows.empty()) session.terminal.table(heading, rows);
    std::string count = countOf(rows.size(), "entry", "entries");
    if (const auto total = document.integer("total")) count += fmt::format(" of {}", *total);
    session.terminal.line(session.terminal.styled(Style::faint, count));
}

void printRecord(const Session& session, const JSONDictionary& record) {
    std::size_t columns = 0;
    for (const auto key : record.keys())
        columns = std::max(columns, columnsOf(key));
    for (const auto key : record.keys())
        session.terminal.line(padded(printable(key), columns) + "  " + cellOf(record, key));
}

void printHouseholds(const Session& session, const JSONDictionary& document) {
    constexpr std::array<AdminColumn, 7> columns{{{"PROFILE", "profileId"},
                                                  {"NAME", "username"},
                                                  {"BLOCKED", "blocked"},
                                                  {"HISTORY", "counts.history"},
                                                  {"FAVORITES", "counts.favorites"},
                                                  {"WATCHLIST", "counts.watchlist"},
                                                  {"SEARCHES", "counts.searches"}}};
    Cells heading{"HOUSEHOLD"};
    for (const auto& column : columns)
        heading.emplace_back(column.heading);
    std::vector<Cells> rows;
    for (const auto& household : recordsOf(document, "households"))
        for (const auto& profile : recordsOf(household, "profiles")) {
            Cells& row = rows.emplace_back(Cells{cellOf(household, "id")});
            for (const auto& column : columns)
                row.push_back(cellOf(profile, column.key));
        }
    session.terminal.table(heading, rows);
}

void printProfileLists(const Session& session, const JSONDictionary& profile) {
    struct List {
        const char* name;
        const char* id;
    };
    constexpr std::array lists{List{"history", "videoId"}, List{"favorites", "showId"},
                               List{"watchlist", "videoId"}, List{"searches", "term"}};
    JSONDictionary record = profile;
    std::vector<Cells> rows;
    for (const auto& list : lists) {
        record.remove(list.name);
        for (const auto& entry : recordsOf(profile, list.name)) {
            session.interruption().check();
            rows.push_back({list.name, cellOf(entry, list.id), cellOf(entry, "progress"),
                            cellOf(entry, "autoAddTimestamp"), cellOf(entry, "brand")});
        }
    }
    printRecord(session, record);
    if (!rows.empty())
        session.terminal.table({"LIST", "ENTRY", "PROGRESS", "ADDED (UTC)", "BRAND"}, rows);
}

void printJournalEntry(const Session& session, const JSONDictionary& entry) {
    const auto line = [&](const std::string& text) { session.terminal.line(printable(text)); };
    line(fmt::format("> {} {}", textOf(entry, "method"), textOf(entry, "target")));
    if (const auto request = entry.dictionary("request")) printMessage(session, '>', *request);
    line(entry.integer("status") ? "< status " + cellOf(entry, "status") : "< no reply");
    if (const auto reply = entry.dictionary("reply")) printMessage(session, '<', *reply);
    for (const auto& finding : recordsOf(entry, "findings"))
        line(fmt::format("{}: {}", textOf(finding, "code"), textOf(finding, "detail")));
}

void printNearMisses(const Session& session, const JSONDictionary& verified) {
    for (const auto& miss : recordsOf(verified, "nearMisses")) {
        const auto entry = miss.dictionary("entry").value_or(JSONDictionary());
        session.terminal.line(fmt::format("near miss: entry {}, {} {}", cellOf(entry, "id"),
                                          cellOf(entry, "method"), cellOf(entry, "target")));
        for (const auto& difference : recordsOf(miss, "differences"))
            session.terminal.line(
                fmt::format("  {}: expected {}, was {}", cellOf(difference, "field"),
                            cellOf(difference, "expected"), cellOf(difference, "actual")));
    }
}

}  // namespace KestrinProfileCLI
