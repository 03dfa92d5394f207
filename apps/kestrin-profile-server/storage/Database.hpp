#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

namespace KestrinProfileServer {

/// The service cannot start; the message says what failed, where, and what to do.
class StartError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What a commit waits for: until it is on the disk, or nothing, where nobody keeps the file.
enum class Durability { full, none };

/// One connection to the database with its prepared statements. Belongs to one thread at a time.
class Connection {
  public:
    enum class Mode { readWrite, readOnly };

    /// Opens an existing database file.
    Connection(const std::filesystem::path& file, Mode mode,
               Durability durability = Durability::full);

    /// The statement of `sql`, prepared the first time and kept. `sql` lives as long as the
    /// program.
    [[nodiscard]] SQLite::Statement& prepared(std::string_view sql);

    /// Whether a transaction is open; SQLite ends it by itself after some failures.
    [[nodiscard]] bool isInTransaction() const;

    [[nodiscard]] SQLite::Database& database() { return database_; }

  private:
    SQLite::Database database_;
    std::map<std::string_view, SQLite::Statement> statements_;
};

/// One execution of a prepared statement: binds the values in order and resets at the end.
class Query {
  public:
    template <class... Values>
    Query(Connection& connection, std::string_view sql, const Values&... values)
        : statement_(connection.prepared(sql)) {
        int index = 0;
        (bind(++index, values), ...);
    }
    ~Query() { statement_.tryReset(); }
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;

    /// Steps to the next row.
    bool next() { return statement_.executeStep(); }

    /// Runs a statement without rows; the number of rows it changed.
    std::int64_t run() { return statement_.exec(); }

    [[nodiscard]] bool isNull(int column) const { return statement_.isColumnNull(column); }
    [[nodiscard]] bool truth(int column) const { return integer(column) != 0; }
    [[nodiscard]] std::int64_t integer(int column) const {
        return statement_.getColumn(column).getInt64();
    }
    [[nodiscard]] std::string text(int column) const {
        return statement_.getColumn(column).getString();
    }
    [[nodiscard]] std::optional<std::int64_t> optionalInteger(int column) const;
    [[nodiscard]] std::optional<std::string> optionalText(int column) const;

  private:
    void bind(int index, std::int64_t value) { statement_.bind(index, value); }
    void bind(int index, bool value) { statement_.bind(index, value ? 1 : 0); }
    void bind(int index, const std::string& value) { statement_.bind(index, value); }
    void bind(int index, std::string_view value) { statement_.bind(index, std::string(value)); }
    void bind(int index, const char* value) { statement_.bind(index, value); }

    template <class Value>
    void bind(int index, const std::optional<Value>& value) {
        value ? bind(index, *value) : statement_.bind(index);
    }

    SQLite::Statement& statement_;
};

/// Everything read while it lives comes from one state of the database.
class ReadTransaction {
  public:
    explicit ReadTransaction(Connection& connection);
    ~ReadTransaction();
    ReadTransaction(const ReadTransaction&) = delete;
    ReadTransaction& operator=(const ReadTransaction&) = delete;

  private:
    Connection& connection_;
};

/// The error of a database file that cannot be used.
[[nodiscard]] StartError cannotOpen(const std::filesystem::path& file, const std::string& reason);

/// The schema version that this program works with.
[[nodiscard]] int currentSchemaVersion();

/// Creates the file when it is missing (readable by its owner only) and brings its schema up to
/// `version`. Throws StartError for a file that is no database of this program, or a newer one.
void prepareDatabase(const std::filesystem::path& file, int version = currentSchemaVersion(),
                     Durability durability = Durability::full);

}  // namespace KestrinProfileServer
