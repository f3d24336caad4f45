#include "retrieval/corpus/fts5.hpp"

namespace retrieval {

fts5_api* fts5_of(const Database& database) {
  fts5_api* api = nullptr;
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(database.handle(), "SELECT fts5(?1)", -1, &statement, nullptr) ==
      SQLITE_OK) {
    sqlite3_bind_pointer(statement, 1, static_cast<void*>(&api), "fts5_api_ptr", nullptr);
    sqlite3_step(statement);
  }
  sqlite3_finalize(statement);
  return api;
}

}  // namespace retrieval
