#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include <KestrinHousehold/Export.hpp>
#include <KestrinHousehold/outbox/OutboxStore.hpp>

namespace KestrinHousehold {

/// Keeps entries as long as it lives: for tests, and for applications that keep nothing on the
/// device. All members may be called from any thread.
class KESTRIN_HOUSEHOLD_EXPORT MemoryOutboxStore final : public OutboxStore {
  public:
    [[nodiscard]] Loaded load() override;
    void commit(const Change& change) override;

    /// What it holds, by number.
    [[nodiscard]] std::vector<OutboxEntry> entries() const;

  private:
    mutable std::mutex mutex_;
    std::map<std::int64_t, OutboxEntry> entries_;
};

}  // namespace KestrinHousehold
