#include <array>
#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

#include <SQLiteCpp/Transaction.h>
#include <sqlite3.h>

#include <internal/FileDescriptor.hpp>
#include <kestrin-profile-server/storage/Database.hpp>

namespace KestrinProfileServer {
namespace {

constexpr int busyTimeoutMilliseconds = 5000;

/// Marks the file as ours, so that another program's database is never migrated.
constexpr std::int64_t applicationID = 0x4B505356;

/// Migration n leads from version n to version n + 1. A migration that was released never changes.
constexpr std::array<const char*, 3> migrations{
    R"sql(
        PRAGMA application_id = 0x4B505356;
        CREATE TABLE settings (
            name TEXT PRIMARY KEY,
            value TEXT NOT NULL
        ) STRICT, WITHOUT ROWID;
        CREATE TABLE households (
            household INTEGER PRIMARY KEY,
            name TEXT NOT NULL UNIQUE,
            secret TEXT NOT NULL UNIQUE
        ) STRICT;
        CREATE TABLE profiles (
            profile INTEGER PRIMARY KEY,
            household INTEGER NOT NULL REFERENCES households ON DELETE CASCADE,
            id TEXT NOT NULL,
            username TEXT NOT NULL,
            name_key TEXT NOT NULL,
            avatar TEXT,
            profile_group TEXT,
            is_default INTEGER NOT NULL,
            is_parent INTEGER NOT NULL,
            UNIQUE (household, id),
            UNIQUE (household, name_key)
        ) STRICT;
        CREATE UNIQUE INDEX one_parent ON profiles (household) WHERE is_parent;
        CREATE UNIQUE INDEX one_default ON profiles (household) WHERE is_default;
        CREATE TABLE blocks (
            household INTEGER NOT NULL REFERENCES households ON DELETE CASCADE,
            profile_id TEXT NOT NULL,
            PRIMARY KEY (household, profile_id)
        ) STRICT, WITHOUT ROWID;
    )sql",
    R"sql(
        CREATE TABLE entries (
            profile INTEGER NOT NULL REFERENCES profiles ON DELETE CASCADE,
            list TEXT NOT NULL,
            brand TEXT NOT NULL,
            position INTEGER NOT NULL,
            id TEXT NOT NULL,
            type TEXT,
            progress INTEGER,
            completed INTEGER,
            added INTEGER NOT NULL,
            PRIMARY KEY (profile, list, brand, position)
        ) STRICT, WITHOUT ROWID;
        CREATE UNIQUE INDEX one_entry ON entries (profile, list, brand, id);
    )sql",
    // Entries outlive their profile until they are purged, so they no longer refer to it.
    R"sql(
        CREATE TABLE new_entries (
            profile INTEGER NOT NULL,
            list TEXT NOT NULL,
            brand TEXT NOT NULL,
            position INTEGER NOT NULL,
            id TEXT NOT NULL,
            type TEXT,
            progress INTEGER,
            completed INTEGER,
            added INTEGER NOT NULL,
            PRIMARY KEY (profile, list, brand, position)
        ) STRICT, WITHOUT ROWID;
        INSERT INTO new_entries
            SELECT profile, list, brand, position, id, type, progress, completed, added FROM entries;
        DROP TABLE entries;
        ALTER TABLE new_entries RENAME TO entries;
        CREATE UNIQUE INDEX one_entry ON entries (profile, list, brand, id);
        CREATE TABLE purges (
            profile INTEGER PRIMARY KEY
        ) STRICT;
        CREATE TABLE snapshots (
            name TEXT PRIMARY KEY,
            taken INTEGER NOT NULL,
            state TEXT NOT NULL
        ) STRICT, WITHOUT ROWID;
    )sql",
};

const char* synchronousPragma(Durability durability) {
    return durability == Durability::full ? "PRAGMA synchronous = FULL"
                                          : "PRAGMA synchronous = OFF";
}

std::int64_t pragma(SQLite::Database& database, const char* name) {
    return database.execAndGet(std::string("PRAGMA ") + name).getInt64();
}

void createMissingFile(const std::filesystem::path& file) {
    if (file.has_parent_path()) std::filesystem::create_directories(file.parent_path());
    const KestrinInternal::FileDescriptor created(
        ::open(file.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
    if (!created.isOpen()) throw std::system_error(errno, std::generic_category());
}

void refuseForeignFile(SQLite::Database& database, const std::filesystem::path& file) {
    const std::int64_t found = pragma(database, "user_version");
    const bool isNew = found == 0 && pragma(database, "schema_version") == 0;
    if (!isNew && pragma(database, "application_id") != applicationID) {
        throw StartError("'" + file.string() +
                         "' is a database of another program. Name another file with --database.");
    }
    if (found > currentSchemaVersion()) {
        throw StartError("'" + file.string() + "' has schema version " + std::to_string(found) +
                         ", this program knows versions up to " +
                         std::to_string(currentSchemaVersion()) +
                         ". Use the newer program, or name another file with --database.");
    }
}

void migrate(SQLite::Database& database, int version) {
    SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
    for (auto at = pragma(database, "user_version"); at < version; ++at) {
        database.exec(migrations[static_cast<std::size_t>(at)]);
        database.exec("PRAGMA user_version = " + std::to_string(at + 1));
    }
    transaction.commit();
}

}  // namespace

Connection::Connection(const std::filesystem::path& file, Mode mode, Durability durability)
    : database_(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_NOMUTEX,
                busyTimeoutMilliseconds) {
    database_.exec("PRAGMA foreign_keys = ON");
    database_.exec(synchronousPragma(durability));
    if (mode == Mode::readOnly) database_.exec("PRAGMA query_only = ON");
}

SQLite::Statement& Connection::prepared(std::string_view sql) {
    const auto known = statements_.find(sql);
    if (known != statements_.end()) return known->second;
    return statements_.emplace(sql, SQLite::Statement(database_, std::string(sql))).first->second;
}

bool Connection::isInTransaction() const {
    return sqlite3_get_autocommit(database_.getHandle()) == 0;
}

std::optional<std::int64_t> Query::optionalInteger(int column) const {
    return isNull(column) ? std::nullopt : std::optional(integer(column));
}

std::optional<std::string> Query::optionalText(int column) const {
    return isNull(column) ? std::nullopt : std::optional(text(column));
}

ReadTransaction::ReadTransaction(Connection& connection) : connection_(connection) {
    Query(connection_, "BEGIN").run();
}

ReadTransaction::~ReadTransaction() {
    auto& end = connection_.prepared("ROLLBACK");
    end.tryExecuteStep();
    end.tryReset();
}

StartError cannotOpen(const std::filesystem::path& file, const std::string& reason) {
    return StartError("cannot open the database '" + file.string() + "': " + reason +
                      ". Check the file and its folder, or name another file with --database.");
}

int currentSchemaVersion() {
    return static_cast<int>(migrations.size());
}

void prepareDatabase(const std::filesystem::path& file, int version, Durability durability) {
    try {
        createMissingFile(file);
        SQLite::Database database(file.string(), SQLite::OPEN_READWRITE, busyTimeoutMilliseconds);
        refuseForeignFile(database, file);
        database.exec("PRAGMA journal_mode = WAL");
        database.exec(synchronousPragma(durability));
        migrate(database, version);
    } catch (const SQLite::Exception& failure) {
        throw cannotOpen(file, failure.what());
    } catch (const std::system_error& failure) {
        throw cannotOpen(file, failure.code().message());
    }
}

}  // namespace KestrinProfileServer
