#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <exception>
#include <fcntl.h>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include <KestrinHousehold/outbox/OutboxError.hpp>
#include <KestrinHousehold/outbox/SQLiteOutboxStore.hpp>
#include <KestrinHousehold/outbox/internal/EntryText.hpp>
#include <KestrinHousehold/outbox/internal/SQLite.hpp>
#include <internal/FileDescriptor.hpp>

namespace KestrinHousehold {

using internal::SQLiteError;
using internal::SQLiteFile;
using internal::SQLiteStatement;
using internal::SQLiteTransaction;
using Entries = std::map<std::int64_t, OutboxEntry>;
namespace fs = std::filesystem;

namespace {

/// Marks the file as ours, so that another program's database is never touched.
constexpr std::int64_t applicationID = 0x4B504F42;
constexpr std::int64_t schemaVersion = 1;

std::string schema() {
    constexpr const char* tables = R"sql(
        CREATE TABLE kestrin_outbox (
            number INTEGER PRIMARY KEY,
            entry TEXT NOT NULL,
            checksum INTEGER NOT NULL
        ) STRICT;
    )sql";
    return tables + ("PRAGMA application_id = " + std::to_string(applicationID)) +
           "; PRAGMA user_version = " + std::to_string(schemaVersion);
}

fs::path beside(fs::path file, const char* suffix) {
    file += suffix;
    return file;
}

OutboxError unavailable(const fs::path& file, const std::string& reason) {
    return OutboxError(OutboxError::Case::storeUnavailable,
                       "cannot use '" + file.string() + "': " + reason);
}

/// What is found in the place of a sound file of ours.
class Damage final : public std::runtime_error {
  public:
    enum class Kind { damaged, laterVersion };
    explicit Damage(const std::string& text, Kind kind = Kind::damaged)
        : std::runtime_error(text), kind_(kind) {}

    [[nodiscard]] Kind kind() const noexcept { return kind_; }

  private:
    Kind kind_;
};

constexpr const char* takenByAnother = "another process, or another outbox of this one, has it";

void checkedRename(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::rename(from, to, error);
    if (error) throw unavailable(from, "it cannot be renamed: " + error.message());
}

bool isThere(const fs::path& file) {
    std::error_code error;
    return fs::exists(fs::symlink_status(file, error));
}

std::uintmax_t sizeOf(const fs::path& file) {
    std::error_code error;
    const auto size = fs::file_size(file, error);
    return error ? 0 : size;
}

/// Why a file is damaged that SQLite takes for a new one, without a word; absent if it is not.
std::optional<std::string> silentDamageOf(const fs::path& file) {
    constexpr std::uintmax_t smallestPage = 512;
    const auto size = sizeOf(file);
    if (size > 0 && size < smallestPage) return "it is cut";
    if (size == 0 && isThere(file) && sizeOf(beside(file, "-wal")) > 0)
        return "it is empty, but its log is not";
    return std::nullopt;
}

/// Creates an empty file for its owner alone. One that exists is never opened: closing it would
/// take SQLite's lock away.
void createPrivate(const fs::path& file) {
    const KestrinInternal::FileDescriptor created(KestrinInternal::uninterrupted(
        [&] { return ::open(file.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600); }));
    if (created.isOpen()) return;
    const std::error_code error(errno, std::generic_category());
    if (error != std::errc::file_exists) throw unavailable(file, error.message());
}

/// Takes a file of ours away from others.
void makePrivate(const fs::path& file) {
    std::error_code ignored;  // of a file of another owner SQLite says what is wrong
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write, ignored);
}

/// The name under which the next damaged file is set aside.
fs::path nextQuarantine(const fs::path& file) {
    for (int number = 1;; ++number) {
        auto name = beside(file, (".damaged-" + std::to_string(number)).c_str());
        if (!isThere(name) && !isThere(beside(name, "-wal"))) return name;
    }
}

/// Before anything else: with the lock kept by one process the log needs no shared memory. It
/// changes nothing in the file.
void keepLock(const SQLiteFile& file) {
    file.run("PRAGMA locking_mode = EXCLUSIVE");
}

void prepare(const SQLiteFile& file) {
    file.run("PRAGMA synchronous = FULL");
    if (file.text("PRAGMA journal_mode = WAL") != "wal") throw Damage("it has no write-ahead log");
    // The log starts over before it would outgrow the length that is kept: a commit that makes a
    // file longer takes a disk twice the time.
    file.run("PRAGMA wal_autocheckpoint = 200");  // pages, 4,120 bytes each
    file.run("PRAGMA journal_size_limit = 1048576");
}

bool isNew(const SQLiteFile& file) {
    return file.number("PRAGMA schema_version") == 0 && file.number("PRAGMA user_version") == 0 &&
           file.number("PRAGMA application_id") == 0;
}

bool hasTable(const SQLiteFile& file) {
    return file.number("SELECT count(*) FROM sqlite_schema WHERE name = 'kestrin_outbox'") > 0;
}

/// Takes an entry out of a row; false if the row is damaged.
bool takeRow(const SQLiteStatement& row, Entries& entries) {
    const auto number = row.integer(0);
    const auto text = row.text(1);
    if (row.integer(2) != internal::checksumOf(number, text)) return false;
    auto entry = internal::entryIn(text);
    if (!entry) return false;
    entry->number = number;
    entries.insert_or_assign(number, std::move(*entry));
    return true;
}

Entries readAll(const SQLiteFile& file) {
    SQLiteStatement rows(file, "SELECT number, entry, checksum FROM kestrin_outbox");
    Entries entries;
    bool isWhole = true;
    while (rows.step())
        isWhole = takeRow(rows, entries) && isWhole;
    if (!isWhole) throw Damage("some of its entries are not as they were written");
    return entries;
}

/// Reads rows as far as it can; returns the last number that it saw.
std::optional<std::int64_t> readFrom(const SQLiteFile& file, const char* query, Entries& entries) {
    std::optional<std::int64_t> last;
    try {
        SQLiteStatement rows(file, query);
        while (rows.step()) {
            last = rows.integer(0);
            takeRow(rows, entries);
        }
    } catch (const SQLiteError&) {
        return last;  // as far as it went
    }
    return last;
}

/// What can be read of a damaged file: from both ends, then each number between.
Entries readable(const SQLiteFile& file) {
    constexpr std::int64_t mostBetween = 20'000;
    Entries entries;
    const auto low = readFrom(
        file, "SELECT number, entry, checksum FROM kestrin_outbox ORDER BY number", entries);
    const auto high = readFrom(
        file, "SELECT number, entry, checksum FROM kestrin_outbox ORDER BY number DESC", entries);
    if (!low && !high) return entries;
    const auto first = low.value_or(0);
    const auto last = std::min(high.value_or(first + mostBetween), first + mostBetween);
    SQLiteStatement row(file,
                        "SELECT number, entry, checksum FROM kestrin_outbox WHERE number = ?");
    for (auto number = first; number <= last; ++number) {
        if (entries.contains(number)) continue;
        try {
            row.reset();
            row.bind(1, number);
            if (row.step()) takeRow(row, entries);
        } catch (const SQLiteError&) {
            continue;  // this one is lost
        }
    }
    return entries;
}

}  // namespace

/// Has the file, against other stores. SQLite's own locks do not do: two connections that both read
/// and both want the file for themselves wait for each other.
class SQLiteOutboxStore::Lock {
  public:
    Lock(const fs::path& path, std::chrono::milliseconds waiting)
        : file_(KestrinInternal::uninterrupted([lock = beside(path, ".lock")] {
              return ::open(lock.c_str(), O_CREAT | O_RDWR | O_NOFOLLOW | O_CLOEXEC, 0600);
          })) {
        const auto end = std::chrono::steady_clock::now() + waiting;
        if (!file_.isOpen()) throw unavailable(path, systemText());
        while (!file_.lock()) {
            if (errno != EWOULDBLOCK) throw unavailable(path, systemText());
            if (std::chrono::steady_clock::now() >= end) throw unavailable(path, takenByAnother);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

  private:
    static std::string systemText() { return std::generic_category().message(errno); }

    KestrinInternal::FileDescriptor file_;
};

/// The file and the statements of a commit.
class SQLiteOutboxStore::Connection {
  public:
    Connection(const fs::path& path, std::chrono::milliseconds waiting) : file(path, waiting) {}

    void create() const {
        SQLiteTransaction transaction(file);
        file.run(schema().c_str());
        transaction.commit();
    }

    void commit(const OutboxStore::Change& change) {
        auto& [put, remove] = statements();
        std::optional<SQLiteTransaction> transaction;
        // One row is a transaction by itself.
        if (change.remove.size() + change.put.size() > 1) transaction.emplace(file);
        for (const auto number : change.remove) {
            remove.bind(1, number);
            remove.runOnce();
        }
        for (const auto& entry : change.put) {
            const auto text = internal::textOf(entry);
            put.bind(1, entry.number);
            put.bind(2, text);
            put.bind(3, internal::checksumOf(entry.number, text));
            put.runOnce();
        }
        if (transaction) transaction->commit();
    }

    /// Overwrites what a commit that failed may have left in the log. If it was the disk's last
    /// word that failed, all of it is there, and would count once the process was killed.
    void forgetFailed() const noexcept {
        // It says what is there already. If the disk does not take that, there is no more to be
        // done.
        sqlite3_exec(file.get(), "PRAGMA user_version = 1", nullptr, nullptr, nullptr);
    }

    SQLiteFile file;

  private:
    struct Statements {
        SQLiteStatement put;
        SQLiteStatement remove;
    };

    /// Prepared when the table is there.
    Statements& statements() {
        if (!statements_)
            statements_.emplace(Statements{{file,
                                            "INSERT OR REPLACE INTO kestrin_outbox (number, entry, "
                                            "checksum) VALUES (?, ?, ?)"},
                                           {file, "DELETE FROM kestrin_outbox WHERE number = ?"}});
        return *statements_;
    }

    std::optional<Statements> statements_;
};

namespace {

/// Whether a file is sound and ours, and of which version; a new one becomes ours.
template <class Connection>
void check(const fs::path& path, const Connection& connection) {
    const SQLiteFile& file = connection.file;
    keepLock(file);
    const bool isFresh = isNew(file);
    const bool isOurs = file.number("PRAGMA application_id") == applicationID;
    if (!isFresh && !isOurs && !hasTable(file))
        throw unavailable(path, "it is a database of another program. Name another file");
    makePrivate(path);
    prepare(file);
    if (isFresh) connection.create();
    if (!isFresh && !isOurs) throw Damage("its head is damaged");
    const auto version = file.number("PRAGMA user_version");
    if (version > schemaVersion)
        throw Damage("it is of version " + std::to_string(version) +
                         ", and this library reads versions up to " + std::to_string(schemaVersion),
                     Damage::Kind::laterVersion);
    if (version < schemaVersion) throw Damage("its head is damaged");
    if (const auto found = file.text("PRAGMA quick_check(1)"); found != "ok") throw Damage(found);
}

/// What remains of the other names of a replacement that was never finished.
void removeLeftovers(const fs::path& replacement) {
    std::error_code ignored;
    for (const char* const suffix : {"", "-wal", "-journal"})
        fs::remove(beside(replacement, suffix), ignored);
}

std::vector<OutboxEntry> sorted(const Entries& entries) {
    std::vector<OutboxEntry> list;
    list.reserve(entries.size());
    for (const auto& [number, entry] : entries)
        list.push_back(entry);
    return list;
}

}  // namespace

SQLiteOutboxStore::SQLiteOutboxStore(fs::path file, std::chrono::milliseconds waiting)
    : file_(std::move(file)), waiting_(waiting) {}

SQLiteOutboxStore::~SQLiteOutboxStore() = default;

OutboxStore::Loaded SQLiteOutboxStore::load() {
    connection_.reset();
    lock_.reset();
    auto lock = std::make_unique<Lock>(file_, waiting_);
    try {
        finishReplacing();
        auto loaded = opened();
        lock_ = std::move(lock);
        return loaded;
    } catch (const SQLiteError& error) {
        connection_.reset();
        throw unavailable(file_, error.code() == SQLITE_BUSY ? takenByAnother : error.what());
    } catch (const OutboxError&) {
        connection_.reset();
        throw;
    }
}

void SQLiteOutboxStore::finishReplacing() const {
    const fs::path replacement = beside(file_, ".new");
    if (isThere(file_) || !isThere(replacement)) return;
    const fs::path log = beside(file_, "-wal");
    if (isThere(log)) checkedRename(log, beside(nextQuarantine(file_), "-wal"));
    checkedRename(replacement, file_);
}

OutboxStore::Loaded SQLiteOutboxStore::opened() {
    if (const auto damage = silentDamageOf(file_)) return replaced(*damage, {});
    createPrivate(file_);
    const auto connect = [this] { connection_ = std::make_unique<Connection>(file_, waiting_); };
    const auto read = [this]() -> Loaded {
        check(file_, *connection_);
        return {sorted(readAll(connection_->file)), {}};
    };
    // SQLite says of some reads that failed that the file is damaged. Damage stays, so it looks
    // twice.
    const auto readUnlessDamaged = [&]() -> std::optional<Loaded> {
        try {
            return read();
        } catch (const Damage&) {
            return std::nullopt;
        } catch (const SQLiteError& error) {
            if (!error.isDamage()) throw;
            return std::nullopt;
        }
    };
    connect();
    if (auto loaded = readUnlessDamaged()) return std::move(*loaded);
    connection_->file.leaveAsItIs();
    connection_.reset();
    connect();
    try {
        return read();
    } catch (const Damage& damage) {
        const bool isReadable = damage.kind() == Damage::Kind::damaged;
        return replaced(damage.what(), isReadable ? readable(connection_->file) : Entries());
    } catch (const SQLiteError& error) {
        if (!error.isDamage()) throw;
        return replaced(error.what(), readable(connection_->file));
    }
}

OutboxStore::Loaded SQLiteOutboxStore::replaced(const std::string& reason, const Entries& entries) {
    const fs::path replacement = beside(file_, ".new");
    const fs::path aside = nextQuarantine(file_);
    removeLeftovers(replacement);
    makePrivate(file_);
    createPrivate(replacement);
    {
        Connection fresh(replacement, waiting_);
        fresh.file.run("PRAGMA synchronous = FULL");
        fresh.create();
        fresh.commit({sorted(entries), {}});
    }
    // At no moment does a new file stand beside the old log.
    if (connection_) connection_->file.leaveAsItIs();
    checkedRename(file_, aside);
    if (isThere(beside(file_, "-wal"))) checkedRename(beside(file_, "-wal"), beside(aside, "-wal"));
    connection_.reset();
    checkedRename(replacement, file_);
    connection_ = std::make_unique<Connection>(file_, waiting_);
    keepLock(connection_->file);
    prepare(connection_->file);
    return {sorted(entries),
            {"the outbox's file was damaged (" + reason + "); " + std::to_string(entries.size()) +
             " entries could be read, and the old file is kept as '" + aside.string() + "'"}};
}

void SQLiteOutboxStore::commit(const Change& change) {
    if (!connection_) throw unavailable(file_, "it is not open");
    try {
        connection_->commit(change);
    } catch (const SQLiteError& error) {
        connection_->forgetFailed();
        throw OutboxError(OutboxError::Case::notStored,
                          "'" + file_.string() + "': " + error.what());
    }
}

}  // namespace KestrinHousehold
