#pragma once

#include <filesystem>
#include <memory>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace Bench {

/// A database of the server's schema, written through SQLite's own interface: what a durable write
/// costs at least. Write-ahead log, synchronous=FULL, one commit for each write, as the server
/// does.
class ReferenceDatabase {
  public:
    /// @param file  made by `makeDatabase`
    explicit ReferenceDatabase(const std::filesystem::path& file);

    /// Writes the row that the server writes for a watched video.
    /// @return whether it is on the disk
    [[nodiscard]] bool write(std::string_view videoID);

  private:
    struct Close {
        void operator()(sqlite3* database) const noexcept;
    };
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const noexcept;
    };

    std::unique_ptr<sqlite3, Close> database_;
    std::unique_ptr<sqlite3_stmt, Finalize> upsert_;
};

}  // namespace Bench
