// SPDX-License-Identifier: MIT
// Owners of what SQLite hands out. One thread uses a database and its statements.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

// A call that SQLite refused.
struct database_error_s : std::runtime_error {
    database_error_s(sqlite3* database, int resultCode);
    int code;  // the primary result code, such as SQLITE_FULL
    // The file does not hold a database, or no longer a sound one.
    bool isBroken() const { return code == SQLITE_CORRUPT || code == SQLITE_NOTADB; }
};

struct database_closer_s {
    void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
};
using database_ptr = std::unique_ptr<sqlite3, database_closer_s>;

// Throws database_error_s. `flags` of sqlite3_open_v2.
database_ptr openDatabase(const std::string& file, int flags);
// Runs statements without values. Throws database_error_s.
void execute(sqlite3* database, const std::string& sql);

// Bytes that are not text.
struct blob_s {
    std::string_view bytes;
};

// A prepared statement, to be used again and again.
class statement_c {
  public:
    statement_c(sqlite3* database, std::string_view sql);
    ~statement_c();
    statement_c(const statement_c&) = delete;
    statement_c& operator=(const statement_c&) = delete;

    // Values from the first on; a text has to live until the step.
    template <class... Values>
    statement_c& bind(const Values&... values) {
        int index = 0;
        (bindOne(++index, values), ...);
        return *this;
    }
    // Whether there is a row. Without one the statement is ready for new values.
    bool step();
    // For a statement without rows.
    void run();
    void reset();

    std::int64_t integer(int column) const;
    std::string_view text(int column) const;  // until the next step
    bool isNull(int column) const;

  private:
    void bindOne(int index, std::int64_t value);
    void bindOne(int index, std::uint64_t value);
    void bindOne(int index, std::string_view value);
    void bindOne(int index, blob_s value);
    void bindOne(int index, const std::optional<std::uint64_t>& value);
    void check(int code);

    sqlite3* owner;
    sqlite3_stmt* handle = nullptr;
};
