#include "retrieval/corpus/text_tables.hpp"

#include <exception>

#include "retrieval/corpus/ranking.hpp"

namespace retrieval {
namespace {

void create(Database& database, std::string_view table, std::string_view columns,
            const RetrievalSettings& settings) {
  // Detail level column: no positions are kept, and none are needed, since every term is one word.
  std::string sql = "CREATE VIRTUAL TABLE ";
  sql.append(table).append(" USING fts5(").append(columns);
  sql.append(", tokenize = '").append(settings.tokenizer).append("', detail = column)");
  Statement(database, sql).run();
}

void fill_symbols(const Database& database, std::span<const _SymbolRow> rows) {
  Statement insert(database,
                   "INSERT INTO " + std::string(_SYMBOL_TABLE) +
                       " (rowid, name, signature, path, docstring) VALUES (?, ?, ?, ?, ?)");
  for (const _SymbolRow& row : rows) {
    insert.bind(1, row.id);
    insert.bind(2, row.name);
    insert.bind(3, row.signature);
    insert.bind(4, row.path);
    insert.bind(5, row.docstring);
    insert.run();
  }
}

void fill_files(const Database& database, std::span<const _FileRow> rows) {
  Statement insert(database, "INSERT INTO " + std::string(_FILE_TABLE) +
                                 " (rowid, names, path, docstrings) VALUES (?, ?, ?, ?)");
  for (const _FileRow& row : rows) {
    insert.bind(1, row.row);
    insert.bind(2, row.names);
    insert.bind(3, row.path);
    insert.bind(4, row.docstrings);
    insert.run();
  }
}

// Quoted, a term is a plain string to FTS5, never an operator.
std::string any_of(std::span<const std::string> terms) {
  std::string expression;
  for (std::string_view separator; const std::string& term : terms) {
    expression.append(separator).append("\"").append(term).append("\"");
    separator = " OR ";
  }
  return expression;
}

std::string search(std::string_view table) {
  const std::string name(table);
  return "SELECT rowid FROM " + name + " WHERE " + name + " MATCH ? ORDER BY rank";
}

}  // namespace

std::unique_ptr<Database> _text_tables(const RetrievalSettings& settings,
                                       std::span<const _SymbolRow> symbol_rows,
                                       std::span<const _FileRow> file_rows, Log& log) {
  auto database = std::make_unique<Database>(Database::in_memory());
  try {
    create(*database, _SYMBOL_TABLE, "name, signature, path, docstring", settings);
    create(*database, _FILE_TABLE, "names, path, docstrings", settings);
  } catch (const SqliteError& error) {
    if (error.code() != SQLITE_ERROR) throw;
    database.reset();
    log.write({LogLevel::kWarning,
               "This SQLite has no FTS5: retrieval ranks without text",
               {},
               std::current_exception()});
    return nullptr;
  }
  Transaction transaction(*database);
  _rank_by(*database, std::string(_SYMBOL_TABLE), settings.weights.rank_function());
  _rank_by(*database, std::string(_FILE_TABLE), settings.file_weights.rank_function());
  fill_symbols(*database, symbol_rows);
  fill_files(*database, file_rows);
  transaction.commit();
  return database;
}

_Matching::_Matching(const Database& fts, std::mutex& lock, std::string_view table,
                     std::span<const std::string> terms)
    : lock_(lock), expression_(any_of(terms)), query_(fts, search(table)) {
  query_.bind(1, expression_);
}

std::optional<std::int64_t> _Matching::next() {
  if (!query_.step()) return std::nullopt;
  return query_.integer(0);
}

_Matching _matching(const Database& fts, std::mutex& lock, std::string_view table,
                    std::span<const std::string> terms) {
  return {fts, lock, table, terms};
}

}  // namespace retrieval
