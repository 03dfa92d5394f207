#include "server/ReferenceDatabase.hpp"

#include <chrono>
#include <stdexcept>

#include <sqlite3.h>

namespace Bench {

namespace {

constexpr const char* upsert = R"sql(
    INSERT INTO entries (profile, list, brand, position, id, type, progress, completed, added)
    VALUES ((SELECT profile FROM profiles WHERE id = 'parent'), 'history', 'kestrin',
            (SELECT coalesce(max(position), 0) + 1 FROM entries
             WHERE profile = (SELECT profile FROM profiles WHERE id = 'parent')
               AND list = 'history' AND brand = 'kestrin'),
            ?1, 'VIDEO', 1234567, 0, ?2)
    ON CONFLICT (profile, list, brand, id) DO UPDATE SET
        position = excluded.position, type = excluded.type, progress = excluded.progress,
        completed = excluded.completed, added = excluded.added
)sql";

}  // namespace

void ReferenceDatabase::Close::operator()(sqlite3* database) const noexcept {
    sqlite3_close(database);
}

void ReferenceDatabase::Finalize::operator()(sqlite3_stmt* statement) const noexcept {
    sqlite3_finalize(statement);
}

ReferenceDatabase::ReferenceDatabase(const std::filesystem::path& file) {
    sqlite3* database = nullptr;
    sqlite3_open_v2(file.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr);
    database_.reset(database);
    sqlite3_exec(database, "PRAGMA foreign_keys = ON; PRAGMA synchronous = FULL", nullptr, nullptr,
                 nullptr);
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database, upsert, -1, &statement, nullptr) != SQLITE_OK)
        throw std::runtime_error(sqlite3_errmsg(database));
    upsert_.reset(statement);
}

bool ReferenceDatabase::write(std::string_view videoID) {
    const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    sqlite3_bind_text(upsert_.get(), 1, videoID.data(), static_cast<int>(videoID.size()),
                      SQLITE_TRANSIENT);
    sqlite3_bind_int64(upsert_.get(), 2, now.count());
    const int result = sqlite3_step(upsert_.get());
    sqlite3_reset(upsert_.get());
    return result == SQLITE_DONE;
}

}  // namespace Bench
