#pragma once

#include <optional>
#include <string>
#include <vector>

#include <KestrinHousehold/outbox/OutboxWrite.hpp>

namespace KestrinHousehold::internal {

/// The lists that a profile has for each brand.
enum class List { history, favorites, watchList, searches };

/// What a write does to a list.
enum class Change { add, remove, clear };

struct ListChange {
    List list;
    Change change;

    friend bool operator==(const ListChange&, const ListChange&) = default;
};

/// What an operation does to which list; absent if it changes none.
[[nodiscard]] std::optional<ListChange> listChangeOf(KestrinProfile::ProfileOperation operation);

/// The items that a write adds or removes, in order; none if it clears the list.
[[nodiscard]] std::vector<std::string> itemsOf(const OutboxWrite& write);

/// Whether an earlier write need not be sent once a later one is. Both are of one list of one
/// profile and brand, and nothing between them concerns their items.
/// @param later  takes over what only the earlier one says, so that the result is the same
[[nodiscard]] bool supersedes(OutboxWrite& later, const OutboxWrite& earlier);

}  // namespace KestrinHousehold::internal
