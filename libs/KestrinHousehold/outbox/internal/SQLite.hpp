#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include <sqlite3.h>

namespace KestrinHousehold::internal {

/// What SQLite says. Not exported: it never leaves this library.
class SQLiteError final : public std::runtime_error {
  public:
    SQLiteError(int code, const std::string& text) : std::runtime_error(text), code_(code) {}

    /// The primary result code, e.g. `SQLITE_FULL`.
    [[nodiscard]] int code() const noexcept { return code_ & 0xFF; }

    /// Whether the file is to blame, and not the system.
    [[nodiscard]] bool isDamage() const noexcept {
        return code() == SQLITE_CORRUPT || code() == SQLITE_NOTADB || code() == SQLITE_ERROR ||
               code() == SQLITE_MISMATCH;
    }

  private:
    int code_;
};

/// An open file. One thread at a time.
class SQLiteFile {
  public:
    /// Opens a file that exists.
    SQLiteFile(const std::filesystem::path& file, std::chrono::milliseconds waiting);

    void run(const char* statements) const;
    [[nodiscard]] std::int64_t number(const char* query) const;
    [[nodiscard]] std::string text(const char* query) const;

    /// Leaves the file and its log at the end as they are.
    void leaveAsItIs() const;

    [[nodiscard]] sqlite3* get() const noexcept { return handle_.get(); }
    [[nodiscard]] SQLiteError error() const;

  private:
    struct Close {
        void operator()(sqlite3* handle) const noexcept { sqlite3_close_v2(handle); }
    };
    std::unique_ptr<sqlite3, Close> handle_;
};

/// A prepared statement.
class SQLiteStatement {
  public:
    SQLiteStatement(const SQLiteFile& file, const char* query);

    void bind(int index, std::int64_t value);
    /// @param value  lives until the next step
    void bind(int index, std::string_view value);
    /// @return whether there is a row
    bool step();
    /// Makes it ready for the next values, whatever became of it.
    void reset() noexcept { sqlite3_reset(statement_.get()); }
    /// Runs it, which has no rows, ready for the next values.
    void runOnce();

    [[nodiscard]] std::int64_t integer(int column) const noexcept;
    [[nodiscard]] std::string_view text(int column) const noexcept;  ///< lives until the next step

  private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
    };

    void check(int result) const;

    const SQLiteFile* file_;
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

/// A transaction that is taken back unless it was committed.
class SQLiteTransaction {
  public:
    explicit SQLiteTransaction(const SQLiteFile& file);
    SQLiteTransaction(const SQLiteTransaction&) = delete;
    SQLiteTransaction& operator=(const SQLiteTransaction&) = delete;
    ~SQLiteTransaction();

    void commit();

  private:
    const SQLiteFile* file_;
    bool isOpen_ = true;
};

}  // namespace KestrinHousehold::internal
