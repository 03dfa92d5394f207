#include "Results.hpp"

#include <algorithm>
#include <variant>

#include <fmt/format.h>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "Format.hpp"

namespace KestrinProfileCLI {

using HalvardSling::JSONDictionary;
using KestrinConfigManager::ConfigurationManager;
using KestrinProfile::Profile;
using KestrinProfile::User;
using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;

namespace {

using Row = std::vector<std::string>;

std::string jsonLine(const JSONDictionary& document) {
    return printableJSON(document.toJSON());
}

std::string shown(const std::optional<std::string>& text) {
    return printable(text.value_or("-"));
}

/// What the progress of a list's entries is shown relative to.
struct ProgressScale {
    explicit ProgressScale(const std::vector<UserProfileElement>& elements) {
        for (const auto& element : elements)
            longest = std::max(longest, element.progress.value_or(0));
        columns = durationText(longest).size();
    }

    std::int64_t longest = 1;  ///< the longest progress, at least one second
    std::size_t columns;       ///< that it takes as a text
};

/// How far an entry was watched: the time, the bar, and whether it was to the end.
Row progressCells(const UserProfileElement& element, const ProgressScale& scale) {
    const bool completed = element.isCompleted.value_or(false);
    if (!element.progress) return {"-", completed ? bar(1, 1) : "", completed ? "completed" : ""};
    const std::string time = durationText(*element.progress);
    return {std::string(scale.columns - std::min(scale.columns, time.size()), ' ') + time,
            completed ? bar(1, 1) : bar(*element.progress, scale.longest),
            completed ? "completed" : ""};
}

Row rowOf(const UserProfileElement& element, const ProgressScale& scale, const ListFormat& format) {
    Row row{shown(element.id), shown(element.type)};
    if (format.hasProgress) std::ranges::move(progressCells(element, scale), back_inserter(row));
    row.push_back(element.autoAddTimestamp ? dateText(*element.autoAddTimestamp, format.utc) : "-");
    return row;
}

Row headingOf(const ListFormat& format) {
    Row heading{format.item, "KIND"};
    if (format.hasProgress) heading.insert(heading.end(), {"PROGRESS", "OF LONGEST", "STATE"});
    heading.emplace_back(format.utc ? "ADDED (UTC)" : "ADDED");
    return heading;
}

std::string countText(const UserProfile& list) {
    const std::size_t count = list.elements->size();
    std::string text = fmt::format("{} {}", count, count == 1 ? "entry" : "entries");
    return list.maxSize ? text + fmt::format(", {} at most", *list.maxSize) : text;
}

Row rowOf(const User& user, const std::string& parent) {
    Row marks;
    if (user.profileID == parent) marks.emplace_back("parent");
    if (user.defaultUser) marks.emplace_back("default");
    return {shown(user.profileID), shown(user.username), shown(user.avatar), shown(user.group),
            joined(marks, ", ")};
}

/// The document of a reply, or one with its status if it has none.
JSONDictionary documentOf(const HalvardSling::Response& reply) {
    auto parsed = JSONDictionary::parse(reply.sharedBody());
    if (auto* const document = std::get_if<JSONDictionary>(&parsed)) return std::move(*document);
    JSONDictionary status;
    status.setInteger("status", reply.status());
    return status;
}

}  // namespace

std::vector<std::string> linesOf(const Session& session, const UserProfile& list,
                                 const ListFormat& format) {
    if (session.options.json) return {jsonLine(list.encode())};
    if (!list.elements)
        throw CommandError({ExitCode::serviceError, "the reply holds no usable list",
                            "see what it holds with --json"});
    const ProgressScale scale(*list.elements);
    std::vector<Row> rows;
    for (const auto& element : *list.elements) {
        session.interruption().check();
        rows.push_back(rowOf(element, scale, format));
    }
    auto lines = session.terminal.tableLines(headingOf(format), rows);
    lines.push_back(session.terminal.styled(Style::faint, countText(list)));
    return lines;
}

std::vector<std::string> linesOf(const Session& session, const std::vector<User>& users) {
    if (session.options.json) {
        std::vector<JSONDictionary> records;
        for (const auto& user : users)
            records.push_back(user.encode());
        JSONDictionary document;
        document.setDictionaries(Profile::Keys::getProfiles, records);
        return {jsonLine(document)};
    }
    const std::string parent = ConfigurationManager::parentProfileID();
    std::vector<Row> rows;
    for (const auto& user : users) {
        session.interruption().check();
        rows.push_back(rowOf(user, parent));
    }
    return session.terminal.tableLines({"PROFILE", "NAME", "AVATAR", "GROUP", "MARKS"}, rows);
}

void print(const Session& session, const User& user) {
    if (session.options.json) return session.terminal.json(user.encode());
    for (const auto& line : linesOf(session, std::vector{user}))
        session.terminal.line(line);
}

void printDone(const Session& session, const HalvardSling::Response& reply,
               const std::string& text) {
    if (session.options.json) return session.terminal.json(documentOf(reply));
    session.terminal.line(printable(text));
}

}  // namespace KestrinProfileCLI
