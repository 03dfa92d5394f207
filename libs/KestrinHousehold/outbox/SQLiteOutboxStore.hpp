#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include <KestrinHousehold/Export.hpp>
#include <KestrinHousehold/outbox/OutboxStore.hpp>

namespace KestrinHousehold {

/// Keeps entries in a SQLite file that only its owner may read (mode 0600). Not there with
/// `KESTRIN_OUTBOX_STORE=none`.
///
/// What was committed survives the end of the process and of the power (write-ahead log,
/// `synchronous=FULL`). One store has the file at a time, in this process or another; the next one
/// is refused, `storeUnavailable`. The file may not be opened by other means meanwhile. An empty
/// file beside it, "<file>.lock", stays: its lock says who has the other one.
///
/// A damaged file, one of a later version of the library, or one with other tables is set aside
/// beside the new one, as "<file>.damaged-1" and so on; what can still be read of it is in the new
/// one, and `Loaded::warnings` says what happened. A database of another program is left alone:
/// `storeUnavailable`.
class KESTRIN_HOUSEHOLD_EXPORT SQLiteOutboxStore final : public OutboxStore {
  public:
    /// Opens nothing yet.
    /// @param file     where; its folder must exist. SQLite has a second file beside it, "-wal".
    /// @param waiting  how long `load` waits for another process to let go of the file
    explicit SQLiteOutboxStore(std::filesystem::path file,
                               std::chrono::milliseconds waiting = std::chrono::seconds(2));
    ~SQLiteOutboxStore() override;

    [[nodiscard]] Loaded load() override;
    void commit(const Change& change) override;

  private:
    class Connection;
    class Lock;

    /// Ends what a process began that was killed while it replaced a damaged file.
    void finishReplacing() const;
    [[nodiscard]] Loaded opened();
    /// Sets the file aside, and begins a new one with what could be read of it.
    [[nodiscard]] Loaded replaced(const std::string& reason,
                                  const std::map<std::int64_t, OutboxEntry>& entries);

    std::filesystem::path file_;
    std::chrono::milliseconds waiting_;
    std::unique_ptr<Lock> lock_;
    std::unique_ptr<Connection> connection_;
};

}  // namespace KestrinHousehold
