#include <array>

#include <kestrin-profile-server/domain/JSONText.hpp>
#include <kestrin-profile-server/domain/Lists.hpp>

namespace KestrinProfileServer {
namespace {

constexpr std::array<std::string_view, 4> listIDs{"history", "favorites", "watchlist", "searches"};

constexpr std::string_view moveInFront = R"sql(
    UPDATE entries SET
        position = (SELECT max(position) + 1 FROM entries
                    WHERE profile = ?1 AND list = ?2 AND brand = ?3),
        type = coalesce(?5, type),
        progress = coalesce(?6, progress),
        completed = coalesce(?7, completed),
        added = ?8
    WHERE profile = ?1 AND list = ?2 AND brand = ?3 AND id = ?4
)sql";

constexpr std::string_view insertInFront = R"sql(
    INSERT INTO entries (profile, list, brand, position, id, type, progress, completed, added)
    VALUES (?1, ?2, ?3,
            (SELECT coalesce(max(position), 0) + 1 FROM entries
             WHERE profile = ?1 AND list = ?2 AND brand = ?3),
            ?4, ?5, ?6, ?7, ?8)
)sql";

constexpr std::string_view dropOldest = R"sql(
    DELETE FROM entries
    WHERE profile = ?1 AND list = ?2 AND brand = ?3 AND position <=
        (SELECT position FROM entries WHERE profile = ?1 AND list = ?2 AND brand = ?3
         ORDER BY position DESC LIMIT 1 OFFSET ?4)
)sql";

constexpr std::string_view selectNewest =
    "SELECT id, type, progress, completed, added FROM entries"
    " WHERE profile = ? AND list = ? AND brand = ? ORDER BY position DESC LIMIT ?";

constexpr std::string_view selectOne =
    "SELECT id, type, progress, completed, added FROM entries"
    " WHERE profile = ? AND list = ? AND brand = ? AND id = ?";

Entry entryIn(const Query& query) {
    const auto completed = query.optionalInteger(3);
    return Entry{query.text(0), query.optionalText(1), query.optionalInteger(2),
                 completed ? std::optional(*completed != 0) : std::nullopt, query.integer(4)};
}

void appendEntry(std::string& json, const Entry& entry) {
    json += R"({"id":)";
    appendJSONText(json, entry.id);
    if (entry.type) {
        json += R"(,"type":)";
        appendJSONText(json, *entry.type);
    }
    if (entry.progress) {
        json += R"(,"progress":)";
        json += std::to_string(*entry.progress);
    }
    if (entry.isCompleted) {
        json += R"(,"isCompleted":)";
        json += *entry.isCompleted ? "true" : "false";
    }
    json += R"(,"autoAddTimestamp":")";
    json += timestampText(entry.added);
    json += "\"}";
}

}  // namespace

std::string_view listID(ListKind kind) {
    return listIDs[static_cast<std::size_t>(kind)];
}

void putInFront(Connection& connection, const ListAddress& list, const Entry& entry,
                std::size_t maxSize) {
    const auto written = [&](std::string_view statement) {
        return Query(connection, statement, list.profile, listID(list.kind), list.brand, entry.id,
                     entry.type, entry.progress, entry.isCompleted, entry.added)
            .run();
    };
    if (written(moveInFront) > 0) return;
    written(insertInFront);
    Query(connection, dropOldest, list.profile, listID(list.kind), list.brand,
          static_cast<std::int64_t>(maxSize))
        .run();
}

std::vector<Entry> entriesOf(Connection& connection, const ListAddress& list, std::size_t maxSize) {
    std::vector<Entry> entries;
    Query query(connection, selectNewest, list.profile, listID(list.kind), list.brand,
                static_cast<std::int64_t>(maxSize));
    while (query.next())
        entries.push_back(entryIn(query));
    return entries;
}

std::optional<Entry> findEntry(Connection& connection, const ListAddress& list,
                               const std::string& id) {
    Query query(connection, selectOne, list.profile, listID(list.kind), list.brand, id);
    return query.next() ? std::optional(entryIn(query)) : std::nullopt;
}

void deleteEntry(Connection& connection, const ListAddress& list, const std::string& id) {
    Query(connection, "DELETE FROM entries WHERE profile = ? AND list = ? AND brand = ? AND id = ?",
          list.profile, listID(list.kind), list.brand, id)
        .run();
}

void clearList(Connection& connection, const ListAddress& list) {
    Query(connection, "DELETE FROM entries WHERE profile = ? AND list = ? AND brand = ?",
          list.profile, listID(list.kind), list.brand)
        .run();
}

std::string listJSON(ListKind kind, std::size_t maxSize, const std::vector<Entry>& entries) {
    std::string json = R"({"id":)";
    json.reserve(64 + entries.size() * 128);
    appendJSONText(json, listID(kind));
    json += R"(,"maxSize":)" + std::to_string(maxSize) + R"(,"elements":[)";
    for (const Entry& entry : entries) {
        if (&entry != &entries.front()) json.push_back(',');
        appendEntry(json, entry);
    }
    json += "]}";
    return json;
}

}  // namespace KestrinProfileServer
