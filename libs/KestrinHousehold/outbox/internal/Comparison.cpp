#include <algorithm>
#include <chrono>
#include <utility>
#include <variant>
#include <vector>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinHousehold/outbox/internal/Comparison.hpp>
#include <KestrinHousehold/outbox/internal/Supersession.hpp>

namespace KestrinHousehold::internal {

using KestrinProfile::ProfileOperation;
using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;
using Verdict = Comparison::Verdict;
using Elements = std::vector<UserProfileElement>;

namespace {

/// The service's time is known to a second.
constexpr std::chrono::seconds tolerance(1);

bool isNewer(const UserProfileElement& element, Scheduler::WallTime time) {
    return element.autoAddTimestamp && *element.autoAddTimestamp > time + tolerance;
}

const UserProfileElement* find(const Elements& list, const std::string& item) {
    const auto found = std::ranges::find(list, item, &UserProfileElement::id);
    return found == list.end() ? nullptr : &*found;
}

/// Whether an element is as a write would make it.
bool says(const UserProfileElement& element, const OutboxWrite& write) {
    return (!write.progress || element.progress == write.progress) &&
           (!write.isComplete || element.isCompleted == write.isComplete);
}

Comparison compareItem(const OutboxWrite& write, Scheduler::WallTime time, const Elements& list,
                       Change change) {
    const UserProfileElement* const element = find(list, write.itemID);
    if (element == nullptr || !isNewer(*element, time)) return {Verdict::send, {write}};
    const bool isThere = change == Change::add && says(*element, write);
    return {isThere ? Verdict::alreadyThere : Verdict::stale};
}

/// Shows that the service has from later are there already.
Comparison compareShows(OutboxWrite write, Scheduler::WallTime time, const Elements& list) {
    std::erase_if(write.shows, [&](const UserProfileElement& show) {
        const UserProfileElement* const element = find(list, show.id.value_or(""));
        return element != nullptr && isNewer(*element, time);
    });
    if (write.shows.empty()) return {Verdict::alreadyThere};
    return {Verdict::send, {std::move(write)}};
}

ProfileOperation removalOf(List list) {
    switch (list) {
        case List::history:
            return ProfileOperation::removeVideoFromHistory;
        case List::favorites:
            return ProfileOperation::removeFavoriteShow;
        default:
            return ProfileOperation::removeFromWatchList;
    }
}

/// If something newer is in the list, what is older is removed one by one.
Comparison compareClear(const OutboxWrite& write, Scheduler::WallTime time, const Elements& list,
                        List kind) {
    const auto isLater = [&](const UserProfileElement& element) { return isNewer(element, time); };
    if (std::ranges::none_of(list, isLater)) return {Verdict::send, {write}};
    Comparison comparison;
    for (const auto& element : list)
        if (!isLater(element) && element.id && !element.id->empty())
            comparison.writes.push_back(
                {write.profileID, write.brandID, removalOf(kind), *element.id});
    if (comparison.writes.empty()) comparison.verdict = Verdict::stale;
    return comparison;
}

}  // namespace

bool isComparable(const OutboxWrite& write) {
    const auto kind = listChangeOf(write.operation);
    return kind && kind->list != List::searches;
}

Comparison compare(const OutboxWrite& write, Scheduler::WallTime time, const UserProfile& list) {
    const auto kind = listChangeOf(write.operation);
    if (!kind || !list.elements) return {Verdict::send, {write}};
    if (kind->change == Change::clear) return compareClear(write, time, *list.elements, kind->list);
    if (write.operation == ProfileOperation::addFavoriteShows)
        return compareShows(write, time, *list.elements);
    return compareItem(write, time, *list.elements, kind->change);
}

std::optional<UserProfile> listIn(const HalvardSling::Response& reply) {
    const auto parsed = HalvardSling::JSONDictionary::parse(reply.sharedBody());
    const auto* const json = std::get_if<HalvardSling::JSONDictionary>(&parsed);
    auto list = json == nullptr ? std::nullopt : UserProfile::fromJSON(*json);
    if (!list || !list->elements) return std::nullopt;
    return list;
}

}  // namespace KestrinHousehold::internal
