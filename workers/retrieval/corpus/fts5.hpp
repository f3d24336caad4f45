// The way to FTS5's interface for tokenizers and auxiliary functions.
#pragma once

#include <sqlite3.h>

#include "retrieval/corpus/sqlite.hpp"

namespace retrieval {

// FTS5's interface on this connection, as long as that lives; null when this SQLite has no FTS5.
fts5_api* fts5_of(const Database& database);

}  // namespace retrieval
