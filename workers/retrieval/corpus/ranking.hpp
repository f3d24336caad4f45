// How the rows of a text table are ranked: the one place that knows.
//
// The tables are searched with ORDER BY rank; what rank means is decided here, when a table is
// made.
#pragma once

#include <string>

#include "retrieval/corpus/sqlite.hpp"

namespace retrieval {

// Ranks the rows of an FTS5 table by the expression (a call of bm25 with a weight per column), as
// the table's persistent `rank` option. The lower the rank, the better the row.
void _rank_by(const Database& database, const std::string& table, const std::string& expression);

}  // namespace retrieval
