#include "Results.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>
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

/// How far an entry was watched, and whether that was to the end. How long a video is nobody knows,
/// so there is no share of it to show.
Row progressCells(const UserProfileElement& element, std::size_t columns) {
    const std::string time = element.progress ? durationText(*element.progress) : "-";
    return {std::string(columns - std::min(columns, time.size()), ' ') + time,
            element.isCompleted.value_or(false) ? "completed" : ""};
}

/// How many columns the longest progress takes.
std::size_t progressColumns(const std::vector<UserProfileElement>& elements) {
    std::size_t columns = 0;
    for (const auto& element : elements)
        if (element.progress) columns = std::max(columns, durationText(*element.progress).size());
    return columns;
}

Row rowOf(const UserProfileElement& element, std::size_t columns, const ListFormat& format) {
    Row row{shown(element.id), shown(element.type)};
    if (format.hasProgress) std::ranges::move(progressCells(element, columns), back_inserter(row));
    row.push_back(element.autoAddTimestamp ? dateText(*element.autoAddTimestamp, format.utc) : "-");
    return chosenCells(std::move(row), keysOfEntries(format.hasProgress), format.fields);
}

Row headingOf(const ListFormat& format) {
    Row heading{format.item, "KIND"};
    if (format.hasProgress) heading.insert(heading.end(), {"PROGRESS", "STATE"});
    heading.emplace_back(format.utc ? "ADDED (UTC)" : "ADDED");
    return chosenCells(std::move(heading), keysOfEntries(format.hasProgress), format.fields);
}

/// A list with the fields of its entries that are chosen.
JSONDictionary documentOf(const UserProfile& list, const Fields& fields) {
    JSONDictionary document = list.encode();
    const auto all = document.dictionaries(UserProfile::Keys::elements);
    if (fields.empty() || !all) return document;
    std::vector<JSONDictionary> elements;
    for (const auto& element : *all)
        elements.push_back(chosenKeys(element, fields));
    document.setDictionaries(UserProfile::Keys::elements, elements);
    return document;
}

std::string countText(const UserProfile& list) {
    std::string text = countOf(list.elements->size(), "entry", "entries");
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

std::span<const std::string_view> keysOfEntries(bool hasProgress) {
    using Keys = UserProfileElement::Keys;
    static constexpr std::array<std::string_view, 5> all{Keys::id, Keys::type, Keys::progress,
                                                         Keys::isCompleted, Keys::autoAddTimestamp};
    static constexpr std::array<std::string_view, 3> some{Keys::id, Keys::type,
                                                          Keys::autoAddTimestamp};
    if (hasProgress) return all;
    return some;
}

std::span<const std::string_view> keysOfProfiles() {
    using Keys = User::Keys;
    static constexpr std::array<std::string_view, 5> all{
        Keys::profileID, Keys::username, Keys::avatar, Keys::group, Keys::defaultUser};
    return all;
}

std::vector<std::string> linesOf(const Session& session, const UserProfile& list,
                                 const ListFormat& format) {
    if (session.options.json) return {jsonLine(documentOf(list, format.fields))};
    if (!list.elements)
        throw CommandError({ExitCode::serviceError, "the reply holds no usable list",
                            "see what it holds with --json"});
    const std::size_t columns = progressColumns(*list.elements);
    std::vector<Row> rows;
    for (const auto& element : *list.elements) {
        session.interruption().check();
        rows.push_back(rowOf(element, columns, format));
    }
    auto lines = session.terminal.tableLines(headingOf(format), rows);
    lines.push_back(session.terminal.styled(Style::faint, countText(list)));
    return lines;
}

std::vector<std::string> linesOf(const Session& session, const std::vector<User>& users,
                                 const Fields& fields) {
    if (session.options.json) {
        std::vector<JSONDictionary> records;
        for (const auto& user : users)
            records.push_back(chosenKeys(user.encode(), fields));
        JSONDictionary document;
        document.setDictionaries(Profile::Keys::getProfiles, records);
        return {jsonLine(document)};
    }
    const std::string parent = ConfigurationManager::parentProfileID();
    std::vector<Row> rows;
    for (const auto& user : users) {
        session.interruption().check();
        rows.push_back(chosenCells(rowOf(user, parent), keysOfProfiles(), fields));
    }
    const Row heading{"PROFILE", "NAME", "AVATAR", "GROUP", "MARKS"};
    return session.terminal.tableLines(chosenCells(heading, keysOfProfiles(), fields), rows);
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
