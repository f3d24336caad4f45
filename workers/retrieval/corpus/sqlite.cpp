#include "retrieval/corpus/sqlite.hpp"

namespace retrieval {
namespace {

void check(sqlite3* database, int code) {
  if (code == SQLITE_OK || code == SQLITE_ROW || code == SQLITE_DONE) return;
  throw SqliteError(code & 0xFF,
                    database != nullptr ? sqlite3_errmsg(database) : sqlite3_errstr(code));
}

}  // namespace

Database Database::in_memory() {
  sqlite3* handle = nullptr;
  // One thread at a time is the caller's promise, so SQLite need not lock the connection again.
  constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  const int code = sqlite3_open_v2(":memory:", &handle, kFlags, nullptr);
  Database database(handle);
  check(handle, code);
  return database;
}

void Database::execute(const std::string& sql) {
  check(handle(), sqlite3_exec(handle(), sql.c_str(), nullptr, nullptr, nullptr));
}

Statement::Statement(const Database& database, std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  const int code = sqlite3_prepare_v2(database.handle(), sql.data(), static_cast<int>(sql.size()),
                                      &statement, nullptr);
  handle_.reset(statement);
  retrieval::check(database.handle(), code);
}

void Statement::bind(int parameter, std::int64_t value) {
  check(sqlite3_bind_int64(handle_.get(), parameter, value));
}

void Statement::bind(int parameter, std::string_view text) {
  // A view of nothing may have no address, which SQLite would read as NULL.
  const char* start = text.data() != nullptr ? text.data() : "";
  check(sqlite3_bind_text64(handle_.get(), parameter, start, text.size(), SQLITE_STATIC,
                            SQLITE_UTF8));
}

bool Statement::step() {
  const int code = sqlite3_step(handle_.get());
  check(code);
  return code == SQLITE_ROW;
}

void Statement::run() {
  step();
  check(sqlite3_reset(handle_.get()));
}

void Statement::check(int code) const { retrieval::check(sqlite3_db_handle(handle_.get()), code); }

Transaction::~Transaction() {
  if (open_) sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
  database_.execute("COMMIT");
  open_ = false;
}

}  // namespace retrieval
