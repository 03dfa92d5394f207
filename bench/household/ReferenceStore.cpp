#include "household/ReferenceStore.hpp"

#include <stdexcept>

#include <sqlite3.h>

namespace Bench {

void ReferenceStore::Close::operator()(sqlite3* database) const noexcept {
    sqlite3_close(database);
}

void ReferenceStore::Finalize::operator()(sqlite3_stmt* statement) const noexcept {
    sqlite3_finalize(statement);
}

ReferenceStore::ReferenceStore(const std::filesystem::path& file) {
    sqlite3* database = nullptr;
    sqlite3_open_v2(file.c_str(), &database,
                    SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    database_.reset(database);
    constexpr const char* setUp =
        "PRAGMA locking_mode = EXCLUSIVE; PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;"
        "CREATE TABLE entries (number INTEGER PRIMARY KEY, entry TEXT NOT NULL,"
        " checksum INTEGER NOT NULL) STRICT";
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_exec(database, setUp, nullptr, nullptr, nullptr) != SQLITE_OK ||
        sqlite3_prepare_v2(database,
                           "INSERT OR REPLACE INTO entries (number, entry, checksum)"
                           " VALUES (?, ?, ?)",
                           -1, &statement, nullptr) != SQLITE_OK)
        throw std::runtime_error(sqlite3_errmsg(database));
    insert_.reset(statement);
}

bool ReferenceStore::append(std::int64_t number, std::string_view entry) {
    constexpr sqlite3_int64 anyChecksum = 0x123456789ABCDEF;
    sqlite3_bind_int64(insert_.get(), 1, number);
    sqlite3_bind_text(insert_.get(), 2, entry.data(), static_cast<int>(entry.size()),
                      SQLITE_STATIC);
    sqlite3_bind_int64(insert_.get(), 3, anyChecksum);
    const int result = sqlite3_step(insert_.get());
    sqlite3_reset(insert_.get());
    return result == SQLITE_DONE;
}

}  // namespace Bench
