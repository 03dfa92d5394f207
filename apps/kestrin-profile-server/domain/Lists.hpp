#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
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

/// Many new entries, in the order in which they are added. They take little more memory than their
/// texts.
class NewEntries {
  public:
    struct Item {
        std::string_view id;
        std::optional<std::string_view> type;
    };

    void add(std::string_view id, std::optional<std::string_view> type);

    [[nodiscard]] std::size_t size() const { return places_.size(); }
    /// The views are valid until the next `add`.
    [[nodiscard]] Item operator[](std::size_t index) const;

  private:
    struct Extent {
        std::uint32_t begin = 0;
        std::uint32_t size = 0;
    };
    struct Places {
        Extent id;
        Extent type;
        bool hasType = false;
    };

    [[nodiscard]] Extent added(std::string_view text);
    [[nodiscard]] std::string_view textAt(const Extent& extent) const;

    std::string texts_;
    std::vector<Places> places_;
};

/// Puts the entry in front. When the list has it already it moves; absent values keep the former
/// ones. Then drops the oldest entries beyond `maxSize`.
void putInFront(Connection& connection, const ListAddress& list, const Entry& entry,
                std::size_t maxSize);

/// Puts the entries in front, one after another, so the last one ends up there; then drops the
/// oldest entries beyond `maxSize`. The database sees only the ones that remain.
void putInFront(Connection& connection, const ListAddress& list, const NewEntries& entries,
                Milliseconds added, std::size_t maxSize);

/// The entries, newest first, at most `maxSize`.
[[nodiscard]] std::vector<Entry> entriesOf(Connection& connection, const ListAddress& list,
                                           std::size_t maxSize);

[[nodiscard]] std::optional<Entry> findEntry(Connection& connection, const ListAddress& list,
                                             const std::string& id);

/// Deletes the entry if it is there.
void deleteEntry(Connection& connection, const ListAddress& list, const std::string& id);

/// Deletes every entry of the list.
void clearList(Connection& connection, const ListAddress& list);

/// Replaces the profile's lists of one kind.
/// @param brands  the entries of each brand, newest first, each once
void replaceLists(Connection& connection, std::int64_t profile, ListKind kind,
                  const std::map<std::string_view, std::vector<const Entry*>>& brands);

/// Calls `take` for each entry of the profile's lists of one kind: brand by brand, newest first.
void forEachEntry(Connection& connection, std::int64_t profile, ListKind kind,
                  const std::function<void(std::string brand, Entry entry)>& take);

/// Drops the oldest entries of all lists beyond `maxSize`, unless the limit was not larger before.
void trimLists(Connection& connection, std::size_t maxSize);

/// The list as the protocol writes it.
[[nodiscard]] boost::json::object listJSON(ListKind kind, std::size_t maxSize,
                                           const std::vector<Entry>& entries);

}  // namespace KestrinProfileServer
