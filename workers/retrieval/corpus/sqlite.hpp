// Scoped handles over SQLite: a database, a statement and a transaction that close themselves.
//
// A handle may be used from any thread, but by one at a time: the callers see to that. Every
// failure throws SqliteError with SQLite's message.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "retrieval/retriever/errors.hpp"

namespace retrieval {

class Database {
 public:
  // A new, empty database in memory.
  static Database in_memory();

  void execute(const std::string& sql);
  sqlite3* handle() const noexcept { return handle_.get(); }

 private:
  struct Close {
    void operator()(sqlite3* database) const noexcept { sqlite3_close_v2(database); }
  };
  explicit Database(sqlite3* handle) : handle_(handle) {}

  std::unique_ptr<sqlite3, Close> handle_;
};

// A prepared statement; must not outlive its database.
class Statement {
 public:
  Statement(const Database& database, std::string_view sql);

  // Binds the 1-based parameter. A text must live until the statement has run.
  void bind(int parameter, std::int64_t value);
  void bind(int parameter, std::string_view text);

  // Moves to the next row; false when there is none.
  bool step();
  // Runs a statement that gives no rows, ready to be bound and run again.
  void run();

  std::int64_t integer(int column) const { return sqlite3_column_int64(handle_.get(), column); }
  double number(int column) const { return sqlite3_column_double(handle_.get(), column); }

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
  };
  void check(int code) const;

  std::unique_ptr<sqlite3_stmt, Finalize> handle_;
};

// Rolls back when it is left without a commit.
class Transaction {
 public:
  explicit Transaction(Database& database) : database_(database) { database_.execute("BEGIN"); }
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void commit();

 private:
  Database& database_;
  bool open_ = true;
};

}  // namespace retrieval
