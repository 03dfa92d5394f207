#include <algorithm>
#include <limits>

#include <KestrinHousehold/outbox/internal/SQLite.hpp>

namespace KestrinHousehold::internal {

SQLiteFile::SQLiteFile(const std::filesystem::path& file, std::chrono::milliseconds waiting) {
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(file.c_str(), &handle, flags, nullptr);
    handle_.reset(handle);
    if (handle == nullptr) throw SQLiteError(SQLITE_NOMEM, sqlite3_errstr(SQLITE_NOMEM));
    if (result != SQLITE_OK) throw error();
    constexpr std::int64_t longest = std::numeric_limits<int>::max();
    sqlite3_busy_timeout(handle,
                         static_cast<int>(std::clamp<std::int64_t>(waiting.count(), 0, longest)));
    // Whatever a damaged file's schema says, it runs nothing.
    sqlite3_db_config(handle, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
}

SQLiteError SQLiteFile::error() const {
    const int code = sqlite3_extended_errcode(handle_.get());
    return {code, sqlite3_errmsg(handle_.get())};
}

void SQLiteFile::run(const char* statements) const {
    if (sqlite3_exec(handle_.get(), statements, nullptr, nullptr, nullptr) != SQLITE_OK)
        throw error();
}

std::int64_t SQLiteFile::number(const char* query) const {
    SQLiteStatement statement(*this, query);
    return statement.step() ? statement.integer(0) : 0;
}

std::string SQLiteFile::text(const char* query) const {
    SQLiteStatement statement(*this, query);
    return statement.step() ? std::string(statement.text(0)) : std::string();
}

void SQLiteFile::leaveAsItIs() const {
    sqlite3_db_config(handle_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

SQLiteStatement::SQLiteStatement(const SQLiteFile& file, const char* query) : file_(&file) {
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v2(file.get(), query, -1, &statement, nullptr));
    statement_.reset(statement);
}

void SQLiteStatement::check(int result) const {
    if (result != SQLITE_OK) throw file_->error();
}

void SQLiteStatement::bind(int index, std::int64_t value) {
    check(sqlite3_bind_int64(statement_.get(), index, value));
}

void SQLiteStatement::bind(int index, std::string_view value) {
    check(sqlite3_bind_text64(statement_.get(), index, value.data(), value.size(), SQLITE_STATIC,
                              SQLITE_UTF8));
}

bool SQLiteStatement::step() {
    const int result = sqlite3_step(statement_.get());
    if (result == SQLITE_ROW) return true;
    if (result != SQLITE_DONE) {
        SQLiteError error = file_->error();
        sqlite3_reset(statement_.get());
        throw SQLiteError(std::move(error));
    }
    return false;
}

void SQLiteStatement::runOnce() {
    step();
    check(sqlite3_reset(statement_.get()));
}

std::int64_t SQLiteStatement::integer(int column) const noexcept {
    return sqlite3_column_int64(statement_.get(), column);
}

std::string_view SQLiteStatement::text(int column) const noexcept {
    const unsigned char* const text = sqlite3_column_text(statement_.get(), column);
    if (text == nullptr) return {};
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
    return {reinterpret_cast<const char*>(text), size};
}

SQLiteTransaction::SQLiteTransaction(const SQLiteFile& file) : file_(&file) {
    file.run("BEGIN IMMEDIATE");
}

SQLiteTransaction::~SQLiteTransaction() {
    if (!isOpen_ || sqlite3_get_autocommit(file_->get()) != 0) return;
    sqlite3_exec(file_->get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void SQLiteTransaction::commit() {
    file_->run("COMMIT");
    isOpen_ = false;
}

}  // namespace KestrinHousehold::internal
