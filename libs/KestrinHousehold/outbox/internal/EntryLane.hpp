#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <KestrinHousehold/outbox/OutboxEntry.hpp>
#include <KestrinHousehold/outbox/internal/Supersession.hpp>

namespace KestrinHousehold::internal {

/// The entries of one profile that wait, and the rules for what is added to them. An addition is
/// planned first, and takes effect once it is on the disk; until then nothing is sent that it
/// concerns.
class EntryLane {
  public:
    /// A dropped entry, and the number of the one that makes it needless.
    struct Superseded {
        OutboxEntry entry;
        std::int64_t by = 0;
    };

    /// Adds an entry that is on the disk.
    void restore(OutboxEntry entry);

    /// Plans an entry, with a higher number than all others.
    /// @param entry     takes over what only a dropped entry said; its `ownUntil` is set if what is
    ///                  under way concerns the same item
    /// @param mostFree  how many more entries there may be
    /// @param ownUntil  see `OutboxEntry::ownUntil`
    /// @return how many entries there are more (0 or less: as many were dropped); absent if there
    ///         is no room, and nothing was planned
    [[nodiscard]] std::optional<std::ptrdiff_t> plan(OutboxEntry entry, std::size_t mostFree,
                                                     Scheduler::WallTime ownUntil);

    /// What the plan adds and drops.
    [[nodiscard]] std::vector<OutboxEntry> planned() const;
    [[nodiscard]] std::vector<std::int64_t> leaving() const;

    /// The plan is on the disk.
    /// @return what it dropped that had been there before or was planned with it
    std::vector<Superseded> keepPlan();
    /// The plan is not on the disk; all is as before.
    void abandonPlan();

    /// The first entry, unless something is under way or the plan concerns it.
    [[nodiscard]] const OutboxEntry* next() const;

    /// The first entry; there is one.
    [[nodiscard]] const OutboxEntry& first() const { return slots_.begin()->second.entry; }

    /// The first entry is being sent.
    void begin();
    /// It is no longer; it stays.
    /// @param now  by the device's clock: what the service has from before may be its work
    void end(Scheduler::WallTime now);

    /// Takes an entry out.
    /// @return it; absent if there is none of this number, or it is under way or in the plan
    std::optional<OutboxEntry> take(std::int64_t number);
    /// Takes out what is under way.
    /// @param now     see `end`
    /// @param isSent  the service has it: what later entries find there is this device's own work
    OutboxEntry takeUnderWay(Scheduler::WallTime now, bool isSent);

    /// The entries whose `ownUntil` has changed since the last call, without those of the plan.
    [[nodiscard]] std::vector<OutboxEntry> takeChanged();
    /// Those that are still there are to be taken again: they are not on the disk.
    void putBackChanged(const std::vector<OutboxEntry>& entries);

    [[nodiscard]] std::vector<OutboxEntry> entries() const;
    /// How many there are, without those that the plan drops.
    [[nodiscard]] std::size_t size() const noexcept { return slots_.size() - leaving_.size(); }
    [[nodiscard]] bool empty() const noexcept { return slots_.empty(); }

  private:
    struct Slot {
        OutboxEntry entry;
        bool isPlanned = false;
        std::optional<std::int64_t> droppedBy{};
    };
    /// List, brand and item; no item: all of the list, which is cleared.
    using Key = std::tuple<List, std::string, std::optional<std::string>>;

    [[nodiscard]] static std::vector<Key> keysOf(const OutboxWrite& write);
    [[nodiscard]] std::set<std::int64_t> sameItems(const OutboxWrite& write) const;
    [[nodiscard]] std::set<std::int64_t> clearings(const OutboxWrite& write) const;
    [[nodiscard]] std::vector<std::int64_t> supersededBy(OutboxEntry& entry) const;
    void insert(OutboxEntry entry, bool isPlanned);
    OutboxEntry erase(std::int64_t number);
    void noteOwnWork(std::int64_t number, Scheduler::WallTime now);

    std::map<std::int64_t, Slot> slots_;
    std::map<Key, std::set<std::int64_t>> index_;
    std::set<std::int64_t> planned_;
    std::set<std::int64_t> leaving_;
    std::set<std::int64_t> changed_;  // on the disk, but with another `ownUntil`
    std::optional<std::int64_t> underWay_;
    std::vector<std::int64_t> behind_;  // entries that concern what is under way
};

}  // namespace KestrinHousehold::internal
