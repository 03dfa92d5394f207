#include <algorithm>
#include <array>
#include <unordered_map>
#include <utility>

#include <boost/json.hpp>

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

constexpr std::string_view insertAt = R"sql(
    INSERT INTO entries (profile, list, brand, position, id, type, progress, completed, added)
    VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)
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

ListKind kindNamed(std::string_view name) {
    return static_cast<ListKind>(std::ranges::find(listIDs, name) - listIDs.begin());
}

Entry entryIn(const Query& query) {
    const auto completed = query.optionalInteger(3);
    return Entry{query.text(0), query.optionalText(1), query.optionalInteger(2),
                 completed ? std::optional(*completed != 0) : std::nullopt, query.integer(4)};
}

boost::json::object entryJSON(const Entry& entry, const boost::json::storage_ptr& memory) {
    boost::json::object json(memory);
    json.reserve(5);
    json["id"] = entry.id;
    if (entry.type) json["type"] = *entry.type;
    if (entry.progress) json["progress"] = *entry.progress;
    if (entry.isCompleted) json["isCompleted"] = *entry.isCompleted;
    json["autoAddTimestamp"] = timestampText(entry.added);
    return json;
}

/// Moves the entry to the front, or inserts it there; true if it is new.
bool placeInFront(Connection& connection, const ListAddress& list, const Entry& entry) {
    const auto written = [&](std::string_view statement) {
        return Query(connection, statement, list.profile, listID(list.kind), list.brand, entry.id,
                     entry.type, entry.progress, entry.isCompleted, entry.added)
            .run();
    };
    if (written(moveInFront) > 0) return false;
    written(insertInFront);
    return true;
}

void dropOldestBeyond(Connection& connection, const ListAddress& list, std::size_t maxSize) {
    Query(connection, dropOldest, list.profile, listID(list.kind), list.brand,
          static_cast<std::int64_t>(maxSize))
        .run();
}

/// The entries of which something remains, newest first, each once and with its last type.
std::vector<NewEntries::Item> remaining(const NewEntries& entries, std::size_t maxSize) {
    std::vector<NewEntries::Item> newest;
    std::unordered_map<std::string_view, std::size_t> places;
    for (std::size_t index = entries.size(); index-- > 0;) {
        const NewEntries::Item item = entries[index];
        const auto known = places.find(item.id);
        if (known != places.end()) {
            auto& type = newest[known->second].type;
            if (!type) type = item.type;
        } else if (newest.size() < maxSize) {
            places.emplace(item.id, newest.size());
            newest.push_back(item);
        }
    }
    return newest;
}

}  // namespace

std::string_view listID(ListKind kind) {
    return listIDs[static_cast<std::size_t>(kind)];
}

void NewEntries::add(std::string_view id, std::optional<std::string_view> type) {
    const Extent extent = added(id);
    places_.push_back({extent, added(type.value_or("")), type.has_value()});
}

NewEntries::Item NewEntries::operator[](std::size_t index) const {
    const Places& places = places_[index];
    return {textAt(places.id), places.hasType ? std::optional(textAt(places.type)) : std::nullopt};
}

NewEntries::Extent NewEntries::added(std::string_view text) {
    const auto begin = static_cast<std::uint32_t>(texts_.size());
    texts_ += text;
    return {begin, static_cast<std::uint32_t>(text.size())};
}

std::string_view NewEntries::textAt(const Extent& extent) const {
    return std::string_view(texts_).substr(extent.begin, extent.size);
}

void putInFront(Connection& connection, const ListAddress& list, const Entry& entry,
                std::size_t maxSize) {
    if (placeInFront(connection, list, entry)) dropOldestBeyond(connection, list, maxSize);
}

void putInFront(Connection& connection, const ListAddress& list, const NewEntries& entries,
                Milliseconds added, std::size_t maxSize) {
    const auto newest = remaining(entries, maxSize);
    for (auto item = newest.rbegin(); item != newest.rend(); ++item) {
        const auto& type = item->type;
        placeInFront(connection, list,
                     Entry{.id = std::string(item->id),
                           .type = type ? std::optional<std::string>(*type) : std::nullopt,
                           .progress = {},
                           .isCompleted = {},
                           .added = added});
    }
    dropOldestBeyond(connection, list, maxSize);
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

void replaceLists(Connection& connection, std::int64_t profile, ListKind kind,
                  const std::map<std::string_view, std::vector<const Entry*>>& brands) {
    Query(connection, "DELETE FROM entries WHERE profile = ? AND list = ?", profile, listID(kind))
        .run();
    for (const auto& [brand, entries] : brands) {
        auto position = static_cast<std::int64_t>(entries.size());
        for (const Entry* const entry : entries) {
            Query(connection, insertAt, profile, listID(kind), brand, position, entry->id,
                  entry->type, entry->progress, entry->isCompleted, entry->added)
                .run();
            --position;
        }
    }
}

void forEachEntry(Connection& connection, std::int64_t profile, ListKind kind,
                  const std::function<void(std::string brand, Entry entry)>& take) {
    Query query(connection,
                "SELECT id, type, progress, completed, added, brand FROM entries"
                " WHERE profile = ? AND list = ? ORDER BY brand, position DESC",
                profile, listID(kind));
    while (query.next())
        take(query.text(5), entryIn(query));
}

void trimLists(Connection& connection, std::size_t maxSize) {
    const auto wanted = static_cast<std::int64_t>(maxSize);
    Query former(connection, "SELECT value FROM settings WHERE name = 'max-size'");
    const bool isShorter = !former.next() || std::stoll(former.text(0)) > wanted;
    Query(connection, "INSERT OR REPLACE INTO settings (name, value) VALUES ('max-size', ?)",
          std::to_string(maxSize))
        .run();
    if (!isShorter) return;
    std::vector<ListAddress> tooLong;
    Query query(connection,
                "SELECT profile, list, brand FROM entries GROUP BY profile, list, brand"
                " HAVING count(*) > ?",
                wanted);
    while (query.next())
        tooLong.push_back({query.integer(0), kindNamed(query.text(1)), query.text(2)});
    for (const ListAddress& list : tooLong)
        dropOldestBeyond(connection, list, maxSize);
}

boost::json::object listJSON(ListKind kind, std::size_t maxSize,
                             const std::vector<Entry>& entries) {
    // Six pieces of memory an entry, which go together.
    const auto memory = boost::json::make_shared_resource<boost::json::monotonic_resource>();
    boost::json::array elements(memory);
    elements.reserve(entries.size());
    for (const Entry& entry : entries)
        elements.push_back(entryJSON(entry, memory));
    return {{{"id", listID(kind)}, {"maxSize", maxSize}, {"elements", std::move(elements)}},
            memory};
}

}  // namespace KestrinProfileServer
