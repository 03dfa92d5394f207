#include <algorithm>
#include <array>
#include <cstddef>

#include <KestrinHousehold/outbox/internal/Supersession.hpp>
#include <KestrinProfile/model/Types.hpp>

namespace KestrinHousehold::internal {

using KestrinProfile::ProfileOperation;
using KestrinProfile::UserProfileElement;

namespace {

/// When the earlier of two writes goes.
enum class Goes {
    never,
    ifCovered,   ///< the later one has all of its items
    ifRestated,  ///< and says all that an entry of the list can hold, so that nothing old remains
    always,
};

/// The rules: rows are what the earlier write does, columns what the later one does.
constexpr std::array<std::array<Goes, 3>, 3> rules{{
    // add             remove           clear
    {Goes::ifCovered, Goes::ifCovered, Goes::always},   // add
    {Goes::ifRestated, Goes::ifCovered, Goes::always},  // remove
    {Goes::never, Goes::never, Goes::always},           // clear
}};

Goes ruleOf(Change earlier, Change later) {
    return rules.at(static_cast<std::size_t>(earlier)).at(static_cast<std::size_t>(later));
}

bool covers(const OutboxWrite& later, const OutboxWrite& earlier) {
    const auto has = itemsOf(later);
    return std::ranges::all_of(itemsOf(earlier),
                               [&](const auto& item) { return std::ranges::count(has, item) > 0; });
}

bool restates(const OutboxWrite& later, const std::string& item) {
    if (later.operation == ProfileOperation::addVideoToHistory)
        return later.isComplete.has_value();  // A position it always has.
    if (later.operation != ProfileOperation::addFavoriteShows) return true;
    return std::ranges::any_of(later.shows, [&](const UserProfileElement& show) {
        return show.id == item && show.type.has_value();
    });
}

/// The type under which a write adds an item; absent if it does not say.
std::optional<std::string> typeOf(const OutboxWrite& write, const std::string& item) {
    if (write.operation == ProfileOperation::addFavoriteShow)
        return std::string(rawValue(KestrinProfile::Types::show));
    std::optional<std::string> type;
    for (const auto& show : write.shows)
        if (show.id == item && show.type) type = show.type;
    return type;
}

void takeOver(OutboxWrite& later, const OutboxWrite& earlier) {
    if (!later.progress) later.progress = earlier.progress;
    if (!later.isComplete) later.isComplete = earlier.isComplete;
    for (const auto& item : itemsOf(earlier)) {
        const auto show = std::ranges::find(later.shows, item, &UserProfileElement::id);
        if (show != later.shows.end() && !show->type) show->type = typeOf(earlier, item);
    }
}

}  // namespace

std::optional<ListChange> listChangeOf(ProfileOperation operation) {
    switch (operation) {
        case ProfileOperation::addVideoToHistory:
            return {{List::history, Change::add}};
        case ProfileOperation::removeVideoFromHistory:
            return {{List::history, Change::remove}};
        case ProfileOperation::clearHistory:
            return {{List::history, Change::clear}};
        case ProfileOperation::addFavoriteShow:
        case ProfileOperation::addFavoriteShows:
            return {{List::favorites, Change::add}};
        case ProfileOperation::removeFavoriteShow:
            return {{List::favorites, Change::remove}};
        case ProfileOperation::clearFavorites:
            return {{List::favorites, Change::clear}};
        case ProfileOperation::addVideoToWatchList:
            return {{List::watchList, Change::add}};
        case ProfileOperation::removeFromWatchList:
            return {{List::watchList, Change::remove}};
        case ProfileOperation::clearWatchList:
            return {{List::watchList, Change::clear}};
        case ProfileOperation::addSearchHistory:
            return {{List::searches, Change::add}};
        case ProfileOperation::deleteSearchHistory:
            return {{List::searches, Change::clear}};
        default:
            return std::nullopt;
    }
}

std::vector<std::string> itemsOf(const OutboxWrite& write) {
    const auto kind = listChangeOf(write.operation);
    if (!kind || kind->change == Change::clear) return {};
    if (write.operation != ProfileOperation::addFavoriteShows) return {write.itemID};
    std::vector<std::string> items;
    items.reserve(write.shows.size());
    for (const auto& show : write.shows)
        items.push_back(show.id.value_or(""));
    return items;
}

bool supersedes(OutboxWrite& later, const OutboxWrite& earlier) {
    const auto earlierChange = listChangeOf(earlier.operation);
    const auto laterChange = listChangeOf(later.operation);
    if (!earlierChange || !laterChange) return false;
    const Goes rule = ruleOf(earlierChange->change, laterChange->change);
    if (rule == Goes::never) return false;
    if (rule == Goes::always) return true;
    if (!covers(later, earlier)) return false;
    if (rule == Goes::ifRestated && !restates(later, earlier.itemID)) return false;
    if (laterChange->change == Change::add && earlierChange->change == Change::add)
        takeOver(later, earlier);
    return true;
}

}  // namespace KestrinHousehold::internal
