#include <KestrinHousehold/outbox/MemoryOutboxStore.hpp>

namespace KestrinHousehold {

OutboxStore::Loaded MemoryOutboxStore::load() {
    return {entries(), {}};
}

void MemoryOutboxStore::commit(const Change& change) {
    std::map<std::int64_t, OutboxEntry> added;
    for (const auto& entry : change.put)
        added.insert_or_assign(entry.number, entry);
    const std::scoped_lock lock(mutex_);  // nothing fails from here on
    for (const auto number : change.remove)
        entries_.erase(number);
    for (const auto& entry : change.put)
        entries_.erase(entry.number);
    entries_.merge(added);
}

std::vector<OutboxEntry> MemoryOutboxStore::entries() const {
    const std::scoped_lock lock(mutex_);
    std::vector<OutboxEntry> entries;
    entries.reserve(entries_.size());
    for (const auto& [number, entry] : entries_)
        entries.push_back(entry);
    return entries;
}

}  // namespace KestrinHousehold
