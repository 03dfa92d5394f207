#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/object.hpp>

#include <kestrin-profile-server/domain/Timestamp.hpp>
#include <kestrin-profile-server/storage/Database.hpp>

namespace KestrinProfileServer {

/// The four lists that a profile has per brand.
enum class ListKind { history, favorites, watchlist, searches };

/// The list's name in replies and in the database.
[[nodiscard]] std::string_view listID(ListKind kind);

/// Which list: of which profile, for which brand.
struct ListAddress {
    std::int64_t profile = 0;
    ListKind kind{};
    std::string brand;
};

struct Entry {
    std::string id;
    std::optional<std::string> type;
    std::optional<std::int64_t> progress;
    std::optional<bool> isCompleted;
    Milliseconds added = 0;
};

/// Puts the entry in front. When the list has it already it moves; absent values keep the former
/// ones. Then drops the oldest entries beyond `maxSize`.
void putInFront(Connection& connection, const ListAddress& list, const Entry& entry,
                std::size_t maxSize);

/// The entries, newest first, at most `maxSize`.
[[nodiscard]] std::vector<Entry> entriesOf(Connection& connection, const ListAddress& list,
                                           std::size_t maxSize);

[[nodiscard]] std::optional<Entry> findEntry(Connection& connection, const ListAddress& list,
                                             const std::string& id);

/// Deletes the entry if it is there.
void deleteEntry(Connection& connection, const ListAddress& list, const std::string& id);

/// Deletes every entry of the list.
void clearList(Connection& connection, const ListAddress& list);

/// The list as the protocol writes it.
[[nodiscard]] boost::json::object listJSON(ListKind kind, std::size_t maxSize,
                                           const std::vector<Entry>& entries);

}  // namespace KestrinProfileServer
