#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace Bench {

/// The outbox's table, written through SQLite's own interface: what it costs at least to store an
/// entry so that it outlives the power. Write-ahead log, synchronous=FULL, the lock kept, one
/// commit for each entry, as the outbox does.
class ReferenceStore {
  public:
    /// @param file  one that does not exist yet
    /// @throws std::runtime_error if it cannot be made
    explicit ReferenceStore(const std::filesystem::path& file);

    /// @return whether the entry is on the disk
    [[nodiscard]] bool append(std::int64_t number, std::string_view entry);

  private:
    struct Close {
        void operator()(sqlite3* database) const noexcept;
    };
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const noexcept;
    };

    std::unique_ptr<sqlite3, Close> database_;
    std::unique_ptr<sqlite3_stmt, Finalize> insert_;
};

}  // namespace Bench
