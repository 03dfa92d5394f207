#include <algorithm>
#include <cstddef>

#include <KestrinHousehold/outbox/OutboxWrite.hpp>
#include <KestrinHousehold/outbox/internal/Supersession.hpp>
#include <internal/UTF8.hpp>

namespace KestrinHousehold {

using KestrinProfile::ProfileOperation;

namespace {

bool isText(const OutboxWrite& write) {
    const auto isUTF8 = [](const std::string& text) { return KestrinInternal::isUTF8(text); };
    return isUTF8(write.profileID) && isUTF8(write.brandID) && isUTF8(write.itemID) &&
           std::ranges::all_of(write.shows, [&](const auto& show) {
               return isUTF8(show.id.value_or("")) && isUTF8(show.type.value_or(""));
           });
}

/// About how long a write is in the store.
std::size_t sizeOf(const OutboxWrite& write) {
    constexpr std::size_t ofShow = 300;
    std::size_t size = write.profileID.size() + write.brandID.size() + write.itemID.size();
    for (const auto& show : write.shows)
        size += ofShow + show.id.value_or("").size() + show.type.value_or("").size();
    return size;
}

}  // namespace

std::optional<std::string> problemOf(const OutboxWrite& write) {
    const auto kind = internal::listChangeOf(write.operation);
    if (!kind)
        return "the operation '" + std::string(rawValue(write.operation)) +
               "' changes no list; send it at once";
    if (write.profileID.empty()) return "the write names no profile";
    constexpr std::size_t longest = std::size_t{1} << 20U;
    if (sizeOf(write) > longest) return "the write is longer than 1 MiB";
    if (!isText(write)) return "a text of the write is not UTF-8";
    if (kind->change == internal::Change::clear) return std::nullopt;
    const auto items = internal::itemsOf(write);
    if (items.empty()) return "the write adds no show";
    const bool mayBeEmpty = kind->list == internal::List::searches;
    if (!mayBeEmpty && std::ranges::count(items, "") > 0)
        return "the write names no video or show, or an empty one";
    if (write.operation == ProfileOperation::addVideoToHistory && write.progress.value_or(-1) < 0)
        return "the write has no position, or one below 0";
    return std::nullopt;
}

}  // namespace KestrinHousehold
