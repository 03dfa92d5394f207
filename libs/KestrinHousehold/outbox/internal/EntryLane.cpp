#include <algorithm>
#include <utility>

#include <KestrinHousehold/outbox/internal/EntryLane.hpp>

namespace KestrinHousehold::internal {

std::vector<EntryLane::Key> EntryLane::keysOf(const OutboxWrite& write) {
    const auto kind = listChangeOf(write.operation);
    std::vector<Key> keys;
    if (!kind) return keys;
    if (kind->change == Change::clear) keys.emplace_back(kind->list, write.brandID, std::nullopt);
    for (auto& item : itemsOf(write))
        keys.emplace_back(kind->list, write.brandID, std::move(item));
    return keys;
}

void EntryLane::insert(OutboxEntry entry, bool isPlanned) {
    const auto number = entry.number;
    auto keys = keysOf(entry.write);
    // First, so that whoever finds its number finds it, too, also if there is no more memory.
    slots_.insert_or_assign(number, Slot{std::move(entry), isPlanned});
    for (auto& key : keys)
        index_[std::move(key)].insert(number);
}

OutboxEntry EntryLane::erase(std::int64_t number) {
    auto node = slots_.extract(number);
    OutboxEntry entry = std::move(node.mapped().entry);
    for (const auto& key : keysOf(entry.write)) {
        const auto found = index_.find(key);
        if (found == index_.end()) continue;
        found->second.erase(number);
        if (found->second.empty()) index_.erase(found);
    }
    planned_.erase(number);
    leaving_.erase(number);
    changed_.erase(number);
    return entry;
}

void EntryLane::restore(OutboxEntry entry) {
    insert(std::move(entry), false);
}

/// The entries whose items a write concerns; all of the list if it clears it. Those that clear it
/// concern no item: whatever stood before them is gone.
std::set<std::int64_t> EntryLane::sameItems(const OutboxWrite& write) const {
    std::set<std::int64_t> numbers;
    const auto kind = listChangeOf(write.operation);
    if (!kind) return numbers;
    if (kind->change != Change::clear) {
        for (const auto& key : keysOf(write)) {
            const auto found = index_.find(key);
            if (found != index_.end()) numbers.insert(found->second.begin(), found->second.end());
        }
        return numbers;
    }
    for (const auto& [number, slot] : slots_)
        if (slot.entry.write.brandID == write.brandID) {
            const auto other = listChangeOf(slot.entry.write.operation);
            if (other && other->list == kind->list) numbers.insert(number);
        }
    return numbers;
}

/// The entries that clear the list of a write about items.
std::set<std::int64_t> EntryLane::clearings(const OutboxWrite& write) const {
    const auto kind = listChangeOf(write.operation);
    if (!kind || kind->change == Change::clear) return {};
    const auto found = index_.find({kind->list, write.brandID, std::nullopt});
    return found == index_.end() ? std::set<std::int64_t>() : found->second;
}

std::vector<std::int64_t> EntryLane::supersededBy(OutboxEntry& entry) const {
    std::vector<std::int64_t> dropped;
    const auto clearings = this->clearings(entry.write);
    const auto same = sameItems(entry.write);
    for (auto number = same.rbegin(); number != same.rend(); ++number) {
        if (leaving_.contains(*number)) continue;
        // Nothing before one that stays is looked at: the order is kept. Before a clearing stands
        // only what was under way when it came.
        if (underWay_ == *number || clearings.upper_bound(*number) != clearings.end()) break;
        if (!supersedes(entry.write, slots_.at(*number).entry.write)) break;
        dropped.push_back(*number);
    }
    return dropped;
}

std::optional<std::ptrdiff_t> EntryLane::plan(OutboxEntry entry, std::size_t mostFree,
                                              Scheduler::WallTime ownUntil) {
    const auto dropped = supersededBy(entry);
    if (dropped.size() + mostFree < 1) return std::nullopt;
    const auto number = entry.number;
    if (underWay_ && sameItems(entry.write).contains(*underWay_)) {
        entry.ownUntil = ownUntil;
        behind_.push_back(number);
    }
    for (const auto one : dropped) {
        auto& slot = slots_.at(one);
        if (slot.entry.ownUntil)
            entry.ownUntil =
                std::max(entry.ownUntil.value_or(*slot.entry.ownUntil), *slot.entry.ownUntil);
        slot.droppedBy = number;
        leaving_.insert(one);
    }
    insert(std::move(entry), true);
    planned_.insert(number);
    return 1 - static_cast<std::ptrdiff_t>(dropped.size());
}

std::vector<OutboxEntry> EntryLane::planned() const {
    std::vector<OutboxEntry> entries;
    for (const auto number : planned_)
        if (!leaving_.contains(number)) entries.push_back(slots_.at(number).entry);
    return entries;
}

std::vector<std::int64_t> EntryLane::leaving() const {
    std::vector<std::int64_t> numbers;
    for (const auto number : leaving_)
        if (!planned_.contains(number)) numbers.push_back(number);
    return numbers;
}

std::vector<EntryLane::Superseded> EntryLane::keepPlan() {
    std::vector<Superseded> dropped;
    for (const auto number : std::set(leaving_)) {
        const auto by = slots_.at(number).droppedBy.value_or(0);
        dropped.push_back({erase(number), by});
    }
    for (const auto number : planned_)
        slots_.at(number).isPlanned = false;
    planned_.clear();
    return dropped;
}

void EntryLane::abandonPlan() {
    for (const auto number : std::set(planned_))
        erase(number);
    for (const auto number : leaving_)
        slots_.at(number).droppedBy.reset();
    leaving_.clear();
}

const OutboxEntry* EntryLane::next() const {
    if (underWay_ || slots_.empty()) return nullptr;
    const auto& [number, slot] = *slots_.begin();
    if (slot.isPlanned || slot.droppedBy) return nullptr;
    return &slot.entry;
}

void EntryLane::begin() {
    underWay_ = slots_.begin()->first;
}

void EntryLane::end(Scheduler::WallTime now) {
    for (const auto number : behind_) {
        const auto found = slots_.find(number);
        if (found != slots_.end()) found->second.entry.ownUntil = now;
    }
    behind_.clear();
    underWay_.reset();
}

std::optional<OutboxEntry> EntryLane::take(std::int64_t number) {
    const auto found = slots_.find(number);
    if (found == slots_.end() || underWay_ == number || found->second.isPlanned ||
        found->second.droppedBy)
        return std::nullopt;
    return erase(number);
}

OutboxEntry EntryLane::takeUnderWay(Scheduler::WallTime now, bool isSent) {
    const auto number = underWay_.value_or(0);
    end(now);
    if (isSent) noteOwnWork(number, now);
    return erase(number);
}

/// Later entries of the same items must not take for newer what this one has left.
void EntryLane::noteOwnWork(std::int64_t number, Scheduler::WallTime now) {
    const auto& write = slots_.at(number).entry.write;
    const auto kind = listChangeOf(write.operation);
    if (!kind || kind->change == Change::clear) return;  // it leaves nothing
    auto later = sameItems(write);
    later.merge(clearings(write));
    for (const auto one : later) {
        if (one <= number) continue;
        slots_.at(one).entry.ownUntil = now;
        changed_.insert(one);
    }
}

std::vector<OutboxEntry> EntryLane::takeChanged() {
    std::vector<OutboxEntry> entries;
    std::erase_if(changed_, [&](std::int64_t number) {
        if (leaving_.contains(number)) return false;  // unless it does leave
        if (!planned_.contains(number)) entries.push_back(slots_.at(number).entry);
        return true;
    });
    return entries;
}

void EntryLane::putBackChanged(const std::vector<OutboxEntry>& entries) {
    for (const auto& entry : entries)
        if (slots_.contains(entry.number)) changed_.insert(entry.number);
}

std::vector<OutboxEntry> EntryLane::entries() const {
    std::vector<OutboxEntry> entries;
    entries.reserve(slots_.size());
    for (const auto& [number, slot] : slots_)
        if (!slot.isPlanned) entries.push_back(slot.entry);
    return entries;
}

}  // namespace KestrinHousehold::internal
