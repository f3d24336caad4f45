#include "retrieval/corpus/ranking.hpp"

namespace retrieval {

void _rank_by(const Database& database, const std::string& table, const std::string& expression) {
  Statement statement(database,
                      "INSERT INTO " + table + " (" + table + ", rank) VALUES ('rank', ?)");
  statement.bind(1, expression);
  statement.run();
}

}  // namespace retrieval
