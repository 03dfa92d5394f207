#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <KestrinHousehold/Export.hpp>
#include <KestrinHousehold/outbox/OutboxEntry.hpp>

namespace KestrinHousehold {

/// Where an outbox keeps its entries. An application may bring its own.
///
/// An outbox calls it from one thread at a time, never from the transport's, and waits for it. The
/// members throw `OutboxError`; another exception counts as `notStored`.
class KESTRIN_HOUSEHOLD_EXPORT OutboxStore {
  public:
    /// What was found.
    struct Loaded {
        std::vector<OutboxEntry> entries{};   ///< by their numbers, refused ones included
        std::vector<std::string> warnings{};  ///< what was damaged and is lost, for people
    };

    /// A change. It takes effect as a whole or not at all.
    struct Change {
        std::vector<OutboxEntry> put{};      ///< new entries, or in the place of those so numbered
        std::vector<std::int64_t> remove{};  ///< numbers; those that are not there are ignored
    };

    OutboxStore() = default;
    OutboxStore(const OutboxStore&) = delete;
    OutboxStore& operator=(const OutboxStore&) = delete;
    virtual ~OutboxStore();

    /// Opens the store, and reads it. Called again if it failed.
    /// @throws OutboxError  `storeUnavailable`
    [[nodiscard]] virtual Loaded load() = 0;

    /// Keeps a change: when this returns, neither the end of the process nor that of the device's
    /// power takes it away.
    /// @throws OutboxError  `notStored`; nothing of the change is kept then
    virtual void commit(const Change& change) = 0;
};

}  // namespace KestrinHousehold
