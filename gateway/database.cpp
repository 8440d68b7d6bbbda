// SPDX-License-Identifier: MIT
#include "database.hpp"

database_error_s::database_error_s(sqlite3* database, int resultCode)
    : std::runtime_error(database == nullptr ? sqlite3_errstr(resultCode) : sqlite3_errmsg(database)),
      code(resultCode & 0xff) {}

database_ptr openDatabase(const std::string& file, int flags) {
    sqlite3* raw = nullptr;
    const int code = sqlite3_open_v2(file.c_str(), &raw, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    database_ptr database(raw);
    if (code != SQLITE_OK) {
        throw database_error_s(raw, code);
    }
    constexpr int patience = 2'000;  // ms, for a moment in which another connection closes the log
    sqlite3_busy_timeout(raw, patience);
    return database;
}

void execute(sqlite3* database, const std::string& sql) {
    if (const int code = sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr); code != SQLITE_OK) {
        throw database_error_s(database, code);
    }
}

statement_c::statement_c(sqlite3* database, std::string_view sql) : owner(database) {
    check(sqlite3_prepare_v3(database, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT,
                             &handle, nullptr));
}

statement_c::~statement_c() {
    sqlite3_finalize(handle);
}

bool statement_c::step() {
    const int code = sqlite3_step(handle);
    if (code == SQLITE_ROW) {
        return true;
    }
    if (code != SQLITE_DONE) {
        const database_error_s error(owner, code);
        sqlite3_reset(handle);
        throw error;
    }
    sqlite3_reset(handle);
    return false;
}

void statement_c::run() {
    while (step()) {
    }
}

void statement_c::reset() {
    sqlite3_reset(handle);
}

std::int64_t statement_c::integer(int column) const {
    return sqlite3_column_int64(handle, column);
}

std::string_view statement_c::text(int column) const {
    const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(handle, column));
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(handle, column))};
}

bool statement_c::isNull(int column) const {
    return sqlite3_column_type(handle, column) == SQLITE_NULL;
}

void statement_c::bindOne(int index, std::int64_t value) {
    check(sqlite3_bind_int64(handle, index, value));
}

// SQLite knows numbers of 63 bits and a sign; larger ones come back as they were.
void statement_c::bindOne(int index, std::uint64_t value) {
    check(sqlite3_bind_int64(handle, index, static_cast<std::int64_t>(value)));
}

void statement_c::bindOne(int index, std::string_view value) {
    check(sqlite3_bind_text64(handle, index, value.data(), value.size(), SQLITE_STATIC, SQLITE_UTF8));
}

void statement_c::bindOne(int index, blob_s value) {
    check(sqlite3_bind_blob64(handle, index, value.bytes.data(), value.bytes.size(), SQLITE_STATIC));
}

void statement_c::bindOne(int index, const std::optional<std::uint64_t>& value) {
    value ? bindOne(index, *value) : check(sqlite3_bind_null(handle, index));
}

void statement_c::check(int code) {
    if (code != SQLITE_OK) {
        throw database_error_s(owner, code);
    }
}
